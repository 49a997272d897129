// The arrows between folders: which file may include which. A room of frame/ knows itself and the rooms before it, a
// family group its own folder, the first room, fitted data, and what another group offers in a header.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using Folders = std::set<std::string>;

const Folders groups{"explog", "powers", "circular", "inverse", "divroot", "special", "intpart", "convert", "intdiv"};

/// Folders whose headers a file in `folder` may include.
Folders seen_from(const std::string& folder, bool rare_routine) {
    Folders seen{folder};
    if (folder == "frame/generator" || folder == "frame/object") seen.insert("frame/description");
    if (folder == "frame/object") seen.insert("frame/generator");
    if (groups.contains(folder)) {
        seen.insert(groups.begin(), groups.end());
        seen.insert("fits");
        if (!rare_routine) seen.insert("frame/description");
    }
    return seen;
}

/// The quoted includes of a source.
std::vector<std::string> includes(const fs::path& source) {
    std::vector<std::string> list;
    std::ifstream file(source);
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("#include \"")) list.push_back(line.substr(10, line.rfind('"') - 10));
    return list;
}

struct Source {
    std::string folder;
    fs::path path;
};

/// The sources of the folders that have arrows to keep.
std::vector<Source> sources() {
    Folders folders = groups;
    folders.insert({"frame", "frame/description", "frame/generator", "frame/object"});
    std::vector<Source> list;
    for (const std::string& folder : folders) {
        const fs::path path = fs::path(TUVO_SOURCES) / folder;
        if (!fs::exists(path)) continue;
        for (const fs::directory_entry& entry : fs::directory_iterator(path))
            if (entry.path().extension() == ".cpp" || entry.path().extension() == ".hpp")
                list.push_back({folder, entry.path()});
    }
    return list;
}

TEST(Rooms, EachFileIncludesOnlyWhatItsRoomMaySee) {
    int seen_files = 0, seen_arrows = 0;
    for (const Source& source : sources()) {
        ++seen_files;
        EXPECT_NE(source.folder, "frame") << source.path << " is in no room";
        const bool rare_routine = source.path.stem().string().ends_with("_rare") && source.path.extension() == ".cpp";
        const Folders allowed = seen_from(source.folder, rare_routine);
        for (const std::string& include : includes(source.path)) {
            ++seen_arrows;
            if (rare_routine && include == "frame/description/rare.hpp") continue;
            EXPECT_TRUE(allowed.contains(fs::path(include).parent_path().string()))
                << source.path << " must not include " << include;
        }
    }
    EXPECT_GT(seen_files, 60);
    EXPECT_GT(seen_arrows, 100);
}

}  // namespace
