// Editing the dynamic symbol table of an ELF64 shared library.
#include "ElfSymbols.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace orvix::host {

namespace {

bool ReadFile(const std::string& path, std::vector<char>& data) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

bool WriteFile(const std::string& path, const std::vector<char>& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
    return static_cast<bool>(out.flush());
}

bool Inside(const std::vector<char>& data, Elf64_Off offset, Elf64_Xword size) {
    return offset <= data.size() && size <= data.size() - offset;
}

// The dynamic symbol table and its string table; false when the file has none or they do not fit.
bool FindDynamicSymbols(std::vector<char>& data, Elf64_Shdr& symbols, Elf64_Shdr& strings) {
    Elf64_Ehdr header;
    memcpy(&header, data.data(), sizeof(header));
    if (header.e_shentsize != sizeof(Elf64_Shdr) ||
        !Inside(data, header.e_shoff, static_cast<Elf64_Xword>(header.e_shnum) * sizeof(Elf64_Shdr))) {
        return false;
    }
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    memcpy(sections.data(), data.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    for (const auto& section : sections) {
        if (section.sh_type != SHT_DYNSYM || section.sh_link >= sections.size()) {
            continue;
        }
        symbols = section;
        strings = sections[section.sh_link];
        return section.sh_entsize == sizeof(Elf64_Sym) && Inside(data, symbols.sh_offset, symbols.sh_size) &&
               Inside(data, strings.sh_offset, strings.sh_size);
    }
    return false;
}

}  // namespace

bool RemoveDynamicSymbols(const std::string& path, const std::set<std::string>& names,
                          std::set<std::string>& removed, std::string& error) {
    std::vector<char> data;
    if (!ReadFile(path, data)) {
        error = "cannot read " + path;
        return false;
    }
    if (data.size() < sizeof(Elf64_Ehdr) || memcmp(data.data(), ELFMAG, SELFMAG) != 0 ||
        data[EI_CLASS] != ELFCLASS64 || data[EI_DATA] != ELFDATA2LSB) {
        error = path + " is not a 64-bit little-endian ELF file";
        return false;
    }
    Elf64_Shdr symbols{};
    Elf64_Shdr strings{};
    if (!FindDynamicSymbols(data, symbols, strings)) {
        error = path + " has no usable dynamic symbol table";
        return false;
    }
    for (Elf64_Xword offset = 0; offset + sizeof(Elf64_Sym) <= symbols.sh_size; offset += sizeof(Elf64_Sym)) {
        Elf64_Sym symbol;
        memcpy(&symbol, data.data() + symbols.sh_offset + offset, sizeof(symbol));
        if (symbol.st_name >= strings.sh_size || symbol.st_shndx == SHN_UNDEF ||
            ELF64_ST_TYPE(symbol.st_info) != STT_FUNC) {
            continue;
        }
        const char* name = data.data() + strings.sh_offset + symbol.st_name;
        std::string text(name, strnlen(name, strings.sh_size - symbol.st_name));
        if (names.count(text) == 0) {
            continue;
        }
        symbol.st_info = ELF64_ST_INFO(STB_LOCAL, STT_FUNC);
        symbol.st_value = 0;
        memcpy(data.data() + symbols.sh_offset + offset, &symbol, sizeof(symbol));
        removed.insert(text);
    }
    if (!WriteFile(path, data)) {
        error = "cannot write " + path;
        return false;
    }
    return true;
}

}  // namespace orvix::host
