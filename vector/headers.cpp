#include "vector/headers.hpp"

#include <algorithm>
#include <set>
#include <sstream>

namespace tuvo {
namespace {

constexpr const char* simd_introduction = R"(/* The functions of <math.h>, for loops that a compiler vectorises.
 *
 *     #include <math.h>
 *     #include <tuvo/simd.h>
 *
 *     for (int i = 0; i < n; i++) y[i] = expf(x[i]);
 *
 * With -O3 -fno-math-errno and -mavx or a later set of instructions, GCC calls vector variants of these functions, which
 * libtuvo-vector.so defines; nothing else of -ffast-math is needed. Elements that don't fill a register may be left to the
 * C library's scalar function, whose last bits can differ. Functions that store through a pointer have variants, too,
 * which compilers use where OpenMP's declarations are honoured: with -fopenmp, or with -fopenmp-simd -DTUVO_OPENMP_SIMD.
 *
 * Variants assume round-to-nearest and masked exceptions. They never set errno, nor signgam.
 */
#ifndef TUVO_SIMD_H
#define TUVO_SIMD_H

#include <math.h>

#if !defined(__x86_64__)
#error "tuvo/simd.h: the kernels are for x86-64 processors"
#elif !defined(__AVX__)
#error "tuvo/simd.h: the kernels need AVX; compile with -mavx, or with -march= of a processor that has it"
#elif !defined(__GNUC__) || defined(__clang__)
#warning "tuvo/simd.h: only GCC calls vector variants of functions declared so; the loops stay scalar"
#endif

#ifdef __cplusplus
#define TUVO_NOTHROW noexcept(true)
extern "C" {
#else
#define TUVO_NOTHROW
#endif
#if defined(__GNUC__) && !defined(__clang__)
#define TUVO_SIMD __attribute__((__simd__("notinbranch")))
#else
#define TUVO_SIMD
#endif

)";

constexpr const char* simd_end = R"(
#undef TUVO_SIMD
#undef TUVO_NOTHROW
#ifdef __cplusplus
}
#endif

#endif
)";

/// Whether the processor has an instruction for it, which a compiler puts in the call's place and vectorises by itself.
bool is_instruction(const Family& family) {
    constexpr std::string_view operations[] = {"ceil", "copysign", "fabs", "floor", "nearbyint", "rint", "sqrt", "trunc"};
    return std::ranges::find(operations, family.operation) != std::end(operations);
}

/// Declarations of functions that store through pointers, each pointer named by a clause: it moves on from lane to lane.
void write_storing_function(std::ostream& out, const CFunction& function) {
    std::string prototype = c_prototype(function), clauses;
    if (function.stores_result) {
        prototype.insert(prototype.find("*,") + 1, " p");
        clauses = " linear(p)";
    }
    prototype.insert(prototype.size() - 1, " q");
    out << "#pragma omp declare simd notinbranch" << clauses << " linear(q)\nextern " << prototype << " TUVO_NOTHROW;\n";
}

/// The functions that the same C libraries declare.
void write_functions(std::ostream& out, const std::vector<CFunction>& functions, Declared declared) {
    std::ostringstream storing;
    for (const CFunction& function : functions) {
        if (function.declared != declared || is_instruction(*function.family)) continue;
        if (function.pure())
            out << "extern " << c_prototype(function) << " TUVO_NOTHROW TUVO_SIMD;\n";
        else
            write_storing_function(storing, function);
    }
    if (!storing.str().empty())
        out << "#if defined(_OPENMP) || defined(TUVO_OPENMP_SIMD)\n" << storing.str() << "#endif\n";
}

constexpr const char* kernels_introduction = R"(/* The kernels, as C functions on GNU vector types.
 *
 * A name is __ocl_tuvo_e9_, the operation, f for float lanes, the number of lanes, and the tier. An argument or a result of
 * up to 256 bits is a vector; one of more is that many vectors of 256 bits, as arguments. Kernels whose result takes more
 * than one register have no counterpart in C and are left out. Three lanes have the room of four. Where arguments or the
 * result would take more than four registers they are structures, passed in memory.
 *
 * Kernels preserve more than C's convention asks for: those with vectors leave ymm8 to ymm15, rsi and rdi as they are.
 * Nothing that is aligned is asked for, neither of pointers nor of the stack. Two results of one lane share a vector of two
 * lanes, or the low and the high half of an integer.
 */
#ifndef TUVO_KERNELS_H
#define TUVO_KERNELS_H

#if !defined(__x86_64__) || !defined(__AVX__)
#error "tuvo/kernels.h: the kernels need AVX; compile with -mavx, or with -march= of a processor that has it"
#endif

#ifdef __cplusplus
extern "C" {
#endif

)";

bool in_general_register(Lane lane, int width) { return width == 1 && !is_floating(lane); }

