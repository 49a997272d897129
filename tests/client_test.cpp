// The client as its users see it: small OpenCL C programs, run with the library at hand. A test that needs a family
// which the library doesn't have yet is skipped.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;

struct Result {
    int status;
    std::string out, err;
};

std::string read_text(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

template <typename T>
std::vector<T> read_values(const fs::path& path) {
    const std::string bytes = read_text(path);
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

/// Whether the library has the export of that short name: "logf4_half".
bool has_kernel(const std::string& name) {
    static const std::set<std::string> names = [] {
        std::set<std::string> found;
        const auto manifest = nlohmann::json::parse(read_text(TUVO_MANIFEST));
        for (const auto& entry : manifest.at("exports")) found.insert(entry.at("name"));
        return found;
    }();
    return names.contains(name);
}

#define REQUIRE_KERNEL(name) \
    if (!has_kernel(name)) GTEST_SKIP() << "the library has no " << (name)

constexpr std::array widths{1, 2, 3, 4, 8, 16};

/// "float", "float2", ...
std::string vector_name(const std::string& element, int width) {
    return element + (width == 1 ? "" : std::to_string(width));
}

/// The client runs in a folder of its own for each test.
class Client : public testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("tuvo-client-test-" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    /// Runs the client with these words. What `words` names with --library takes precedence.
    Result client(const std::string& words) const {
        const std::string command = "cd '" + folder.string() + "' && '" TUVO_CLIENT "' --library '" TUVO_LIBRARY "' " +
                                    words + " > stdout 2> stderr";
        const int status = std::system(command.c_str());
        const int exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return {exit_status, read_text(folder / "stdout"), read_text(folder / "stderr")};
    }

    /// Runs the kernel "k" of `source`, which must succeed.
    Result run(const std::string& source, const std::string& words) const {
        write_text(folder / "p.cl", source);
        const Result result = client("run p.cl k " + words);
        EXPECT_EQ(result.status, 0) << source << "\n" << result.err;
        return result;
    }

    /// The numbers that a run prints for its argument out:TYPE:-:COUNT.
    std::vector<double> printed(const std::string& source, const std::string& words) const {
        std::istringstream lines(run(source, words).out);
        std::vector<double> values;
        for (std::string line; std::getline(lines, line);) values.push_back(std::strtod(line.c_str(), nullptr));
        return values;
    }

    /// Expects exit status 2 and a message that holds `part`.
    void expect_rejected(const std::string& words, const std::string& part) const {
        const Result result = client(words);
        EXPECT_EQ(result.status, 2) << words;
        EXPECT_NE(result.err.find(part), std::string::npos) << words << "\nsays: " << result.err << "\nnot: " << part;
    }

    fs::path folder;
};

// ---- Values --------------------------------------------------------------------------------------------------------

double ulps(float computed, double exact) {
    const double ulp = std::ldexp(1.0, std::max(std::ilogb(exact), -126) - 23);
    return std::fabs(static_cast<double>(computed) - exact) / ulp;
}

/// Arrays are packed, also at width 3: a kernel's fourth lane would spoil the next element.
std::string packed_program(const std::string& call, int width) {
    const std::string lanes = std::to_string(width);
    std::string body = "float v = x[i]; y[i] = " + call;
    if (width > 1) body = "float" + lanes + " v = vload" + lanes + "(i, x); vstore" + lanes + "(" + call + ", i, y)";
    return "kernel void k(global const float* x, global float* y) { size_t i = get_global_id(0); " + body + "; }";
}

TEST_F(Client, LogarithmsOfEveryWidthAndTierAgreeWithTheScalarLibrary) {
    struct Tier {
        std::string prefix, suffix;
        double most_ulps;  // the short tiers promise little: this tells a logarithm from anything else
    };
    std::vector<float> x(48);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = std::ldexp(1.0f + 0.02f * static_cast<float>(i), static_cast<int>(i) - 60);
    write_text(folder / "x", std::string(reinterpret_cast<const char*>(x.data()), x.size() * sizeof(float)));
    for (const Tier& tier : {Tier{"", "", 4.0}, Tier{"native_", "_native", 8192.0}, Tier{"half_", "_half", 8192.0}})
        for (int width : widths) {
            REQUIRE_KERNEL("log2f" + std::to_string(width) + tier.suffix);
            run(packed_program(tier.prefix + "log2(v)", width),
                "--size " + std::to_string(48 / width) + " in:f32:x out:f32:y:48");
            const std::vector<float> y = read_values<float>(folder / "y");
            ASSERT_EQ(y.size(), x.size());
            for (std::size_t i = 0; i < x.size(); ++i)
                EXPECT_LE(ulps(y[i], std::log2(static_cast<double>(x[i]))), tier.most_ulps)
                    << tier.prefix << "log2 of " << x[i] << " at width " << width;
        }
}

/// Each lane holds a value of its own, so that parts in a wrong order show, in registers as well as in memory.
TEST_F(Client, EveryLaneCrossesTheCallInItsPlace) {
    for (const std::string element : {"float", "double"})
        for (int width : widths) {
            const bool wide = element == "double";
            const std::string suffix = (wide ? std::string() : std::string("f")) + std::to_string(width);
            REQUIRE_KERNEL("copysign" + suffix);
            REQUIRE_KERNEL("fabs" + suffix);
            const int room = width == 3 ? 4 : width;
            std::string x, y;
            std::vector<double> expected;
            for (int i = 0; i < room; ++i) {
                const int sign = i * 7 % 3 == 0 ? -1 : 1;
                x += std::to_string(i % 2 == 0 ? i + 1 : -i - 1) + (i + 1 < room ? "," : "");
                y += std::to_string(sign * (100 + i)) + (i + 1 < room ? "," : "");
                if (i < width) expected.push_back(sign * (i + 1) + 1000.0 * (100 + i));
            }
            const std::string type = "global " + vector_name(element, width) + "* ";
            const std::string name = wide ? "f64:" : "f32:";
            const std::string program = "kernel void k(" + type + "x, " + type + "y, " + type +
                                        "z) {\n"
                                        "    *z = copysign(*x, *y) + 1000 * fabs(*y);\n}";
            const std::string room_words = " out:" + name + "-:" + std::to_string(room);
            std::vector<double> values =
                printed(program, "--size 1 list:" + name + x + " list:" + name + y + room_words);
            values.resize(expected.size());
            EXPECT_EQ(values, expected) << type;
        }
}

TEST_F(Client, IntegerLanesCrossInVectorAndGeneralRegisters) {
    REQUIRE_KERNEL("nanf4");
    REQUIRE_KERNEL("nan1");
    run("kernel void k(uint4 a, ulong b, global float4* x, global double* y) { *x = nan(a); *y = nan(b); }",
        "--size 1 u32:1,2,3,0x12345 u64:0x123456789 out:f32:x:4 out:f64:y:1");
    const std::vector<std::uint32_t> expected{0x7fc00001, 0x7fc00002, 0x7fc00003, 0x7fc12345};
    EXPECT_EQ(read_values<std::uint32_t>(folder / "x"), expected);
    EXPECT_EQ(read_values<std::uint64_t>(folder / "y"), std::vector<std::uint64_t>{0x7ff8000123456789});
}

TEST_F(Client, OutPointersReachEveryAddressSpace) {
    REQUIRE_KERNEL("frexpf4");
    REQUIRE_KERNEL("modf1");
    const std::string program =
        "kernel void k(float4 x, double y, local double* z, global float* out) {\n"
        "    int4 e; vstore4(frexp(x, &e), 0, out);\n"
        "    out[4] = e.x; out[5] = e.y; out[6] = e.z; out[7] = e.w;\n"
        "    out[8] = modf(y, z); out[9] = *z;\n}";
    const std::vector<double> expected{0.5, 0.75, -0.625, 0.5, 1, 2, 4, -1, 0.25, 6};
    EXPECT_EQ(printed(program, "--size 1 f32:1,3,-10,0.25 f64:6.25 local:f64:1 out:f32:-:10"), expected);
}

TEST_F(Client, ConversionsKeepTheirRoundingAndSaturation) {
    REQUIRE_KERNEL("cvtfptoi32rtnsatf2");
    REQUIRE_KERNEL("cvtfptoi32rtznosatf1");
    REQUIRE_KERNEL("cvtu32tofprtef1");
    REQUIRE_KERNEL("cvtfp64tofp32rtp1");
    const std::string program =
        "kernel void k(float2 x, uint n, double d, global double* out) {\n"
        "    int2 i = convert_int2_sat_rtn(x); out[0] = i.x; out[1] = i.y;\n"
        "    out[2] = convert_int(x.x); out[3] = convert_float(n);\n"
        "    out[4] = convert_float_rtp(d);\n}";
    const std::vector<double> expected{-3, 2147483647, -2, 4294967296, 1 + 0x1p-23};
    EXPECT_EQ(printed(program, "--size 1 f32:-2.5,1e20 u32:0xffffffff f64:1.00000001 out:f64:-:5"), expected);
}

TEST_F(Client, ScalarsBesideVectorsStandForAllLanes) {
    REQUIRE_KERNEL("fmaxf4");
    const std::vector<double> expected{2, 2, 3, 4};
    EXPECT_EQ(printed("kernel void k(float4 x, global float4* y) { *y = fmax(x, 2.0f); }",
                      "--size 1 f32:1,2,3,4 out:f32:-:4"),
              expected);
}

TEST_F(Client, IntegerDivisionByZeroDoesNotTrap) {
    REQUIRE_KERNEL("idiv1");
    REQUIRE_KERNEL("urem4");
    const std::vector<double> values = printed(
        "kernel void k(int n, int d, uint4 u, uint4 v, global int* out) {\n"
        "    uint4 r = u % v; out[0] = n / d; out[1] = -17 / n; out[2] = r.x; out[3] = r.w;\n}",
        "--size 1 i32:5 i32:0 u32:7,8,9,0xffffffff u32:4,0,5,10 out:i32:-:4");
    ASSERT_EQ(values.size(), 4u);
    EXPECT_EQ(std::vector<double>(values.begin() + 1, values.end()), (std::vector<double>{-3, 3, 5}));
}

/// Nothing of this calls the library.
TEST_F(Client, PlainBuiltInsAreExpandedInPlace) {
    const std::string program =
        "kernel void k(char4 c, uint u, float f, global float* out) {\n"
        "    size_t i = get_global_id(0); barrier(CLK_LOCAL_MEM_FENCE);\n"
        "    out += 8 * (i + get_local_id(0) + get_global_id(1));\n"
        "    vstore4(convert_float4(c), 0, out);\n"
        "    out[4] = get_global_size(0); out[5] = convert_short(u);\n"
        "    out[6] = min(f, 2.0f) + max(u, 4000000000u) + clamp(c, (char)-1, (char)1).x;\n"
        "    out[7] = mad(f, 2.0f, 1.0f);\n}";
    const std::vector<double> row{-3, 2, 127, -128, 2, -1, 4000000000.0, 7};
    std::vector<double> expected = row;
    expected.insert(expected.end(), row.begin(), row.end());
    EXPECT_EQ(printed(program, "--size 2 i8:-3,2,127,-128 u32:65535 f32:3 out:f32:-:16"), expected);
}

/// Explicit parts are passed alike by code for any processor, vectors of 512 bits or not.
TEST_F(Client, CodeForNewerProcessorsCallsTheSameWay) {
    if (!__builtin_cpu_supports("avx512f")) GTEST_SKIP() << "this processor has no AVX-512";
    REQUIRE_KERNEL("fabsf16");
    REQUIRE_KERNEL("copysign16");
    const std::string program =
        "kernel void k(float16 x, double16 y, global double16* z) {\n"
        "    float16 a = fabs(x);\n"
        "    *z = copysign((double16)(a.s0, a.s7, a.s8, a.sf, y.lo, y.hi.hi), y);\n}";
    const std::string words =
        "--size 1 f32:-1,2,-3,4,-5,6,-7,8,-9,10,-11,12,-13,14,-15,16 "
        "f64:1,-1,-2,3,4,-5,-6,7,8,9,-10,11,-12,-13,14,-15 out:f64:-:16";
    const std::vector<double> expected{1, -8, -9, 16, 1, -1, -2, 3, 4, 5, -6, 7, -12, -13, 14, -15};
    EXPECT_EQ(printed(program, words), expected);
    EXPECT_EQ(printed(program, words + " --features +avx512f,+avx512vl,+avx2,+fma"), expected);
}

/// A lane has the same value at every width: work-items that run eight at a time give what they give one by one. With a
/// number of them that no vector divides, an id in int, a branch, a helper, private memory and a division.
TEST_F(Client, WorkItemsRunSeveralAtATime) {
    REQUIRE_KERNEL("logf8");
    REQUIRE_KERNEL("expf8");
    REQUIRE_KERNEL("sinf8");
    const std::string program =
        "float helper(float x, int n) { return n % 3 == 0 ? exp(-x) : sqrt(x); }\n"
        "kernel void k(global const float* x, int n, global float* y) {\n"
        "    int i = get_global_id(0); float t[2] = {log(x[i]), sin(x[i])};\n"
        "    y[i] = t[0] * n + t[1] + helper(x[i], n) + get_global_size(0);\n"
        "    if (x[i] > 0.5f) y[i] += convert_float_rtz(convert_int_rte(100 * x[i]) / n);\n}";
    std::string values;
    for (int i = 0; i < 1003; ++i) values += (i ? "," : "") + std::to_string(0.001 * i - 0.1);
    const std::string words = "--size 1003 list:f32:" + values + " i32:6 out:f32:out:1003";
    run(program, words);
    const auto several = read_text(folder / "out");
    run(program, words + " --no-vectorize");
    EXPECT_EQ(read_text(folder / "out"), several);
    const auto calls = [&](const std::string& options) {
        write_text(folder / "p.cl", program);
        return client("ir p.cl " + options).out;
    };
    EXPECT_NE(calls("").find("call <8 x float> @__ocl_tuvo_e9_logf8("), std::string::npos);
    EXPECT_EQ(calls("--no-vectorize").find("__ocl_tuvo_e9_logf8("), std::string::npos);
}

/// Where work-items share local memory or count with atomic operations, they run one after the other.
TEST_F(Client, WorkItemsThatShareRunInOrder) {
    REQUIRE_KERNEL("logf8");
    const std::string program =
        "kernel void k(local float* shared, global const float* x, global float* y) {\n"
        "    size_t i = get_global_id(0); shared[0] = log(x[i]); barrier(CLK_LOCAL_MEM_FENCE); y[i] = shared[0];\n}";
    write_text(folder / "p.cl", program);
    EXPECT_EQ(client("ir p.cl").out.find("@__ocl_tuvo_e9_logf8("), std::string::npos);
    std::string ones = "1";
    for (int i = 1; i < 100; ++i) ones += ",1";
    EXPECT_EQ(printed(program, "--size 100 local:f32:1 list:f32:" + ones + " out:f32:-:100"),
              std::vector<double>(100, 0.0));
}

TEST_F(Client, TiersBindToTheirOwnKernels) {
    REQUIRE_KERNEL("logf8_rm");
    write_text(folder / "p.cl",
               "kernel void k(global float8* x) {\n"
               "    x[0] = log(x[0]) + native_log(x[0]) + half_log(x[0]) + log1p(x[0]);\n}");
    auto called = [&](const std::string& words, const std::string& kernel) {
        const Result result = client("ir p.cl " + words);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out.find("@__ocl_tuvo_e9_" + kernel + "(") != std::string::npos;
    };
    EXPECT_TRUE(called("", "logf8"));
    EXPECT_TRUE(called("", "logf8_native"));
    EXPECT_TRUE(called("", "logf8_half"));
    EXPECT_FALSE(called("", "logf8_rm"));
    EXPECT_FALSE(called("--relaxed-math", "logf8"));
    EXPECT_TRUE(called("--relaxed-math", "logf8_rm"));
    EXPECT_TRUE(called("--relaxed-math", "log1pf8")) << "the only tiers of log1p are the default and native";
}

// ---- Messages ------------------------------------------------------------------------------------------------------

TEST_F(Client, UnfitProgramsAreRejectedBeforeAnythingRuns) {
    write_text(folder / "syntax.cl", "kernel void k(global float* x) { x[0] = ; }\n");
    expect_rejected("run syntax.cl k --size 1 out:f32:y:1", "syntax.cl:1:41: error: expected expression");

    write_text(folder / "missing.cl",
               "kernel void k(global float4* x) {\n"
               "    x[0] = -x[0];\n"
               "    x[1].x = dot(x[0], x[0]);\n}\n");
    expect_rejected("run missing.cl k --size 1 out:f32:y:8",
                    "\nmissing.cl:3:14: error: nothing defines the function 'dot(float vector[4], float vector[4])'");
    expect_rejected("ir missing.cl", "'dot(");

    write_text(folder / "poor.ll", "; none\n");
    write_text(folder / "p.cl", "kernel void k(global float* x) { x[0] = half_log2(x[0]); }\n");
    expect_rejected("run p.cl k --size 1 out:f32:y:1 --builtins poor.ll",
                    "no kernel for the built-in 'half_log2(float)' (family log2f_half)");
    EXPECT_FALSE(fs::exists(folder / "y"));
}

TEST_F(Client, UnfitWordsAreRejectedWithAHint) {
    write_text(folder / "p.cl", "kernel void k(global float4* x, float2 f) { x[get_global_id(0)].xy = f; }\n");
    write_text(folder / "broken.ll", "{");
    const std::string kernel = "run p.cl k --size 1 ";
    expect_rejected(kernel + "out:f32:y:4", "kernel 'k' takes 2 arguments (float4*, float2), but 1 are given");
    expect_rejected(kernel + "out:f64:y:4 f32:1,2",
                    "parameter 1 of kernel 'k' is 'float4*', and this is memory of f64 x 4");
    expect_rejected(kernel + "out:f32:y:4 f32:1",
                    "parameter 2 of kernel 'k' is 'float2', and this is a value of f32 x 1");
    expect_rejected(kernel + "local:f32:4 f32:1,2", "this is local memory");
    expect_rejected(kernel + "in:f32:absent f32:1,2", "cannot read 'absent': No such file or directory");
    expect_rejected(kernel + "in:f32:. f32:1,2", "cannot read '.': Is a directory");
    expect_rejected(kernel + "out:f32:y:4 f32:1,two", "'two' is not a value of type f32; --help");
    expect_rejected(kernel + "list:u8:256 f32:1,2", "'256' is not a value of type u8");
    expect_rejected(kernel + "out:f32:y:0 f32:1,2", "'0' is not a number of values");
    expect_rejected(kernel + "out:f32:absent/y:4 f32:1,2", "cannot write 'absent/y': No such file or directory");
    expect_rejected("run p.cl other --size 1", "the program has no kernel 'other'; it has: k");
    expect_rejected("run absent.cl k --size 1", "cannot read the program 'absent.cl': No such file or directory");
    expect_rejected(kernel + "--library absent.so", "cannot read the library 'absent.so': No such file or directory");
    expect_rejected(kernel + "--library p.cl", "cannot load the library");
    expect_rejected(kernel + "--builtins absent.bc", "cannot read the built-ins 'absent.bc'");
    expect_rejected(kernel + "--builtins broken.ll", "cannot read the built-ins 'broken.ll'");
    expect_rejected(kernel + "--clang absent-clang", "cannot run 'absent-clang': No such file or directory");
    expect_rejected("run p.cl k --size many", "--size: Value many not in range 1 to 1099511627776");
    expect_rejected("run p.cl k --size", "--size: 1 required");
    expect_rejected(kernel + "--wide", "The following argument was not expected: --wide");
    expect_rejected("walk", "A subcommand is required");
    expect_rejected("demo entropy absent", "cannot read 'absent'");
}

/// Accesses of one element, of a vector, of local memory; in front of and behind the memory; the first byte that is too far.
TEST_F(Client, AccessesOutOfBoundsEndTheRun) {
    write_text(folder / "p.cl",
               "kernel void one(global float* x, global float* y) { size_t i = get_global_id(0); y[i] = log(x[i]); }\n"
               "kernel void four(global float4* x, global float* y) { size_t i = get_global_id(0); vstore4(x[i], i, y); }\n"
               "kernel void before(global float* x, global float* y) { y[0] = x[-1024]; }\n"
               "kernel void group(local float* x, global float* y) { size_t i = get_global_id(0); x[i] = i; y[0] = x[i]; }\n"
               "kernel void cast(global float* x, global float* y) { y[0] = ((global float4*)x)[0].w; }\n"
               "kernel void three(global float3* x, global float3* y) { y[0] = sqrt(x[0]); }\n");
    expect_rejected("run p.cl one --size 100000 list:f32:1,2,3,4 out:f32:y:100000",
                    "kernel 'one' reads byte 16 of argument 1, 'list:f32:1,2,3,4', which has 16 bytes; give it more");
    expect_rejected("run p.cl one --size 4 list:f32:1,2,3,4 out:f32:y:3", "writes byte 12 of argument 2, 'out:f32:y:3'");
    expect_rejected("run p.cl four --size 1 list:f32:1,2,3 out:f32:y:8", "reads byte 12 of argument 1");
    expect_rejected("run p.cl four --size 2 list:f32:1,2,3,4,5,6,7,8 out:f32:y:5", "writes byte 20 of argument 2");
    expect_rejected("run p.cl before --size 1 list:f32:1 out:f32:y:1", "reads byte -4096 of argument 1");
    expect_rejected("run p.cl group --size 6 local:f32:5 out:f32:y:1", "byte 20 of argument 1, 'local:f32:5'");
    // Five floats end at a page's end, and so don't lie where a float4 would.
    EXPECT_EQ(client("run p.cl cast --size 1 list:f32:1,2,3,4,5 out:f32:-:1").out, "4\n");
    EXPECT_EQ(client("run p.cl three --size 1 list:f32:1,4,9 out:f32:-:3").out, "1\n2\n3\n");
}

/// Cut short anywhere or with bytes changed: refused in one line, or, where a byte means nothing, run like the whole one.
TEST_F(Client, DamagedFilesAreRefused) {
    REQUIRE_KERNEL("fabsf4");
    write_text(folder / "p.cl", "kernel void k(global float4* x) { x[0] = fabs(x[0]) + 1; }\n");
    const auto expect_one_line = [&](const std::string& words, const std::string& damage) {
        const Result result = client("run p.cl k --size 1 out:f32:-:4 " + words);
        if (result.status == 0 && result.out == "1\n1\n1\n1\n") return false;
        EXPECT_EQ(result.status, 2) << words << ": " << damage << "\n" << result.out << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << words << ": " << damage << "\n" << result.err;
        return true;
    };
    const fs::path built = fs::path(TUVO_LIBRARY).parent_path();
    const struct {
        const char *name, *option;
        std::size_t step;  // from one changed byte of the header to the next
    } files[] = {{"__ocl_tuvo_e9.so.3.5", "--library ", 7}, {"tuvo-builtins.bc", "--builtins ", 41}};
    const std::string sums = read_text(built / "tuvo.sha256");
    for (const auto& [name, option, step] : files) {
        const std::string words = std::string(option) + name, whole = read_text(built / name);
        const std::size_t size = whole.size();
        for (const std::size_t length :
             {std::size_t{0}, std::size_t{3}, std::size_t{63}, std::size_t{500}, size / 7, size / 2, size - 4097, size - 1}) {
            write_text(folder / name, whole.substr(0, length));
            EXPECT_TRUE(expect_one_line(words, "cut to " + std::to_string(length))) << name << " " << length;
        }
        for (std::size_t at = 0; at < 512; at += step) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(~damaged[at]);
            write_text(folder / name, damaged);
            expect_one_line(words, "byte " + std::to_string(at));
        }
        // A checksum tells of any byte, and of itself.
        write_text(folder / "tuvo.sha256", sums);
        for (const std::size_t at : {size / 3, size / 2, size - 1}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ 1);
            write_text(folder / name, damaged);
            expect_rejected("run p.cl k --size 1 out:f32:-:4 " + words, std::string(name) + "' differs from its checksum");
        }
        write_text(folder / name, whole);
        EXPECT_FALSE(expect_one_line(words, "whole"));
        for (const std::string& list : {sums.substr(0, 40), sums.substr(0, 70), "x" + sums}) {
            write_text(folder / "tuvo.sha256", list);
            expect_rejected("run p.cl k --size 1 out:f32:-:4 " + words, "the checksums 'tuvo.sha256' are damaged");
        }
        fs::remove(folder / "tuvo.sha256");
    }
}

