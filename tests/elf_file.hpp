// Reads what the tests need of a 64-bit ELF file.
#pragma once

#include <elf.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tuvo {

class ElfFile {
public:
    struct Symbol : Elf64_Sym {
        std::string name;
    };

    /// Throws std::runtime_error if there is no such file or it is not ELF.
    explicit ElfFile(const std::string& path);

    std::span<const Elf64_Phdr> segments() const;
    std::span<const Elf64_Shdr> sections() const;
    std::string_view name(const Elf64_Shdr& section) const;
    /// The section of that name, or null.
    const Elf64_Shdr* find(std::string_view name) const;
    /// Contents of a section as an array; empty if there is none of that name.
    template <typename Entry>
    std::span<const Entry> entries(std::string_view name) const {
        const Elf64_Shdr* section = find(name);
        if (!section || section->sh_type == SHT_NOBITS) return {};
        return {reinterpret_cast<const Entry*>(bytes_.data() + section->sh_offset), section->sh_size / sizeof(Entry)};
    }
    /// Symbols of ".dynsym" or ".symtab", without the null symbol.
    std::vector<Symbol> symbols(std::string_view table) const;

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
    const Elf64_Ehdr& header() const { return *reinterpret_cast<const Elf64_Ehdr*>(bytes_.data()); }
};

}  // namespace tuvo
