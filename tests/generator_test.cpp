// The generator on small made-up descriptions, one for each thing that a description can say, at all widths and bit for
// bit against the interpreter.
#include <gtest/gtest.h>

#include <sstream>

#include "frame/generator/compile.hpp"
#include "frame/generator/emit.hpp"
#include "frame/generator/layout.hpp"
#include "tests/made_up.hpp"

namespace tuvo {
namespace {

constexpr Lane f = Lane::f32, d = Lane::f64, i = Lane::i32, l = Lane::i64;

void expect_right(const std::vector<MadeUp>& families, int calls = 60) {
    std::vector<const MadeUp*> pointers;
    for (const MadeUp& family : families) pointers.push_back(&family);
    const MadeUpLibrary library(pointers);
    std::mt19937_64 random(20);
    for (const MadeUp& family : families)
        for (const std::string& fault : compare_with_interpreter(family, library, calls, random)) ADD_FAILURE() << fault;
}

RawTable counted(Lane lane, int fields, int entries) {
    RawTable table{lane, fields, {}};
    for (int k = 0; k < fields * entries; ++k)
        table.patterns.push_back(lane == f   ? __builtin_bit_cast(std::uint32_t, float(k) + 0.25f)
                                 : lane == d ? __builtin_bit_cast(std::uint64_t, double(k) + 0.125)
                                             : std::uint64_t(k) * 0x01010101u);
    return table;
}

TEST(Generator, ArithmeticOfBothTypes) {
    const auto mixed_f = [](F32 x, F32 y) {
        const F32 q = sqrt(abs(x)) / (y + 1.5f);
        return min(max(q, -3.0f), y) * x - round(y, RoundTo::down);
    };
    const auto mixed_d = [](F64 x, F64 y) {
        const F64 q = sqrt(abs(x)) / (y + 1.5);
        return min(max(q, -3.0), y) * x - round(y, RoundTo::up);
    };
    expect_right({make_up("floats", {f, f}, {f}, {}, false, 1, describe(+mixed_f)),
                  make_up("doubles", {d, d}, {d}, {}, false, 1, describe(+mixed_d)),
                  make_up("pooled", {f, f}, {f}, {}, false, 0, describe(+mixed_f)),
                  make_up("pooled_doubles", {d, d}, {d}, {}, false, 0, describe(+mixed_d))});
}

TEST(Generator, OperandOrderDecidesWhichNanSurvives) {
    expect_right({make_up("left", {f, f}, {f}, {}, false, 0, describe(+[](F32 x, F32 y) { return x + y; })),
                  make_up("right", {f, f}, {f}, {}, false, 0, describe(+[](F32 x, F32 y) { return y * x; })),
                  make_up("minimum", {d, d}, {d}, {}, false, 0, describe(+[](F64 x, F64 y) { return min(y, x); }))}, 200);
}

TEST(Generator, GathersOfSingleValuesPairsAndQuads) {
    const auto offset = [](I32 n, int size, int entries) { return (n & I32(entries - 1)) << __builtin_ctz(unsigned(size)); };
    static const auto index = offset;
    expect_right({
        make_up("gather_f1", {i}, {f}, {}, false, 1, describe(+[](I32 n) { return gather<Type::f32>(table(counted(f, 1, 16), "t"), index(n, 4, 16)); })),
        make_up("gather_f2", {i}, {f, f}, {}, false, 1, describe(+[](I32 n) { return gather_pair<Type::f32>(table(counted(f, 2, 16), "t"), index(n, 8, 16)); })),
        make_up("gather_f4", {f}, {f}, {}, false, 1, describe(+[](F32 x) {
                    const auto v = gather_quad<Type::f32>(table(counted(f, 4, 32), "t"), index(to_i32(x), 16, 32));
                    return (v[0] - v[3]) * (v[1] + x) + v[2];
                })),
        make_up("gather_d1", {d}, {d}, {}, false, 1, describe(+[](F64 x) { return x - gather<Type::f64>(table(counted(d, 1, 16), "t"), index(to_i32(x), 8, 16)); })),
        make_up("gather_d2", {d}, {d, d}, {}, false, 1, describe(+[](F64 x) { return gather_pair<Type::f64>(table(counted(d, 2, 16), "t"), index(high_word(x), 16, 16)); })),
        make_up("gather_d4", {d}, {d}, {}, false, 1, describe(+[](F64 x) {
                    const auto v = gather_quad<Type::f64>(table(counted(d, 4, 16), "t"), index(low_word(x), 32, 16));
                    return (v[0] - v[3]) * (v[1] + x) + v[2];
                })),
        make_up("gather_i3", {f}, {i}, {}, false, 1, describe(+[](F32 x) {
                    const I32 k = bits(x) & I32(15);
                    const auto v = gather_fields<Type::i32, 3>(table(counted(i, 3, 16), "t"), ((k << 1) + k) << 2);
                    return (v[0] ^ (v[1] << 1)) + v[2];
                })),
        make_up("gather_f10", {f}, {f}, {}, false, 1, describe(+[](F32 x) {
                    const I32 k = bits(x) & I32(15);
                    const auto v = gather_fields<Type::f32, 10>(table(counted(f, 10, 16), "t"), (k << 5) + (k << 3));
                    F32 sum = x;
                    for (const F32& value : v) sum = sum * 0.5f + value;
                    return sum;
                })),
        make_up("gather_df", {d}, {d}, {}, false, 1, describe(+[](F64 x) { return to_f64(gather<Type::f32>(table(counted(f, 1, 16), "t"), index(low_word(x), 4, 16))) * x; })),
        make_up("gather_fd", {f}, {f}, {}, false, 1, describe(+[](F32 x) {
                    const auto [a, b] = gather_pair<Type::f64>(table(counted(d, 2, 16), "t"), index(bits(x), 16, 16));
                    return to_f32(a * to_f64(x) + b);
                })),
        // A biased index: the displacement takes the bias back.
        make_up("gather_biased", {i}, {f}, {}, false, 1, describe(+[](I32 n) {
                    return gather<Type::f32>(table(counted(f, 1, 16), "t"), (n & I32(0x3c)) - I32(1000), -1000);
                })),
    });
}

TEST(Generator, LongIntegersInHalves) {
    expect_right({
        make_up("longs", {l, l}, {l}, {}, false, 1, describe(+[](I64 a, I64 b) {
                    const I64 product = multiply_words(a, b >> 32);
                    return select(a > b, product + (a << 7), product - (b >> 3)) ^ i64(0x123456789abcdef0);
                })),
        make_up("shift_each", {l, l}, {l}, {}, false, 1, describe(+[](I64 a, I64 b) {
                    return shift_left_each(a, b & i64(0x7f)) | shift_right_each(b, a & i64(0x3f));
                })),
        make_up("long_equal", {d, l}, {d}, {}, false, 1, describe(+[](F64 x, I64 n) {
                    return select((bits(x) & n) == (n & i64(255)), x + 1.0, as_float(bits(x) - n));
                })),
    });
}

TEST(Generator, WordsOfDoubles) {
    expect_right({
        make_up("high", {d}, {i}, {}, false, 1, describe(+[](F64 x) { return high_word(x) - I32(0x3ff00000); })),
        make_up("swap", {d}, {d}, {}, false, 1, describe(+[](F64 x) { return as_float(join_words(low_word(x), high_word(x) + I32(1))); })),
        make_up("mask_words", {d, d}, {d}, {}, false, 1, describe(+[](F64 x, F64 y) {
                    const M32 large = high_word(abs(x)) > I32(0x3ff00000);
                    return select(widen_mask(large), x, y) + where(widen_mask(narrow_mask(x < y)), y);
                })),
    });
}

// Doubles that are made of words and become words again may lie in any order between.
TEST(Generator, DoublesBetweenWords) {
    expect_right({
        make_up("in_and_out", {i, i}, {i, i}, {}, false, 1, describe(+[](I32 a, I32 b) {
                    const I64 x = join_words(a, b), y = join_words(i32(0x43300000), a);
                    const F64 sum = as_float(x) + to_f64(reciprocal_approximation(to_f32(as_float(y)) * 0.5f));
                    return std::pair(low_word(bits(sum) - (x >> 7)) ^ b, high_word(select(sum < 0.0, as_float(y), sum)) + a);
                })),
        make_up("mask_out", {i, i}, {i}, {}, false, 1, describe(+[](I32 a, I32 b) {
                    return select(narrow_mask(as_float(join_words(a, b)) < as_float(join_words(b, a))), a, b);
                })),
        // Some of the doubles come in order, so all have to.
        make_up("in_order_as_well", {i, i}, {i}, {}, false, 1, describe(+[](I32 a, I32 b) {
                    return low_word(bits(as_float(join_words(i32(0x43300000), a)) + to_f64(b)));
                })),
        make_up("float_stays_out", {f, i}, {f}, {}, false, 1, describe(+[](F32 x, I32 a) {
                    return x + to_f32(as_float(join_words(a, a)));
                })),
    });
}

TEST(Generator, NarrowingAndWidening) {
    expect_right({
        make_up("through_double", {f, f}, {f}, {}, false, 1, describe(+[](F32 x, F32 y) { return to_f32(to_f64(x) * to_f64(y) + 1.0); })),
        make_up("through_float", {d}, {d}, {}, false, 1, describe(+[](F64 x) { return x - to_f64(reciprocal_approximation(to_f32(x))); })),
        make_up("float_to_long", {f}, {l}, {}, false, 1, describe(+[](F32 x) { return sign_extend(truncate_to_i32(x)) + zero_extend(bits(x)); })),
        make_up("double_to_int", {d}, {i}, {}, false, 1, describe(+[](F64 x) { return to_i32(x) + truncate_to_i32(x * 3.0); })),
        make_up("int_to_double", {i}, {d}, {}, false, 1, describe(+[](I32 n) { return to_f64(n) * 0.5; })),
        make_up("long_to_float", {l}, {f}, {}, false, 1, describe(+[](I64 n) { return to_f32(low_word(n)) + to_f32(high_word(n)); })),
        make_up("double_to_float", {d}, {f}, {}, false, 0, describe(+[](F64 x) { return to_f32(x); })),
    });
}

TEST(Generator, NoUpperHalvesInUseWhereNoneAreReturned) {
    const MadeUp there_and_back = make_up("there_and_back", {d, i, l}, {f}, {}, false, 1, describe(+[](F64 x, I32 n, I64 m) {
        const F64 w = to_f64(to_f32(x)), y = to_f64(n);
        return to_f32(select(widen_mask(narrow_mask(w > x)), y, as_float(bits(w) ^ m))) + to_f32(high_word(m));
    }));
    expect_right({there_and_back});
    const BlockLayout blocks = lay_out_blocks(there_and_back.program, "there_and_back");
    for (int width : {3, 4}) EXPECT_FALSE(clears_upper_halves(lay_out(there_and_back.program, blocks, there_and_back.family, width, "k")));
    EXPECT_TRUE(lay_out(there_and_back.program, blocks, there_and_back.family, 8, "k").works_256);
}

// Another processor's reciprocal goes the same way as the processor's own.
TEST(Generator, ReciprocalOfAnotherProcessor) {
    const MadeUp family = make_up("estimate", {d}, {d}, {}, false, 1, describe(+[](F64 x) {
                                      return x * to_f64(reciprocal_approximation(to_f32(x)));
                                  }));
    const std::uint64_t four = 0x4010000000000000;
    const LaneResult result = interpret(family.program, {&four, 1}, false, false, {[](float x) { return x + 1.0f; }});
    EXPECT_EQ(result.outputs, std::vector<std::uint64_t>{0x4034000000000000});  // 4 (4 + 1)
}

TEST(Generator, TwoResultsOutPointersAndMemoryForm) {
    const auto both = [](F32 x) { return std::pair(x + 1.0f, x * 3.0f); };
    const auto both_d = [](F64 x) { return std::pair(x + 1.0, x * 3.0); };
    const auto out_int = [](F64 x, F64 y) { return std::pair(x * y, high_word(x) - high_word(y)); };
    expect_right({make_up("pair_f", {f}, {f, f}, {}, false, 1, describe(+both)), make_up("out_f", {f}, {f}, f, false, 1, describe(+both)),
                  make_up("pair_d", {d}, {d, d}, {}, false, 1, describe(+both_d)), make_up("out_d", {d}, {d}, d, false, 1, describe(+both_d)),
                  make_up("out_i", {d, d}, {d}, i, false, 1, describe(+out_int)),
                  make_up("pair_i", {i, i}, {i, i}, {}, false, 0, describe(+[](I32 a, I32 b) { return std::pair(a + b, b - a); })),
                  make_up("scale", {d, i}, {d}, {}, false, 1, describe(+[](F64 x, I32 n) { return x * to_f64(n); })),
                  make_up("three", {f, f, f}, {f}, {}, false, 0, describe(+[](F32 a, F32 b, F32 c) { return a * b + c; })),
                  make_up("three_d", {d, d, d}, {d}, {}, false, 0, describe(+[](F64 a, F64 b, F64 c) { return c - a * b; })),
                  make_up("same_twice", {f}, {f, f}, {}, false, 0, describe(+[](F32 x) { return std::pair(x, x); }))});
}

TEST(Generator, TwoWaysByPartSize) {
    const auto scaled = [](F32 x) {
        const I32 n = bits(x + f32(0x4b400000));
        return by_part_size(as_float((n << 23) + bits(x)), x * as_float((n + i32(0x7f)) << 23));
    };
    expect_right({make_up("way_f", {f}, {f}, {}, false, 1, describe(+scaled)),
                  make_up("way_d", {d, d}, {i}, {}, true, 1, describe(+[](F64 x, F64 y) {
                              const M32 chosen = by_part_size(high_word(x) > high_word(y), narrow_mask(x > y));
                              rare_if(widen_mask(chosen) & by_part_size(x < y, x == y));
                              return select(chosen, by_part_size(high_word(x), low_word(y)), I32(7));
                          }))});
}

TEST(Generator, RareLanes) {
    const auto one = [](F32 x) {
        rare_if(!(abs(x) <= f32(0x40000000)));
        return x * x + 1.0f;
    };
    const auto by_words = [](F64 x, F64 y) {
        rare_if(high_word(x) > high_word(y));
        rare_if(!(x <= 3.0));
        return std::pair(x + y, y * 2.0);
    };
    const auto with_int = [](F64 x, I32 n) {
        rare_if(n > I32(50));
        return x * to_f64(n);
    };
    expect_right({make_up("rare_f", {f}, {f}, {}, true, 1, describe(+one)),
                  make_up("rare_pair", {d, d}, {d, d}, {}, true, 1, describe(+by_words)),
                  make_up("rare_out", {d, d}, {d}, d, true, 1, describe(+by_words)),
                  make_up("rare_int", {d, i}, {d}, {}, true, 1, describe(+with_int)),
                  make_up("always", {d}, {i}, {}, true, 0, describe(+[](F64) { rare_always(); return I32(0); }))});
}

TEST(Generator, RepairClearsBitsOfTheRareMask) {
    const auto clamped = [](F32 x) {
        rare_if(!(abs(x) <= 2.0f));
        return repair(x * x + 1.0f, [&] {
            const M32 over = x > 3.0f, under = x < -3.0f;
            return Repaired<Type::f32>{over | under, select(over, f32(0x7f800000), 0.0f)};
        });
    };
    const auto clamped_d = [](F64 x) {
        rare_if(!(abs(x) <= 2.0));
        return repair(x * x + 1.0, [&] {
            const M64 over = x > 3.0;
            InBlock pool(InBlock::pool);
            return Repaired<Type::f64>{over, where(over, f64(0x7ff0000000000000))};
        });
    };
    expect_right({make_up("repair_f", {f}, {f}, {}, true, 1, describe(+clamped)), make_up("repair_d", {d}, {d}, {}, true, 1, describe(+clamped_d))}, 120);
}

TEST(Generator, SectionsForAnyLane) {
    // Two values replaced, a table in a second block, rare lanes found inside, and outer values alive across.
    const auto large = [](F32 x) {
        const F32 a = abs(x), s = sign_bit(x), small = a * 0.5f + 0.25f;
        const auto [r, q] = if_any(!(a <= 1.5f), std::tuple(small, a + 1.0f), [&] {
            InBlock second(1);
            rare_if((bits(a) & I32(0x7f800000)) == I32(0x7f800000));
            const auto [hi, lo] = gather_pair<Type::f32>(table(counted(f, 2, 16), "t"), (bits(a) & I32(15)) << 3);
            F32 t = hi;
            for (int k = 0; k < 12; ++k) t = t * a + (lo - float(k)) * small;
            return std::tuple(t, lo * a);
        });
        return std::pair(r * q, q ^ s);
    };
    // What the inner section replaces is read outside, too, where nothing else says that it comes first.
    const auto replaced_within = [](F64 x) {
        const F64 v = x * 1.5;
        const I32 word = high_word(v) ^ I32(5);
        const F64 z = if_any(x > 1.0, x + 2.0, [&] {
            return if_any(x > 2.0, v, [&] { return x - 4.0; }) - 3.0;
        });
        return std::pair(z * z * z, word);
    };
    const auto nested = [](F64 x) {
        const F64 y = x * 3.0;
        const F64 z = if_any(abs(x) > 1.0, y, [&] {
            const F64 inner = if_any(abs(x) > 2.0, x + 5.0, [&] { return x * x - y; });
            return inner + y;
        });
        return z - x;
    };
    const auto replaced_argument = [](F64 x) {
        const F64 a = if_any(x > 2.0, x, [&] { return x - 2.0; });
        rare_if(is_nan(x));
        return a * a;
    };
    expect_right({make_up("large", {f}, {f, f}, {}, true, 2, describe(+large)), make_up("large_out", {f}, {f}, f, true, 2, describe(+large)),
                  make_up("nested", {d}, {d}, {}, false, 1, describe(+nested)),
                  make_up("replaced_within", {d}, {d}, i, false, 1, describe(+replaced_within)),
                  make_up("replaced", {d}, {d}, {}, true, 1, describe(+replaced_argument))}, 150);
}

TEST(Generator, SectionsSaveWhatTheyUse) {
    // A crowd of values out of line, a few on the way around it, and a mask that the argument gives.
    const MadeUp crowd = make_up("outline_crowd", {f}, {f}, {}, true, 1, describe(+[](F32 x) {
        return if_any(!(abs(x) <= 2.0f), x * x + 1.0f, [&] {
            rare_if(is_nan(x));
            std::vector<F32> values{x};
            for (int k = 0; k < 20; ++k) values.push_back(values.back() * x + float(k));
            F32 sum = x;
            for (const F32& v : values) sum = sum * v - values[std::size_t(3)];
            return sum;
        });
    }));
    const MadeUpLibrary library({&crowd});
    std::mt19937_64 random(21);
    for (const std::string& fault : compare_with_interpreter(crowd, library, 150, random)) ADD_FAILURE() << fault;
    // The common path stays as it would be without the section: no frame, no store, no preserved register.
    const std::string& text = library.text();
    const std::size_t entry = text.find("outline_crowd4:"), end = text.find("\n    ret\n", entry);
    ASSERT_NE(end, std::string::npos);
    const std::string common = text.substr(entry, end - entry);
    for (const char* trace : {"push", "[rsp", "mm8", "mm15"}) EXPECT_EQ(common.find(trace), std::string::npos) << common;
    EXPECT_NE(text.find("mm15", end), std::string::npos);
}

TEST(Generator, RowsOfFourValues) {
    expect_right({make_up("lookup", {f}, {f}, {}, false, 1, describe(+[](F32 x) {
                      const I32 j = to_i32(x * 4.0f);
                      return lookup4(quad_f32({0x3f800000, 0x3f9837f0, 0x3fb504f3, 0x3fd744fd}), j) - x;
                  }))});
}

TEST(Generator, ManyValuesAlive) {
    // More values than registers: spills, a frame, preserved registers in use.
    const auto crowd_f = [](F32 x) {
        std::vector<F32> values{x};
        for (int k = 0; k < 20; ++k) values.push_back(values.back() * x + float(k));
        F32 sum = x;
        for (const F32& v : values) sum = sum * v - values[std::size_t(3)];
        rare_if(sum > 1.0f);
        return sum;
    };
    const auto crowd_d = [](F64 x, F64 y) {
        std::vector<F64> values{x, y};
        for (int k = 0; k < 20; ++k) values.push_back(values[values.size() - 2] * x + double(k));
        F64 sum = y;
        for (const F64& v : values) sum = sum * 0.5 + v;
        rare_if(sum > 1.0);
        return std::pair(sum, to_i32(sum));
    };
    expect_right({make_up("crowd_f", {f}, {f}, {}, true, 1, describe(+crowd_f)), make_up("crowd_d", {d, d}, {d}, i, true, 1, describe(+crowd_d))});
}

/// The message with which the generator refuses a description, or "" if it takes it.
template <typename Function>
std::string refusal(Function function, std::vector<Lane> arguments, std::vector<Lane> results, bool rare) {
    try {
        const MadeUp made_up = make_up("refused", arguments, results, {}, rare, 1, describe(+function));
        const BlockLayout blocks = lay_out_blocks(made_up.program, "refused");
        lay_out(made_up.program, blocks, made_up.family, 4, "refused4");
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(Generator, RefusesDescriptionsThatBreakARule) {
    const auto has = [](const std::string& message, const char* part) { return message.find(part) != std::string::npos; };
    EXPECT_PRED2(has, refusal([](I32 n) { return gather<Type::f32>(table(counted(f, 1, 16), "t"), n); }, {i}, {f}, false), "reads bytes");
    EXPECT_PRED2(has, refusal([](I32 n) { return gather<Type::f32>(table(counted(f, 1, 15), "t"), n & I32(0x3c)); }, {i}, {f}, false), "which has 60");
    EXPECT_PRED2(has, refusal([](F32 x) { rare_if(x > 1.0f); return x; }, {f}, {f}, false), "the operation table no rare path");
    EXPECT_PRED2(has, refusal([](F32 x) { return x; }, {f}, {f}, true), "no rare test");
    EXPECT_PRED2(has, refusal([](F64 x) { return x; }, {f}, {f}, false), "arguments are not those");
    EXPECT_PRED2(has, refusal([](F32 x) { return bits(x); }, {f}, {f}, false), "another type");
    EXPECT_PRED2(has, refusal([](F32 x) {
                     F32 leaked;
                     if_any(x > 1.0f, x, [&] { leaked = x + 2.0f; return leaked; });
                     return leaked + x;
                 }, {f}, {f}, false), "inside a section");
    EXPECT_THROW(f32(0x3f800000), std::logic_error);  // outside a description
}

/// A kernel that breaks a rule on the way to text.
std::string emission(void (*spoil)(Kernel&, AllocatedKernel&)) {
    const MadeUp made_up = make_up("spoilt", {f}, {f}, {}, false, 1, describe(+[](F32 x) { return x * 3.0f + 1.0f; }));
    const BlockLayout blocks = lay_out_blocks(made_up.program, "spoilt");
    Kernel kernel = lay_out(made_up.program, blocks, made_up.family, 8, "spoilt8");
    AllocatedKernel allocated = compile(kernel);
    spoil(kernel, allocated);
    std::ostringstream text;
    try {
        emit(text, kernel, allocated, blocks);
    } catch (const std::logic_error& error) {
        EXPECT_EQ(text.str(), "") << "a refused kernel leaves no text";
        return error.what();
    }
    return "";
}

TEST(Generator, RefusesKernelsThatBreakARule) {
    const auto has = [](const std::string& message, const char* part) { return message.find(part) != std::string::npos; };
    const auto code = [](AllocatedKernel& a) -> Instruction& { return a.sections[0].code.back(); };
    static const auto last = code;
    EXPECT_EQ(emission([](Kernel&, AllocatedKernel&) {}), "");
    for (const Mnemonic mnemonic : {Mnemonic::call, Mnemonic::vpaddd, Mnemonic::vroundps, Mnemonic::vsqrtps}) {
        static Mnemonic wrong;  // the rare path's own; of 128 bits alone; without its immediate; with a source too many
        wrong = mnemonic;
        EXPECT_PRED2(has, emission([](Kernel&, AllocatedKernel& a) { last(a).mnemonic = wrong; }), "outside the allowed");
    }
    EXPECT_PRED2(has, emission([](Kernel&, AllocatedKernel& a) { last(a).dst = 9; }), "written and not restored");
    EXPECT_PRED2(has, emission([](Kernel&, AllocatedKernel& a) { last(a).sources.back().memory.offset = 4096; }), "outside spoilt_consts");
}

}  // namespace
}  // namespace tuvo
