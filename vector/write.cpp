// Writes what C, C++ and Fortran programs need beside the library: the vector variants' assembly text and the headers.
//
//     tuvo-write-vector DIRECTORY
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "vector/headers.hpp"
#include "vector/variants.hpp"

namespace {

using namespace tuvo;

template <typename Write>
void write_file(const std::filesystem::path& path, const Write& write) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    write(file);
    if (!file.flush()) throw std::runtime_error("can't write " + path.string());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: tuvo-write-vector DIRECTORY\n";
        return 2;
    }
    try {
        const std::filesystem::path directory = argv[1];
        const std::vector<CFunction> functions = c_functions();
        std::vector<const Family*> built;
        for (const DescribedFamily& described : described_families()) built.push_back(described.family);
        write_file(directory / "variants.s", [&](std::ostream& out) { write_variants(out, variants_of(functions)); });
        write_file(directory / "tuvo/simd.h", [&](std::ostream& out) { write_simd_header(out, functions); });
        write_file(directory / "tuvo/simd.f90", [&](std::ostream& out) { write_fortran_include(out, functions); });
        write_file(directory / "loops.inc", [&](std::ostream& out) { write_loops(out, functions); });
        write_file(directory / "tuvo/kernels.h", [&](std::ostream& out) { write_kernels_header(out, built); });
    } catch (const std::exception& error) {
        std::cerr << "tuvo-write-vector: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
