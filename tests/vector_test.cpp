// Vector variants of C's functions, called as a compiler calls them: GCC vectorises loops over every function for each set
// of registers, and each result is compared with that of the kernel for one value.
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/command.hpp"
#include "vector/variants.hpp"

namespace tuvo {
namespace {


std::string numbered(char letter, std::size_t k) { return std::string(1, letter).append(std::to_string(k)); }

/// A function `loop_NAME` that fills its outputs from its arguments, 64 of each, by the variants alone. The functions go
/// by C's names but aren't the compiler's own, which it would replace by instructions here and there.
void write_loop(std::ostream& out, const CFunction& function) {
    const Family& family = *function.family;
    std::string declared, clauses, parameters, call;
    const auto add = [](std::string& list, const std::string& item) { list += (list.empty() ? "" : ", ") + item; };
    for (std::size_t k = 0; k < family.arguments.size(); ++k) {
        const std::string type(c_type(family.arguments[k])), name = numbered('x', k);
        add(declared, type);
        add(parameters, "const " + type + "* restrict " + name);
        add(call, name + "[i]");
    }
    for (std::size_t k = 0; k < family.outputs().size(); ++k) {
        const std::string type(c_type(family.outputs()[k])), name = numbered('y', k);
        add(parameters, type + "* restrict " + name);
        if (k == 0 && !function.stores_result) continue;
        add(declared, type + "* " + name);
        add(call, name + " + i");
        clauses += " linear(" + name + ")";
    }
    const std::string name = "f_" + function.name;
    out << "#pragma omp declare simd notinbranch" << clauses << "\nextern "
        << (function.stores_result ? std::string_view("void") : c_type(family.results[0])) << " " << name << "(" << declared << ") __asm__(\""
        << function.name << "\") __attribute__((nothrow" << (function.pure() ? ", const" : "") << "));\n"
        << "void loop_" << function.name << "(" << parameters << ") {\n#pragma omp simd\n    for (int i = 0; i < 64; i++) "
        << (function.stores_result ? "" : "y0[i] = ") << name << "(" << call << ");\n}\n";
}

/// A check of that loop against the kernel of width 1, which the program's main calls.
void write_check(std::ostream& out, const CFunction& function) {
    const Family& family = *function.family;
    std::ostringstream arrays;
    std::string prototype, arguments, values, pointers;
    const auto add = [](std::string& list, const std::string& item) { list += (list.empty() ? "" : ", ") + item; };
    for (std::size_t k = 0; k < family.arguments.size(); ++k) {
        const std::string type(c_type(family.arguments[k])), name = numbered('x', k);
        add(prototype, "const " + type + "*");
        arrays << "    " << type << " " << name << "[64];\n    fill(" << name << ", sizeof *" << name << ", "
               << is_floating(family.arguments[k]) << ");\n";
        add(arguments, name);
        add(values, name + "[i]");
    }
    const std::vector<Lane> outputs = family.outputs();
    for (std::size_t k = 0; k < outputs.size(); ++k) {
        const std::string type(c_type(outputs[k])), name = numbered('y', k);
        add(prototype, type + "*");
        arrays << "    " << type << " " << name << "[64];\n";
        add(arguments, name);
    }
    out << "void loop_" << function.name << "(" << prototype << ");\nstatic void check_" << function.name << "(void) {\n"
        << arrays.str() << "    loop_" << function.name << "(" << arguments << ");\n    for (int i = 0; i < 64; i++) {\n";
    if (family.out) out << "        " << c_type(*family.out) << " z1;\n";
    out << "        " << c_type(family.results[0]) << " z0 = " << export_name(family, 1) << "(" << values
        << (family.out ? ", &z1" : "") << ");\n";
    for (std::size_t k = 0; k < outputs.size(); ++k)
        out << "        if (memcmp(&z" << k << ", y" << k << " + i, sizeof z" << k << ")) fail(\"" << function.name << "\", i);\n";
    out << "    }\n}\n";
}

constexpr const char* check_introduction = R"(#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tuvo/kernels.h>
static int failures;
static void fail(const char* name, int i) { printf("%s differs at element %d\n", name, i); failures++; }
/* Numbers of ordinary size, with special ones among them. */
static void fill(void* to, int size, int floating) {
    static const double special[] = {0.0, -0.0, 1.0, -1.0, 1e300, -1e-310, 1.0 / 0.0, -1.0 / 0.0, 0.0 / 0.0};
    for (int i = 0; i < 64; i++) {
        double x = (rand() / (double)RAND_MAX - 0.3) * (i % 3 ? 8 : 0.9);
        if (i % 7 == 3) x = special[rand() % 9];
        float f = (float)x;
        int n = rand() % 40 - 10;
        memcpy((char*)to + i * size, !floating ? (void*)&n : size == 4 ? (void*)&f : (void*)&x, size);
    }
}
)";

/// The vector variants among the names that an object file refers to.
std::set<std::string> variants_called(const std::filesystem::path& folder, const std::string& object) {
    std::istringstream lines(run_command(folder, "nm -u " + object).out);
    std::set<std::string> names;
    for (std::string mark, name; lines >> mark >> name;)
        if (name.starts_with("_ZGV")) names.insert(name);
    return names;
}

class VectorVariants : public testing::TestWithParam<RegisterSet> {};

TEST_P(VectorVariants, GiveTheKernelsValues) {
    const RegisterSet set = GetParam();
    if (set.letter == 'e' && !__builtin_cpu_supports("avx512f"))
        GTEST_SKIP() << "this processor has no registers of 512 bits";
    if (set.letter == 'd' && !__builtin_cpu_supports("avx2")) GTEST_SKIP() << "this processor has no AVX2";
    const TemporaryFolder folder;
    const std::vector<CFunction> functions = c_functions();
    std::ostringstream loops, checks;
    checks << check_introduction;
    for (const CFunction& function : functions) {
        write_loop(loops, function);
        write_check(checks, function);
    }
    checks << "int main(void) {\n    srand(1);\n    for (int round = 0; round < 20; round++) {\n";
    for (const CFunction& function : functions) checks << "        check_" << function.name << "();\n";
    checks << "    }\n    return failures != 0;\n}\n";
    write_text(folder.path / "loops.c", loops.str());
    write_text(folder.path / "checks.c", checks.str());

    const std::string option = set.letter == 'b'   ? "-msse4.1 -mno-avx"
                               : set.letter == 'c' ? "-mavx -mno-avx2"
                               : set.letter == 'd' ? "-mavx2 -mno-avx512f"
                                                   : "-mavx512f -mprefer-vector-width=512";
    const CommandResult compiled =
        run_command(folder.path, "gcc -O3 -fopenmp-simd -Wall -Werror -c loops.c " + option +
                                     " && gcc -O1 -mavx -Wall -Wextra -pedantic -Werror -c checks.c -I '" TUVO_VECTOR_HEADERS
                                     "' && gcc -o program checks.o loops.o '" TUVO_VECTOR_LIBRARY "' '" TUVO_LIBRARY
                                     "' -Wl,-rpath," TUVO_LIBRARY_FOLDER);
    ASSERT_EQ(compiled.status, 0) << compiled.out;
    // Without AVX2 the compiler doesn't take eight lanes where something is stored by integer addresses.
    const std::set<std::string> called = variants_called(folder.path, "loops.o");
    for (const Variant& variant : variants_of(functions)) {
        if (variant.set.letter != set.letter || (set.letter == 'c' && !variant.function->pure())) continue;
        EXPECT_TRUE(called.contains(variant.symbol())) << variant.symbol();
    }
    const CommandResult ran = run_command(folder.path, "./program");
    EXPECT_EQ(ran.status, 0) << ran.out;
}

INSTANTIATE_TEST_SUITE_P(Registers, VectorVariants, testing::ValuesIn(register_sets),
                         [](const auto& info) { return std::string(1, info.param.letter); });

}  // namespace
}  // namespace tuvo
