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

/// The room that a source or header is in, by its path from the top: "frame/generator" for all below that folder.
std::string room_of(const fs::path& path) {
    auto part = path.begin();
    const fs::path first = *part++;
    const bool below_a_room = first == "frame" && part != path.end() && std::next(part) != path.end();
    return below_a_room ? (first / *part).string() : first.string();
}

/// The sources of the folders that have arrows to keep, by their paths from the top.
std::vector<fs::path> sources() {
    Folders folders = groups;
    folders.insert("frame");
    std::vector<fs::path> list;
    for (const std::string& folder : folders) {
        if (!fs::exists(fs::path(TUVO_SOURCES) / folder)) continue;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(fs::path(TUVO_SOURCES) / folder))
            if (entry.path().extension() == ".cpp" || entry.path().extension() == ".hpp")
                list.push_back(entry.path().lexically_relative(TUVO_SOURCES));
    }
    return list;
}

TEST(Rooms, EachFileIncludesOnlyWhatItsRoomMaySee) {
    int seen_files = 0, seen_arrows = 0;
    for (const fs::path& source : sources()) {
        ++seen_files;
        const std::string room = room_of(source);
        EXPECT_NE(room, "frame") << source << " is in no room";
        const bool rare_routine = source.string().ends_with("_rare.cpp");
        const Folders allowed = seen_from(room, rare_routine);
        for (const std::string& include : includes(fs::path(TUVO_SOURCES) / source)) {
            ++seen_arrows;
            if (rare_routine && include == "frame/description/rare.hpp") continue;
            EXPECT_TRUE(allowed.contains(room_of(include))) << source << " must not include " << include;
        }
    }
    EXPECT_GT(seen_files, 60);
    EXPECT_GT(seen_arrows, 100);
}

// Between two groups, arrows run one way.
TEST(Rooms, NoTwoGroupsIncludeEachOther) {
    std::set<std::pair<std::string, std::string>> arrows;
    for (const fs::path& source : sources())
        for (const std::string& include : includes(fs::path(TUVO_SOURCES) / source))
            if (room_of(source) != room_of(include)) arrows.insert({room_of(source), room_of(include)});
    for (const auto& [from, to] : arrows) EXPECT_FALSE(arrows.contains({to, from})) << from << " and " << to;
}

}  // namespace