/// "f32x4", "i64x16".
std::string lanes_name(Lane lane, int lanes) {
    const bool is_unsigned = lane == Lane::u32 || lane == Lane::u64;
    std::string name(1, is_floating(lane) ? 'f' : is_unsigned ? 'u' : 'i');
    name.append(std::to_string(8 * lane_size(lane))).append("x").append(std::to_string(lanes));
    return name;
}

/// The types that a header declares on its way.
struct Types {
    std::set<std::string> vectors, structures;

    std::string vector(Lane lane, int lanes) {
        const std::string name = "tuvo_" + lanes_name(lane, lanes);
        vectors.insert("typedef " + std::string(c_type(lane)) + " " + name + " __attribute__((__vector_size__(" +
                       std::to_string(lanes * lane_size(lane)) + ")));\n");
        return name;
    }
    std::string structure(Lane lane, int lanes) {
        const std::string name = "tuvo_" + lanes_name(lane, lanes) + "_memory";
        structures.insert("typedef struct { " + std::string(c_type(lane)) + " lane[" + std::to_string(lanes) + "]; } " +
                          name + ";\n");
        return name;
    }
};

/// A value's type where it is one register, or the type of each of its parts.
std::string part_type(Types& types, Lane lane, int width) {
    if (width == 1) return std::string(c_type(lane));
    return types.vector(lane, std::min(physical_lanes(width), 32 / lane_size(lane)));
}

/// The declaration of a kernel, or nothing where C has no form for it.
std::string kernel_prototype(Types& types, const Family& family, int width) {
    const int lanes = physical_lanes(width);
    const bool memory = call_form(family, width) == Form::memory, two = family.results.size() == 2;
    std::string parameters, result;
    const auto add = [&](const std::string& text) { parameters += (parameters.empty() ? "" : ", ") + text; };
    if (memory) {
        if (two) {
            // Both results lie one behind the other.
            result = types.structure(family.results[0], 2 * lanes);
        } else {
            result = types.structure(family.results[0], lanes);
        }
        for (Lane lane : family.arguments) add(types.structure(lane, lanes));
    } else {
        if (two) {
            if (width != 1) return "";
            result = is_floating(family.results[0]) ? types.vector(family.results[0], 2) : "unsigned long long";
        } else {
            if (part_bits(family.results[0], width).size() > 1 && !in_general_register(family.results[0], width)) return "";
            result = part_type(types, family.results[0], width);
        }
        for (Lane lane : family.arguments)
            for (std::size_t k = 0; k < part_bits(lane, width).size(); ++k) add(part_type(types, lane, width));
    }
    if (family.out) add(std::string(c_type(*family.out)) + "*");
    return result + " " + export_name(family, width) + "(" + parameters + ");\n";
}

}  // namespace

void write_simd_header(std::ostream& out, const std::vector<CFunction>& functions) {
    out << simd_introduction;
    write_functions(out, functions, Declared::c99);
    out << "\n#ifdef __USE_GNU\n";
    write_functions(out, functions, Declared::gnu);
    out << "#endif\n\n#if defined(__GLIBC_USE) && __GLIBC_USE(IEC_60559_FUNCS_EXT_C23)\n";
    write_functions(out, functions, Declared::c23);
    out << "#endif\n" << simd_end;
}

void write_fortran_include(std::ostream& out, const std::vector<CFunction>& functions) {
    out << "! For loops over Fortran's intrinsic functions: include this file where declarations stand, and compile with\n"
           "! gfortran -O3 -mavx, or a later set of instructions. The names are those of C's functions behind them.\n";
    for (const CFunction& function : functions)
        if (function.declared == Declared::c99 && function.pure() && !is_instruction(*function.family))
            out << "!GCC$ builtin (" << function.name << ") attributes simd (notinbranch)\n";
}

void write_loops(std::ostream& out, const std::vector<CFunction>& functions) {
    for (const CFunction& function : functions) {
        const Family& family = *function.family;
        const bool one_type = family.results[0] == family.element && family.arguments.back() == family.element;
        if (function.declared == Declared::c23 || !function.pure() || is_instruction(family)) continue;
        if (!one_type || family.arguments.size() > 2) continue;
        out << (family.arguments.size() == 1 ? "LOOP(" : "LOOP_OF_TWO(") << c_type(family.element) << ", " << function.name
            << ", " << family.operation << "l)\n";
    }
}

void write_kernels_header(std::ostream& out, const std::vector<const Family*>& families) {
    Types types;
    std::string prototypes;
    for (const Family* family : families)
        for (int width : widths) prototypes += kernel_prototype(types, *family, width);
    out << kernels_introduction;
    for (const std::set<std::string>& declared : {types.vectors, types.structures}) {
        for (const std::string& type : declared) out << type;
        out << "\n";
    }
    out << prototypes << "\n#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
}

}  // namespace tuvo
