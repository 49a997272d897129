// The installed packages, used as a program outside the tree uses them.
#include <gtest/gtest.h>

#include "tests/command.hpp"

namespace tuvo {
namespace {

class Package : public testing::Test {
protected:
    static void SetUpTestSuite() {
        folder = new TemporaryFolder;
        installed = run_command(folder->path, "'" TUVO_CMAKE "' --install '" TUVO_BUILD "' --prefix installed");
    }
    static void TearDownTestSuite() { delete folder; }
    void SetUp() override { ASSERT_EQ(installed.status, 0) << installed.out; }

    static CommandResult run(const std::string& command) { return run_command(folder->path, command); }

    static TemporaryFolder* folder;
    static CommandResult installed;
};
TemporaryFolder* Package::folder;
CommandResult Package::installed;

TEST_F(Package, ProgramsInThreeLanguagesCallVariants) {
    const CommandResult built = run("'" TUVO_CMAKE "' -S '" TUVO_EXAMPLE "' -B example -DCMAKE_PREFIX_PATH=\"$PWD/installed\""
                                    " && '" TUVO_CMAKE "' --build example");
    ASSERT_EQ(built.status, 0) << built.out;
    EXPECT_EQ(built.out.find("warning"), std::string::npos) << built.out;
    const std::size_t bitcode = built.out.find("built-ins: ") + 11;
    EXPECT_TRUE(std::filesystem::exists(built.out.substr(bitcode, built.out.find('\n', bitcode) - bitcode))) << built.out;
    const struct {
        const char *program, *variant;
    } cases[] = {{"loop_c", "_ZGVcN8v_expf"}, {"loop_cpp", "_ZGVcN4v_log"}, {"loop_f90", "_ZGVcN8v_log10f"}};
    for (const auto& [program, variant] : cases) {
        const CommandResult code = run(std::string("objdump -d example/") + program + " | grep call");
        EXPECT_NE(code.out.find(std::string("<") + variant), std::string::npos) << program;
        const CommandResult ran = run(std::string("./example/") + program);
        EXPECT_EQ(ran.status, 0) << ran.out;
        EXPECT_NE(ran.out.find(" 0 of 4096 differ"), std::string::npos) << ran.out;
    }
}

TEST_F(Package, PkgConfigTellsWhatACompilerNeeds) {
    const CommandResult ran = run("export PKG_CONFIG_PATH=\"$PWD/$(dirname \"$(find installed -name tuvo.pc)\")\";"
                                  "gcc -O3 -mavx -fno-math-errno '" TUVO_EXAMPLE "/loop.c' -o program"
                                  " $(pkg-config --cflags --libs tuvo-vector tuvo) -lm &&"
                                  "LD_LIBRARY_PATH=\"$PKG_CONFIG_PATH/..\" ./program");
    EXPECT_EQ(ran.status, 0) << ran.out;
}

TEST_F(Package, HeadersSayWhichOptionIsMissing) {
    for (const std::string header : {"simd", "kernels"}) {
        const CommandResult compiled =
            run("printf '#include <math.h>\\n#include <tuvo/" + header + ".h>\\n' | gcc -mno-avx -fsyntax-only -Iinstalled/include -xc -");
        EXPECT_NE(compiled.status, 0);
        EXPECT_NE(compiled.out.find("tuvo/" + header + ".h: the kernels need AVX; compile with -mavx"), std::string::npos)
            << compiled.out;
    }
    for (const std::string language : {"c -std=c99", "c -std=gnu17", "c++ -std=c++17", "c++ -std=gnu++20"}) {
        const CommandResult compiled = run("printf '#include <math.h>\\n#include <tuvo/kernels.h>\\n#include <tuvo/simd.h>\\n' |"
                                           "gcc -mavx -Wall -Wextra -pedantic -Werror -fsyntax-only -Iinstalled/include -x" + language + " -");
        EXPECT_EQ(compiled.status, 0) << language << "\n" << compiled.out;
    }
}

TEST_F(Package, AMissingObjectIsNamed) {
    const CommandResult ran = run("mkdir -p alone && cp -L \"$(find installed -name libtuvo-vector.so.1)\" alone &&"
                                  "printf 'int main(void) { return 0; }' | gcc -xc - -o alone/program -Wl,--no-as-needed"
                                  " -Lalone -l:libtuvo-vector.so.1 -Wl,--unresolved-symbols=ignore-all && LD_LIBRARY_PATH=alone ./alone/program");
    EXPECT_NE(ran.status, 0);
    EXPECT_NE(ran.out.find("__ocl_tuvo_e9.so.3.5"), std::string::npos) << ran.out;
}

TEST_F(Package, TheArchiveIsWholeAndTheSameEachTime) {
    const CommandResult packed = run("'" TUVO_PACK "' '" TUVO_BUILD "' once/tuvo.tar.xz && sleep 1.1 && umask 077 &&"
                                     "'" TUVO_PACK "' '" TUVO_BUILD "' again/tuvo.tar.xz && cmp once/tuvo.tar.xz again/tuvo.tar.xz &&"
                                     "mkdir unpacked && tar -C unpacked --strip-components=1 -xf once/tuvo.tar.xz");
    ASSERT_EQ(packed.status, 0) << packed.out;
    const CommandResult sums = run("cd unpacked && sha256sum --quiet -c SHA256SUMS && find . -type f | wc -l && wc -l < SHA256SUMS");
    EXPECT_EQ(sums.status, 0) << sums.out;
    EXPECT_EQ(std::stoi(sums.out), std::stoi(sums.out.substr(sums.out.find('\n'))) + 1) << "files without a checksum";
    for (const std::string part : {"__ocl_tuvo_e9.so.3.5", "__ocl_tuvo_e9.so.debug", "exports.json", "exports.ll", "tuvo-builtins.bc", "libtuvo-vector.so.1",
                                   "kernels.h", "simd.h", "simd.f90", "tuvoConfig.cmake", "tuvo.pc", "README.md"})
        EXPECT_NE(run("find unpacked -name '" + part + "'").out, "") << part;
#ifdef TUVO_CLIENT
    write_text(folder->path / "k.cl", "kernel void k(global const float4* x, global float4* y) { y[0] = log(x[0]); }");
    const CommandResult ran = run("'" TUVO_CLIENT "' run k.cl k --size 1 list:f32:1,1,1,1 out:f32:-:4 --library"
                                  " \"$(find unpacked -name '*.so.3.5')\" --builtins \"$(find unpacked -name tuvo-builtins.bc)\"");
    EXPECT_EQ(ran.status, 0) << ran.out;
    EXPECT_NE(ran.out.find('0'), std::string::npos) << ran.out;
#endif
}

}  // namespace
}  // namespace tuvo
