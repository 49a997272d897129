// A real OpenCL runtime bound to the library, and the host program that checks its built-ins.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

struct Result {
    int status;
    std::string text;
};

class Runtime : public testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("tuvo-opencl-test-" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    Result run(const std::string& command) const {
        const int status = std::system(("cd '" + folder.string() + "' && " + command + " > said 2>&1").c_str());
        std::ifstream file(folder / "said");
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, {std::istreambuf_iterator<char>(file), {}}};
    }
    Result host(const std::string& words) const { return run("'" TUVO_WITH "' '" TUVO_OPENCL_HOST "' " + words); }

    fs::path folder;
};

/// Some of every group; the command runs all.
TEST_F(Runtime, BuiltInsGiveWhatTheKernelsGive) {
    const Result result = host(
        "check --filter "
        "'^(logf|exp|powf|cbrt|sinf|sincosf_native|asinf|atan2|tanhf|divf_native|rsqrt|erff|tgamma|fractf|"
        "remquo|ldexpf|cvtfptoi32rtesatf|cvti64tofprte)$'");
    EXPECT_EQ(result.status, 0) << result.text;
    EXPECT_NE(result.text.find("logf: agrees at all widths"), std::string::npos) << result.text;
    EXPECT_NE(result.text.find("remquo: agrees at all widths"), std::string::npos) << result.text;
    EXPECT_NE(result.text.find(", 0 wrong"), std::string::npos) << result.text;
}

/// A kernel in front of the library's that returns its argument.
TEST_F(Runtime, AWrongKernelIsNoticed) {
    std::ofstream(folder / "wrong.s") << ".globl __ocl_tuvo_e9_logf8\n__ocl_tuvo_e9_logf8: ret\n"
                                         ".section .note.GNU-stack,\"\",@progbits\n";
    ASSERT_EQ(run("'" TUVO_CXX "' -shared -nostdlib wrong.s -o wrong.so").status, 0);
    const Result result =
        run("LD_PRELOAD=\"$PWD/wrong.so\" '" TUVO_WITH "' '" TUVO_OPENCL_HOST "' check --filter '^logf$'");
    EXPECT_EQ(result.status, 1) << result.text;
    EXPECT_NE(result.text.find("logf: WRONG, width "), std::string::npos) << result.text;
}

TEST_F(Runtime, ProgramsCompileOrSayWhyNot) {
    std::ofstream(folder / "sound.cl") << "kernel void k(global float4* x) { x[0] = half_log(x[1]); }";
    std::ofstream(folder / "broken.cl") << "kernel void k(global float4* x) { x[0] = ; }";
    const Result sound = host("compile sound.cl");
    EXPECT_EQ(sound.status, 0) << sound.text;
    EXPECT_NE(sound.text.find("sound.cl: compiles"), std::string::npos) << sound.text;
    const Result broken = host("compile broken.cl");
    EXPECT_EQ(broken.status, 2) << broken.text;
    EXPECT_NE(broken.text.find("expected expression"), std::string::npos) << broken.text;
}

}  // namespace
