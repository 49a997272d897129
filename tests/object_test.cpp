// The file that is installed: what it exports, asks of the loader, and lets be written; and what instructions it holds.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "frame/description/families.hpp"
#include "tests/elf_file.hpp"

namespace tuvo {
namespace {

const ElfFile& object() {
    static const ElfFile file(TUVO_LIBRARY);
    return file;
}

const ElfFile& debug_object() {
    static const ElfFile file(TUVO_DEBUG_FILE);
    return file;
}

std::multimap<std::int64_t, std::uint64_t> dynamic_tags() {
    std::multimap<std::int64_t, std::uint64_t> tags;
    for (const Elf64_Dyn& entry : object().entries<Elf64_Dyn>(".dynamic")) tags.emplace(entry.d_tag, entry.d_un.d_val);
    return tags;
}

/// The only segment of that type with these flags, or null.
const Elf64_Phdr* segment(std::uint32_t type, std::uint32_t flags) {
    const Elf64_Phdr* found = nullptr;
    for (const Elf64_Phdr& s : object().segments())
        if (s.p_type == type && (s.p_flags & flags) == flags) {
            EXPECT_FALSE(found) << "two segments of type " << type;
            found = &s;
        }
    return found;
}

bool within(const Elf64_Phdr& outer, std::uint64_t address, std::uint64_t size) {
    return address >= outer.p_vaddr && address + size <= outer.p_vaddr + outer.p_memsz;
}

TEST(Object, ExportsTheOperationTableAndNothingElse) {
    std::set<std::string> expected, exported, in_manifest;
    for (const Family& family : families())
        for (int width : widths) expected.insert(export_name(family, width));
    const Elf64_Phdr* code = segment(PT_LOAD, PF_X);
    ASSERT_TRUE(code);
    for (const ElfFile::Symbol& symbol : object().symbols(".dynsym")) {
        exported.insert(symbol.name);
        EXPECT_EQ(ELF64_ST_TYPE(symbol.st_info), STT_FUNC) << symbol.name;
        EXPECT_EQ(ELF64_ST_BIND(symbol.st_info), STB_GLOBAL) << symbol.name;
        EXPECT_EQ(ELF64_ST_VISIBILITY(symbol.st_other), STV_DEFAULT) << symbol.name;
        EXPECT_TRUE(symbol.st_shndx != SHN_UNDEF && symbol.st_size > 0) << symbol.name;
        EXPECT_TRUE(within(*code, symbol.st_value, symbol.st_size)) << symbol.name;
    }
    std::ifstream file(TUVO_MANIFEST);
    const nlohmann::json manifest = nlohmann::json::parse(file);
    for (const auto& entry : manifest.at("exports")) in_manifest.insert(entry.at("symbol"));
    EXPECT_EQ(exported, expected);
    EXPECT_EQ(in_manifest, expected);
    EXPECT_EQ(object().symbols(".dynsym").size(), expected.size());
}

TEST(Object, AsksNothingOfTheLoaderButRelocations) {
    static const std::set<std::int64_t> allowed{DT_SONAME,  DT_GNU_HASH,  DT_STRTAB, DT_SYMTAB,  DT_STRSZ,
                                                DT_SYMENT,  DT_RELA,      DT_RELASZ, DT_RELAENT, DT_FLAGS,
                                                DT_FLAGS_1, DT_RELACOUNT, DT_NULL};
    const auto tags = dynamic_tags();
    for (const auto& [tag, value] : tags) EXPECT_TRUE(allowed.contains(tag)) << "dynamic tag " << std::hex << tag;
    EXPECT_EQ(tags.find(DT_FLAGS)->second, std::uint64_t{DF_BIND_NOW});
    EXPECT_EQ(tags.find(DT_FLAGS_1)->second, std::uint64_t{DF_1_NOW});
    const char* strings = object().entries<char>(".dynstr").data();
    EXPECT_EQ(strings + tags.find(DT_SONAME)->second, soname);
    for (const Elf64_Phdr& s : object().segments()) {
        EXPECT_NE(s.p_type, std::uint32_t{PT_TLS});
        EXPECT_NE(s.p_type, std::uint32_t{PT_INTERP});
    }
    EXPECT_EQ(segment(PT_GNU_STACK, 0)->p_flags & PF_X, 0u);
}

// The one thing that is written is the table of pointers to blocks, and only by the loader.
TEST(Object, HoldsNoWritableDataButBlockPointers) {
    std::size_t blocks = 0;
    for (const Family& family : families()) blocks += family.blocks;
    const Elf64_Phdr* relro = segment(PT_GNU_RELRO, 0);
    const Elf64_Phdr* writable = segment(PT_LOAD, PF_W);
    const Elf64_Phdr* constants = nullptr;
    const Elf64_Shdr* rodata = object().find(".rodata");
    ASSERT_TRUE(relro && writable && rodata);
    EXPECT_EQ(writable->p_flags & PF_X, 0u);
    EXPECT_EQ(writable->p_filesz, writable->p_memsz);
    EXPECT_TRUE(within(*relro, writable->p_vaddr, writable->p_memsz));
    EXPECT_EQ((relro->p_vaddr + relro->p_memsz) % 4096, 0u) << "the loader protects whole pages only";
    for (const Elf64_Phdr& s : object().segments())
        if (s.p_type == PT_LOAD && within(s, rodata->sh_addr, rodata->sh_size)) constants = &s;
    ASSERT_TRUE(constants);
    EXPECT_EQ(constants->p_flags, std::uint32_t{PF_R});

    const auto relocations = object().entries<Elf64_Rela>(".rela.dyn");
    std::set<std::uint64_t> slots, targets;
    for (const Elf64_Rela& relocation : relocations) {
        EXPECT_EQ(ELF64_R_TYPE(relocation.r_info), std::uint32_t{R_X86_64_RELATIVE});
        EXPECT_TRUE(within(*relro, relocation.r_offset, 8));
        EXPECT_TRUE(within(*constants, relocation.r_addend, 64));
        EXPECT_EQ(relocation.r_addend % 64, 0);
        slots.insert(relocation.r_offset);
        targets.insert(relocation.r_addend);
    }
    EXPECT_EQ(relocations.size(), blocks);
    EXPECT_EQ(slots.size(), blocks);
    EXPECT_EQ(targets.size(), blocks);
    EXPECT_EQ(object().find(".data.rel.ro")->sh_size, 8 * blocks);
    EXPECT_EQ(dynamic_tags().find(DT_RELACOUNT)->second, blocks);
}

/// The checksum by which a debugger knows a debug file to be the right one.
std::uint32_t checksum(const std::string& bytes) {
    std::uint32_t sum = ~0u;
    for (unsigned char byte : bytes) {
        sum ^= byte;
        for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (sum & 1 ? 0xedb88320 : 0);
    }
    return ~sum;
}

TEST(Object, DebugInformationIsApart) {
    for (const Elf64_Shdr& section : object().sections()) {
        EXPECT_NE(section.sh_type, std::uint32_t{SHT_SYMTAB});
        EXPECT_FALSE(object().name(section).starts_with(".debug")) << object().name(section);
    }
    const auto link = object().entries<char>(".gnu_debuglink");
    ASSERT_GT(link.size(), debug_name.size() + 4);
    EXPECT_EQ(link.data(), debug_name);
    std::uint32_t sum;
    std::memcpy(&sum, link.data() + link.size() - 4, 4);
    EXPECT_EQ(sum, checksum(debug_object().bytes()));

    EXPECT_TRUE(debug_object().find(".debug_info"));
    EXPECT_TRUE(debug_object().find(".debug_line"));
    std::set<std::string> names;
    for (const ElfFile::Symbol& symbol : debug_object().symbols(".symtab")) names.insert(symbol.name);
    for (const DescribedFamily& described : described_families())
        if (described.family->has_rare) {
            EXPECT_TRUE(names.contains(described.family->rare_routine)) << described.family->rare_routine;
        }
}

/// Assembles the text and returns what the check of the instructions says, or "" if it finds nothing wrong.
std::string check_text(const std::string& text) {
    std::string folder = (std::filesystem::temp_directory_path() / ("tuvo-object-" + std::string(6, 'X'))).string();
    if (!mkdtemp(folder.data())) throw std::runtime_error("can't make a temporary folder");
    std::ofstream(folder + "/text.s") << "    .intel_syntax noprefix\n    .text\n" << text;
    const std::string command = "cd " + folder +
                                " && " TUVO_CXX " -c text.s -o text.o && " TUVO_OBJDUMP
                                " -d -w -M intel --no-show-raw-insn text.o | " TUVO_CHECK_OBJECT " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer;
    while (std::fgets(buffer.data(), buffer.size(), pipe)) output += buffer.data();
    EXPECT_EQ(pclose(pipe) == 0, output.empty()) << output;
    std::filesystem::remove_all(folder);
    return output;
}

std::string function(const std::string& name, const std::string& body) {
    return "    .type " + name + ", @function\n" + name + ":\n    " + body + "\n    ret\n";
}
const std::string kernel = std::string(export_prefix) + "fabsf8", rare_kernel = std::string(export_prefix) + "logf8";

TEST(InstructionCheck, AllowsWhatKernelsAndRoutinesAreMadeOf) {
    EXPECT_EQ(check_text(function(kernel,
                                  "vandps ymm0, ymm0, [rax]; vpand xmm1, xmm2, xmm3; vmovd eax, xmm1; "
                                  "vpermilps ymm0, ymm0, ymm1") +
                         function(rare_kernel,
                                  "vaddps ymm0, ymm0, ymm1; vmovups [rsp - 40], ymm8; bt r12d, ebx; "
                                  "vzeroupper; lea rdi, [rsp]; call logf_rare") +
                         function("logf_rare",
                                  "movaps xmm1, xmm0; mulss xmm1, xmm0; cvtss2sd xmm0, xmm1; "
                                  "fld st(0); fstp st(0); imul rax, rcx; andpd xmm0, [rip]; "
                                  "bsr eax, ecx; cmovne eax, ecx; call lgamma") +
                         function("lgamma", "sqrtsd xmm0, xmm1; nop")),
              "");
}

TEST(InstructionCheck, FindsEachForbiddenInstruction) {
    // Forbidden in kernels and in rare routines.
    const char* const anywhere[] = {"vfmadd213ps xmm0, xmm1, xmm2",
                                    "vfnmsub231sd xmm0, xmm1, xmm2",
                                    "vcvtph2ps ymm0, xmm1",
                                    "vpaddd ymm0, ymm1, ymm2",
                                    "vpbroadcastd xmm0, xmm1",
                                    "vbroadcastss xmm0, xmm1",
                                    "vinserti128 ymm0, ymm1, xmm2, 1",
                                    "vpsllvd xmm0, xmm1, xmm2",
                                    "vgatherdps xmm0, [rax + xmm1], xmm2",
                                    "vpermpd ymm0, ymm1, 1",
                                    "vaddps zmm0, zmm1, zmm2",
                                    "vaddps xmm16, xmm1, xmm2",
                                    "vaddps ymm0{k1}, ymm1, ymm2",
                                    "kmovw eax, k1",
                                    "andn eax, ecx, edx",
                                    "bextr eax, ecx, edx",
                                    "tzcnt eax, ecx",
                                    "lzcnt eax, ecx",
                                    "popcnt eax, ecx",
                                    "mulx rax, rcx, rdx",
                                    "shlx eax, ecx, edx",
                                    "rdtsc",
                                    "cpuid",
                                    "xgetbv",
                                    "syscall",
                                    "int 0x80",
                                    "ldmxcsr [rsp]",
                                    "stmxcsr [rsp]",
                                    "vldmxcsr [rsp]",
                                    "vstmxcsr [rsp]",
                                    "mov rax, fs:[0]",
                                    "rep movsb",
                                    "lock inc dword ptr [rax]",
                                    "vmovntps [rax], ymm0",
                                    "vmaskmovps ymm0, ymm1, [rax]",
                                    "jmp rax",
                                    "call rax",
                                    "ud2"};
    const char* const in_kernels[] = {"addps xmm0, xmm1",    "pxor xmm0, xmm0",    "movaps xmm0, xmm1",
                                      "movd eax, xmm0",      "fld st(0)",          "std",
                                      "cvttss2si eax, xmm0", "vmovdqa ymm0, ymm1", "emms",
                                      "call logf_rare"};
    const char* const in_routines[] = {"vaddss xmm0, xmm1, xmm2", "vzeroupper",
                                       "addps xmm0, xmm1",        "mulpd xmm0, xmm1",
                                       "haddps xmm0, xmm1",       "roundss xmm0, xmm1, 0",
                                       "pmulld xmm0, xmm1",       "blendvps xmm0, xmm1, xmm0",
                                       "movups xmm0, [rax]",      "paddd xmm0, xmm1",
                                       "unpcklps xmm0, xmm1",     "movq mm0, rax"};
    std::string text = function("logf_rare", ""), expected;
    const auto place = [&](const std::string& name, const char* instruction) {
        text += function(name, instruction);
        expected += name + "\n";
    };
    int number = 0;
    for (const char* instruction : anywhere) place("routine" + std::to_string(++number), instruction);
    for (const char* instruction : in_routines) place("routine" + std::to_string(++number), instruction);
    // As many kernels without a rare path as there are names for.
    std::vector<std::string> names;
    for (const Family& family : families())
        for (int width : widths)
            if (!family.has_rare) names.push_back(export_name(family, width));
    number = 0;
    for (const char* instruction : anywhere) place(names.at(number++), instruction);
    for (const char* instruction : in_kernels) place(names.at(number++), instruction);

    // One complaint about each, which begins with the function's name.
    std::istringstream output(check_text(text));
    std::string found, line;
    while (std::getline(output, line)) found += line.substr(0, line.find(':')) + "\n";
    EXPECT_EQ(found, expected);
}

TEST(InstructionCheck, FindsBrokenRarePaths) {
    const std::string routine = function("logf_rare", ""), other = function(kernel, "");
    const std::string good = "vzeroupper; call logf_rare";
    EXPECT_EQ(check_text(routine + other + function(rare_kernel, good)), "");
    for (const char* bad : {"vaddps xmm0, xmm0, xmm1",                  // no call
                            "call logf_rare; call logf_rare",           // two
                            "call logf_rare + 1",                       // of something else
                            "vaddps ymm0, ymm0, ymm1; call logf_rare",  // with upper halves in use
                            "vzeroupper; vmovups ymm0, [rsp]; call logf_rare"})
        EXPECT_NE(check_text(routine + other + function(rare_kernel, bad)), "") << bad;
    EXPECT_NE(check_text(routine + other + function(rare_kernel, "call " + kernel)), "");
    EXPECT_NE(check_text(routine + other + function(rare_kernel, good + "; jmp " + kernel)), "");
    EXPECT_NE(check_text(routine + function(std::string(export_prefix) + "logf5", good)), "");  // no such export
    EXPECT_NE(check_text(""), "");  // nothing to check is no success
}

}  // namespace
}  // namespace tuvo
