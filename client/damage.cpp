#include "client/damage.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>

#include <llvm/ADT/StringExtras.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/IR/Verifier.h>
#include <llvm/IRReader/IRReader.h>
#include <llvm/Object/ELF.h>
#include <llvm/Support/MemoryBuffer.h>
#include <llvm/Support/SHA256.h>
#include <llvm/Support/SourceMgr.h>

#include "client/failure.hpp"

namespace tuvo::client {
namespace {

namespace fs = std::filesystem;

/// Runs the function in a child process, without a word. Returns whether it returned true within some seconds.
template <typename Function>
bool succeeds_in_child(Function function) {
    const pid_t child = fork();
    if (child < 0) throw Failure(std::string("cannot start a process: ") + std::strerror(errno));
    if (child == 0) {
        for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGALRM}) std::signal(signal, SIG_DFL);
        const rlimit no_core{0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        // LLVM leaves by exit() on some damage: what the parent has yet to write or to remove is not the child's.
        std::atexit([] { _exit(1); });
        alarm(20);
        _exit(function() ? 0 : 1);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::unique_ptr<llvm::MemoryBuffer> read(const fs::path& file, const std::string& what, const std::string& remedy) {
    auto bytes = llvm::MemoryBuffer::getFile(file.string(), /*IsText=*/false, /*RequiresNullTerminator=*/true,
                                             /*IsVolatile=*/true);
    if (!bytes) {
        // The system's own words: "No such file or directory".
        const std::string why = bytes.getError().default_error_condition().message();
        throw Failure("cannot read the " + what + " '" + file.string() + "': " + why + "; " + remedy);
    }
    return std::move(*bytes);
}

/// What the checksums beside the file say of it, if they name it.
std::optional<std::string> recorded_checksum(const fs::path& file) {
    constexpr std::size_t digits = 64;
    const fs::path list = file.parent_path() / checksums_name;
    std::ifstream lines(list);
    for (std::string line; std::getline(lines, line);) {
        const auto is_digit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
        if (line.size() <= digits + 2 || !std::all_of(line.begin(), line.begin() + digits, is_digit) ||
            line.compare(digits, 2, "  ") != 0 || lines.eof())
            throw Failure("the checksums '" + list.string() + "' are damaged; build or install the library again");
        if (line.substr(digits + 2) == file.filename().string()) return line.substr(0, digits);
    }
    return std::nullopt;
}

/// Whether the bytes are what the checksum beside the file says. Throws `Failure` if they aren't; false if there is none.
bool matches_checksum(const fs::path& file, const llvm::MemoryBuffer& bytes, const std::string& what) {
    const std::optional<std::string> recorded = recorded_checksum(file);
    if (!recorded) return false;
    llvm::SHA256 sum;
    sum.update(bytes.getBuffer());
    if (llvm::toHex(sum.final(), /*LowerCase=*/true) != *recorded)
        throw Failure("the " + what + " '" + file.string() + "' differs from its checksum in '" +
                      (file.parent_path() / checksums_name).string() + "'; build or install the library again");
    return true;
}

/// Whether the headers describe a shared object for x86-64 that is all there. The table of sections stands at the end
/// of the file, so none that was cut short passes; segments are to hold the sections as the sections say.
bool has_sound_headers(llvm::StringRef bytes) {
    using Elf = llvm::object::ELF64LE;
    const auto quietly = [](auto expected) {
        using Value = std::remove_reference_t<decltype(*expected)>;
        if (expected) return std::optional<Value>(*expected);
        llvm::consumeError(expected.takeError());
        return std::optional<Value>();
    };
    const auto within = [](std::uint64_t first, std::uint64_t size, std::uint64_t outer, std::uint64_t room) {
        return first >= outer && size <= room && first - outer <= room - size;
    };
    if (bytes.size() < sizeof(Elf::Ehdr)) return false;
    const auto file = quietly(llvm::object::ELFFile<Elf>::create(bytes));
    if (!file) return false;
    const Elf::Ehdr& header = file->getHeader();
    if (!header.checkMagic() || header.getFileClass() != llvm::ELF::ELFCLASS64 || header.e_type != llvm::ELF::ET_DYN ||
        header.e_machine != llvm::ELF::EM_X86_64 || header.e_phentsize != sizeof(Elf::Phdr))
        return false;
    const auto segments = quietly(file->program_headers());
    const auto sections = quietly(file->sections());
    if (!segments || !sections || sections->empty()) return false;
    std::uint64_t loaded_to = 0;
    for (const Elf::Phdr& segment : *segments) {
        if (!within(segment.p_offset, segment.p_filesz, 0, bytes.size()) || segment.p_filesz > segment.p_memsz) return false;
        if (segment.p_type != llvm::ELF::PT_LOAD) continue;
        if (segment.p_vaddr < loaded_to || segment.p_vaddr + segment.p_memsz < segment.p_vaddr) return false;
        loaded_to = segment.p_vaddr + segment.p_memsz;
    }
    return llvm::all_of(*sections, [&](const Elf::Shdr& section) {
        if (section.sh_type == llvm::ELF::SHT_NOBITS || section.sh_type == llvm::ELF::SHT_NULL) return true;
        if (!within(section.sh_offset, section.sh_size, 0, bytes.size())) return false;
        if (!(section.sh_flags & llvm::ELF::SHF_ALLOC)) return true;
        return llvm::any_of(*segments, [&](const Elf::Phdr& segment) {
            return segment.p_type == llvm::ELF::PT_LOAD && segment.p_flags & llvm::ELF::PF_R &&
                   (segment.p_flags & llvm::ELF::PF_X || !(section.sh_flags & llvm::ELF::SHF_EXECINSTR)) &&
                   (segment.p_flags & llvm::ELF::PF_W || !(section.sh_flags & llvm::ELF::SHF_WRITE)) &&
                   within(section.sh_offset, section.sh_size, segment.p_offset, segment.p_filesz) &&
                   section.sh_addr - segment.p_vaddr == section.sh_offset - segment.p_offset;
        });
    });
}

}  // namespace

void check_library(const fs::path& library) {
    const auto bytes = read(library, "library", "build it, or name it with --library");
    if (matches_checksum(library, *bytes, "library")) return;
    const std::string path = fs::absolute(library).string();
    const auto loads = [&] {
        void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        // Some damage shows when the process ends and the loader takes back what it has mapped.
        return handle && dlclose(handle) == 0;
    };
    if (!has_sound_headers(bytes->getBuffer()) || !succeeds_in_child(loads))
        throw Failure("cannot load the library '" + library.string() +
                      "': it is damaged, or no shared object for x86-64; build it again, or name another with --library");
}

void check_builtins(const fs::path& builtins) {
    const std::string remedy = "build the library, or name them with --builtins";
    const auto bytes = read(builtins, "built-ins", remedy);
    if (matches_checksum(builtins, *bytes, "built-ins")) return;
    // LLVM takes an empty file for a module with nothing in it.
    const bool sound = bytes->getBufferSize() > 0 && succeeds_in_child([&] {
        llvm::LLVMContext context;
        llvm::SMDiagnostic diagnostic;
        const auto module = llvm::parseIR(bytes->getMemBufferRef(), diagnostic, context);
        return module && !llvm::verifyModule(*module);
    });
    if (!sound)
        throw Failure("cannot read the built-ins '" + builtins.string() +
                      "': they are damaged, or no bitcode or text of LLVM " LLVM_VERSION_STRING "; " + remedy);
}

}  // namespace tuvo::client
