#include "tests/elf_file.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tuvo {

ElfFile::ElfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (!bytes_.starts_with(ELFMAG)) throw std::runtime_error("no ELF file: " + path);
}

std::span<const Elf64_Phdr> ElfFile::segments() const {
    return {reinterpret_cast<const Elf64_Phdr*>(bytes_.data() + header().e_phoff), header().e_phnum};
}

std::span<const Elf64_Shdr> ElfFile::sections() const {
    return {reinterpret_cast<const Elf64_Shdr*>(bytes_.data() + header().e_shoff), header().e_shnum};
}

std::string_view ElfFile::name(const Elf64_Shdr& section) const {
    return bytes_.data() + sections()[header().e_shstrndx].sh_offset + section.sh_name;
}

const Elf64_Shdr* ElfFile::find(std::string_view wanted) const {
    for (const Elf64_Shdr& section : sections())
        if (name(section) == wanted) return &section;
    return nullptr;
}

std::vector<ElfFile::Symbol> ElfFile::symbols(std::string_view table) const {
    std::vector<Symbol> result;
    const std::span<const Elf64_Sym> entries = this->entries<Elf64_Sym>(table);
    if (entries.empty()) return result;
    const char* strings = bytes_.data() + sections()[find(table)->sh_link].sh_offset;
    for (const Elf64_Sym& entry : entries.subspan(1)) result.push_back({{entry}, strings + entry.st_name});
    return result;
}

}  // namespace tuvo