// ---- The demonstrations ---------------------------------------------------------------------------------------------

/// Each compares what it computed with a reference, which decides its exit status.
TEST_F(Client, DemonstrationsAgreeWithTheirReferences) {
    const Result result = client("demo --output pictures");
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    for (const std::string name :
         {"bodies", "cities", "distributions", "entropy", "filter", "options", "picture", "soliton", "tones", "waves"}) {
        std::string text = result.out.substr(result.out.find(name + ":\n"));
        text.erase(text.find("\n\n"));
        if (text.find("left out: the library has no kernel for") != std::string::npos) continue;
        EXPECT_NE(text.find("times as fast\n"), std::string::npos) << text;
        EXPECT_NE(text.find(": agree with the reference;"), std::string::npos) << text;
    }
    expect_rejected(
        "demo walk",
        "there is no demo 'walk'; there are: bodies cities distributions entropy filter options picture soliton tones waves");
}

TEST_F(Client, EntropyOfFilesWithAKnownOne) {
    REQUIRE_KERNEL("log2f16");
    std::string all, lopsided;
    for (int i = 0; i < 3 * 4096; ++i) all += static_cast<char>(i);
    lopsided = std::string(4096, 'a') + std::string(4096, 'b') + std::string(2 * 4096 + 5, 'c');
    const double n = 4.0 * 4096.0 + 5.0;
    const double expected = 2 * 4096 / n * std::log2(n / 4096) + (8192 + 5) / n * std::log2(n / 8197);
    struct Case {
        std::string text;
        double bits;
    };
    for (const Case& file : {Case{all, 8.0}, Case{"x", 0.0}, Case{lopsided, expected}}) {
        write_text(folder / "f", file.text);
        const Result result = client("demo entropy f --output pictures");
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        const std::size_t figure = result.out.find("\nf: ");
        ASSERT_NE(figure, std::string::npos) << result.out;
        EXPECT_NEAR(std::strtod(result.out.c_str() + figure + 4, nullptr), file.bits, 2e-5);
        EXPECT_EQ(read_text(folder / "pictures" / "entropy.png").substr(0, 8), "\x89PNG\r\n\x1a\n");
        fs::remove_all(folder / "pictures");
    }
    // With the natural logarithm in the place of the binary one.
    std::string builtins = read_text(TUVO_GENERATED "/tuvo-builtins.ll");
    for (const auto& [from, to] :
         {std::pair("_log2f16(", "_other("), {"_logf16(", "_log2f16("}, {"_other(", "_logf16("}})
        for (std::size_t at = 0; (at = builtins.find(std::string("@__ocl_tuvo_e9") + from, at)) != std::string::npos;)
            builtins.replace(at + std::strlen("@__ocl_tuvo_e9"), std::strlen(from), to);
    write_text(folder / "wrong.ll", builtins);
    const Result wrong = client("demo entropy f --builtins wrong.ll");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.out.find("entropies: DIFFER from the reference"), std::string::npos) << wrong.out;
    write_text(folder / "f", "");
    expect_rejected("demo entropy f", "'f' is empty");
}

}  // namespace
