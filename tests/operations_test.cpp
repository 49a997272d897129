#include "frame/description/operations.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "frame/object/manifest.hpp"

namespace tuvo {
namespace {

const Family& family_named(std::string_view name) {
    const Family* family = find_family(name);
    if (!family) throw std::runtime_error("no family " + std::string(name));
    return *family;
}

TEST(Names, EachHasExactlyOneReading) {
    std::set<std::string> names;
    for (const Family& family : families()) {
        EXPECT_EQ(find_family(family.name()), &family);
        for (int width : widths) {
            std::string name = short_name(family, width);
            EXPECT_TRUE(names.insert(name).second) << name;
            std::vector<ParsedName> readings = parse_short_name(name);
            ASSERT_EQ(readings.size(), 1u) << name;
            EXPECT_EQ(readings[0].family, &family) << name;
            EXPECT_EQ(readings[0].width, width) << name;
        }
    }
}

TEST(Names, DigitsOfTheOperationAndOfTheWidthAreToldApart) {
    struct Case {
        const char* name;
        const char* operation;
        Lane element;
        int width;
        Tier tier;
    };
    const Case cases[] = {
        {"exp21", "exp2", Lane::f64, 1, Tier::standard},
        {"exp2", "exp", Lane::f64, 2, Tier::standard},
        {"exp22", "exp2", Lane::f64, 2, Tier::standard},
        {"exp1016", "exp10", Lane::f64, 16, Tier::standard},
        {"exp16", "exp", Lane::f64, 16, Tier::standard},
        {"exp216", "exp2", Lane::f64, 16, Tier::standard},
        {"exp2f1", "exp2", Lane::f32, 1, Tier::standard},
        {"expm14", "expm1", Lane::f64, 4, Tier::standard},
        {"expm116_native", "expm1", Lane::f64, 16, Tier::native},
        {"log2", "log", Lane::f64, 2, Tier::standard},
        {"log21", "log2", Lane::f64, 1, Tier::standard},
        {"log16", "log", Lane::f64, 16, Tier::standard},
        {"log101", "log10", Lane::f64, 1, Tier::standard},
        {"log1p4", "log1p", Lane::f64, 4, Tier::standard},
        {"log1pf4_native", "log1p", Lane::f32, 4, Tier::native},
        {"logf4_half", "log", Lane::f32, 4, Tier::half},
        {"fmaf16_rm", "fma", Lane::f32, 16, Tier::rm},
        {"atan216", "atan2", Lane::f64, 16, Tier::standard},
        {"atan16", "atan", Lane::f64, 16, Tier::standard},
        {"modff1", "modf", Lane::f32, 1, Tier::standard},
        {"modf1", "modf", Lane::f64, 1, Tier::standard},
        {"idivrem16", "idivrem", Lane::i32, 16, Tier::standard},
        {"udiv8", "udiv", Lane::u32, 8, Tier::standard},
        {"cvtfptou64rtzsatf16", "cvtfptou64rtzsat", Lane::f32, 16, Tier::standard},
        {"cvti32tofprtn2", "cvti32tofprtn", Lane::f64, 2, Tier::standard},
        {"cvtfp64tofp32rte3", "cvtfp64tofp32rte", Lane::f64, 3, Tier::standard},
    };
    for (const Case& expected : cases) {
        std::vector<ParsedName> readings = parse_short_name(expected.name);
        ASSERT_EQ(readings.size(), 1u) << expected.name;
        const Family& family = *readings[0].family;
        EXPECT_EQ(family.operation, expected.operation) << expected.name;
        EXPECT_EQ(family.element, expected.element) << expected.name;
        EXPECT_EQ(family.tier, expected.tier) << expected.name;
        EXPECT_EQ(readings[0].width, expected.width) << expected.name;
    }
}

TEST(Names, OtherTextHasNoReading) {
    for (const char* name : {"", " logf4", "logf4 "}) EXPECT_TRUE(parse_short_name(name).empty()) << name;
    std::istringstream junk(
        "4 log logf logf5 logf04 logf32 logf4f Logf4 logf4_fast logf4_ logf_half4 log4_half log4_rm log_native "
        "logf4_rm_rm powf4_half fma4_rm sqrtf4_rm idivf4 udiv4f atan2162 atan232 exp101f6 cvtfptoi32rte4 cvti32tofp4 "
        "cvtfp64tofp32rtef4 cvtfptoi32satrte4 _native logf4_native_half __ocl_tuvo_e9_logf4 logf4_rare logf_rare");
    for (std::string name; junk >> name;) EXPECT_TRUE(parse_short_name(name).empty()) << name;

    // Whatever else is read must be the spelling of what it was read as.
    for (const Family& family : families()) {
        for (int width : widths) {
            std::string name = short_name(family, width);
            for (std::size_t position = 0; position < name.size(); ++position) {
                std::string shorter = name.substr(0, position) + name.substr(position + 1);
                std::string doubled = name.substr(0, position) + name[position] + name.substr(position);
                for (const std::string& text : {shorter, doubled}) {
                    std::vector<ParsedName> readings = parse_short_name(text);
                    ASSERT_LE(readings.size(), 1u) << text;
                    for (const ParsedName& reading : readings)
                        EXPECT_EQ(short_name(*reading.family, reading.width), text);
                }
            }
        }
    }
}

TEST(Calls, ExactlyTheseUseTheMemoryForm) {
    const std::set<std::string> expected{
        "atan216",        "atan2pi16",    "copysign16",    "div16",          "fdim16",           "fma16",
        "fmax16",         "fmin16",       "fmod16",        "hypot16",        "ldexp16",          "maxmag16",
        "minmag16",       "nextafter16",  "pow16",         "pown16",         "powr16",           "remainder16",
        "remquo16",       "rootn16",      "sincosreg16",   "atan216_native", "atan2pi16_native", "div16_native",
        "hypot16_native", "pow16_native", "pown16_native", "powr16_native",  "rootn16_native",   "sincosreg16_native",
        "fma8",           "fmaf16",       "fmaf16_rm",
    };
    std::set<std::string> found;
    for (const Family& family : families())
        for (int width : widths)
            if (call_form(family, width) == Form::memory) found.insert(short_name(family, width));
    EXPECT_EQ(found, expected);
}

TEST(Calls, PreservedRegistersFollowTheForm) {
    const auto upper = Preserved::upper_vectors_and_pointers;
    EXPECT_EQ(preserved(family_named("logf"), 4), upper);
    EXPECT_EQ(preserved(family_named("copysign"), 8), upper);
    EXPECT_EQ(preserved(family_named("copysign"), 16), Preserved::nothing_more);
    EXPECT_EQ(preserved(family_named("remquo"), 16), Preserved::nothing_more);
    for (const char* name : {"idiv", "irem", "idivrem", "udiv", "urem", "udivrem"}) {
        EXPECT_EQ(preserved(family_named(name), 1), Preserved::pointers) << name;
        EXPECT_EQ(preserved(family_named(name), 2), upper) << name;
    }
    EXPECT_EQ(preserved(family_named("cvti64tofprte"), 1), upper);
    EXPECT_EQ(preserved(family_named("ilogb"), 1), upper);
}

TEST(Calls, PartsAndStoredBytes) {
    using Parts = std::vector<int>;
    const Parts one_narrow{128}, one_wide{256};
    for (Lane lane : {Lane::f32, Lane::i32, Lane::u32}) {
        for (int width : {1, 2, 3, 4}) EXPECT_EQ(part_bits(lane, width), one_narrow);
        EXPECT_EQ(part_bits(lane, 8), one_wide);
        EXPECT_EQ(part_bits(lane, 16), (Parts{256, 256}));
    }
    for (Lane lane : {Lane::f64, Lane::i64, Lane::u64}) {
        for (int width : {1, 2}) EXPECT_EQ(part_bits(lane, width), one_narrow);
        for (int width : {3, 4}) EXPECT_EQ(part_bits(lane, width), one_wide);
        EXPECT_EQ(part_bits(lane, 8), (Parts{256, 256}));
        EXPECT_EQ(part_bits(lane, 16), (Parts{256, 256, 256, 256}));
    }
    EXPECT_EQ(out_bytes(family_named("sincosf"), 1), 4);
    EXPECT_EQ(out_bytes(family_named("sincosf"), 3), 16);
    EXPECT_EQ(out_bytes(family_named("sincos"), 3), 32);
    EXPECT_EQ(out_bytes(family_named("frexp"), 3), 16);
    EXPECT_EQ(out_bytes(family_named("frexp"), 16), 64);
    EXPECT_EQ(out_bytes(family_named("fract"), 16), 128);
    EXPECT_EQ(out_bytes(family_named("sincosreg"), 4), 0);
}

TEST(Families, ShapesOfTheUnusualOnes) {
    struct Case {
        const char* name;
        std::vector<Lane> arguments;
        std::vector<Lane> results;
        std::optional<Lane> out;
    };
    const Case cases[] = {
        {"nanf", {Lane::u32}, {Lane::f32}, {}},
        {"nan", {Lane::u64}, {Lane::f64}, {}},
        {"rootnf_native", {Lane::f32, Lane::i32}, {Lane::f32}, {}},
        {"ilogb", {Lane::f64}, {Lane::i32}, {}},
        {"remquo", {Lane::f64, Lane::f64}, {Lane::f64}, Lane::i32},
        {"lgammarf", {Lane::f32}, {Lane::f32}, Lane::i32},
        {"sincos_native", {Lane::f64}, {Lane::f64}, Lane::f64},
        {"sincosregf", {Lane::f32}, {Lane::f32, Lane::f32}, {}},
        {"udivrem", {Lane::u32, Lane::u32}, {Lane::u32, Lane::u32}, {}},
        {"cvtfptou64rtpsatf", {Lane::f32}, {Lane::u64}, {}},
        {"cvtu64tofprtzf", {Lane::u64}, {Lane::f32}, {}},
        {"cvtfp64tofp32rtn", {Lane::f64}, {Lane::f32}, {}},
    };
    for (const Case& expected : cases) {
        const Family& family = family_named(expected.name);
        EXPECT_EQ(family.arguments, expected.arguments) << expected.name;
        EXPECT_EQ(family.results, expected.results) << expected.name;
        EXPECT_EQ(family.out, expected.out) << expected.name;
    }
    EXPECT_EQ(family_named("cvtfptou64rtpsatf").rounding, Rounding::rtp);
    EXPECT_EQ(family_named("cvtfptou64rtpsatf").saturation, Saturation::sat);
    EXPECT_EQ(family_named("remquo").outputs(), (std::vector<Lane>{Lane::f64, Lane::i32}));
}

TEST(Families, RarePathsAndBlocksWhereTiersDiffer) {
    struct Group {
        bool has_rare;
        int blocks;
        std::vector<const char*> names;
    };
    const Group groups[] = {
        {false,
         0,
         {"hypotf_native", "divf", "sqrtf", "sqrt_native", "cvtfptoi32rtznosatf", "cvti32tofprtz", "cvtfp64tofp32rte",
          "idivrem"}},
        {false,
         1,
         {"atanf", "atan", "invf", "inv_native", "cospi", "erf", "cvtfptou32rtznosatf", "cvtfptoi32rtzsatf",
          "cvti32tofprtzf", "cvtfp64tofp32rtz"}},
        {true, 0, {"fmaf_rm", "lgamma"}},
        {true,
         1,
         {"logf", "logf_rm", "atanf_native", "atan_native", "hypotf", "hypot_native", "divf_half", "div", "invf_rm",
          "inv", "sqrtf_half", "cospif", "erfc", "sin_native"}},
        {true, 2, {"sinf_half", "sincosf_rm", "tan", "tan_native"}},
        {true, 3, {"sin", "sincosreg"}},
    };
    for (const Group& group : groups)
        for (const char* name : group.names) {
            EXPECT_EQ(family_named(name).has_rare, group.has_rare) << name;
            EXPECT_EQ(family_named(name).blocks, group.blocks) << name;
        }
    EXPECT_EQ(family_named("logf_half").rare_routine, "logf_rare");
    EXPECT_EQ(family_named("log").rare_routine, "log_rare");
    EXPECT_EQ(family_named("atanf").rare_routine, "");
}

TEST(Families, LaneThreeFills) {
    EXPECT_EQ(lane3_fill(family_named("logf"), 0), 0x3f400000u);
    EXPECT_EQ(lane3_fill(family_named("fma"), 2), 0x3fe8000000000000u);
    EXPECT_EQ(lane3_fill(family_named("acoshf_native"), 0), 0x40000000u);
    EXPECT_EQ(lane3_fill(family_named("acosh"), 0), 0x4000000000000000u);
    EXPECT_EQ(lane3_fill(family_named("pownf"), 0), 0x3f800000u);
    EXPECT_EQ(lane3_fill(family_named("rootn_native"), 0), 0x3ff0000000000000u);
    EXPECT_EQ(lane3_fill(family_named("ldexp"), 1), 1u);
    EXPECT_EQ(lane3_fill(family_named("nextafterf"), 0), 0x3f400000u);
    EXPECT_EQ(lane3_fill(family_named("nextafter"), 1), 0xbfe8000000000000u);
    EXPECT_EQ(lane3_fill(family_named("udivrem"), 1), 1u);
    EXPECT_EQ(lane3_fill(family_named("cvtu64tofprtef"), 0), 1u);
    EXPECT_EQ(lane3_fill(family_named("cvtfptou64rtesatf"), 0), 0x3f400000u);
    EXPECT_EQ(lane3_fill(family_named("nan"), 0), 0u);
}

TEST(Manifest, JsonHoldsOnlyTheFamiliesGiven) {
    const std::vector<const Family*> built{find_family("logf_half"), find_family("remquo"), find_family("sincosreg"),
                                           find_family("cvti64tofprtnf"), find_family("idivrem")};
    std::ostringstream text;
    write_exports_json(text, built);
    const nlohmann::json manifest = nlohmann::json::parse(text.str());
    EXPECT_EQ(manifest["soname"], "__ocl_tuvo_e9.so.3.5");
    ASSERT_EQ(manifest["exports"].size(), built.size() * widths.size());

    auto entry = manifest["exports"].begin();
    for (const Family* family : built) {
        for (int width : widths) {
            std::string name = (*entry)["name"];
            EXPECT_EQ(name, short_name(*family, width));
            EXPECT_EQ((*entry)["symbol"], std::string(manifest["prefix"]) + name);
            EXPECT_EQ((*entry)["arguments"].size(), family->arguments.size()) << name;
            EXPECT_EQ((*entry)["results"].size(), family->results.size()) << name;
            EXPECT_EQ((*entry)["packed"], width == 1 && family->results.size() == 2) << name;
            ++entry;
        }
    }

    auto find = [&](std::string_view name) -> nlohmann::json {
        for (const nlohmann::json& export_entry : manifest["exports"])
            if (export_entry["name"] == name) return export_entry;
        return {};
    };
    EXPECT_EQ(find("remquo16"), nlohmann::json::parse(R"({
        "symbol": "__ocl_tuvo_e9_remquo16", "name": "remquo16", "operation": "remquo", "element": "double", "tier": "",
        "width": 16, "rounding": null, "saturation": null, "form": "memory",
        "arguments": [{"type": "double", "lanes": 16, "parts": [256, 256, 256, 256]},
                      {"type": "double", "lanes": 16, "parts": [256, 256, 256, 256]}],
        "results": [{"type": "double", "lanes": 16, "parts": [256, 256, 256, 256]}],
        "packed": false, "out": {"type": "int", "lanes": 16, "bytes": 64},
        "preserved": ["rbx", "rbp", "r12", "r13", "r14", "r15", "rsp"]})"));
    EXPECT_EQ(find("logf3_half")["tier"], "half");
    EXPECT_EQ(find("logf3_half")["preserved"].size(), 17u);
    EXPECT_EQ(find("logf3_half")["arguments"][0], nlohmann::json::parse(R"({"type":"float","lanes":4,"parts":[128]})"));
    EXPECT_EQ(find("cvti64tofprtnf1")["rounding"], "rtn");
    EXPECT_EQ(find("cvti64tofprtnf1")["arguments"][0],
              nlohmann::json::parse(R"({"type":"long","lanes":1,"parts":[],"register":"general"})"));
    EXPECT_EQ(find("idivrem1")["preserved"].size(), 9u);
}

TEST(Manifest, LlvmDeclarations) {
    std::ostringstream text;
    write_exports_ll(text, {find_family("logf"), find_family("sincosregf"), find_family("sincosreg"),
                            find_family("udivrem"), find_family("remquo"), find_family("ldexp")});
    std::set<std::string> declarations;
    std::istringstream lines(text.str());
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("declare ")) declarations.insert(line.substr(8, line.rfind(" #") - 8));
    EXPECT_EQ(declarations.size(), 36u);
    const char* expected[] = {
        "<4 x float> @__ocl_tuvo_e9_logf1(<4 x float>)",
        "{ <8 x float>, <8 x float> } @__ocl_tuvo_e9_logf16(<8 x float>, <8 x float>)",
        "<4 x float> @__ocl_tuvo_e9_sincosregf1(<4 x float>)",
        "{ <4 x float>, <4 x float> } @__ocl_tuvo_e9_sincosregf2(<4 x float>)",
        "i64 @__ocl_tuvo_e9_udivrem1(i32, i32)",
        "{ <8 x i32>, <8 x i32> } @__ocl_tuvo_e9_udivrem8(<8 x i32>, <8 x i32>)",
        "<2 x double> @__ocl_tuvo_e9_ldexp1(<2 x double>, i32)",
        "{ <4 x double>, <4 x double> } @__ocl_tuvo_e9_ldexp8(<4 x double>, <4 x double>, <8 x i32>)",
        "void @__ocl_tuvo_e9_remquo16([16 x double]* sret([16 x double]), [16 x double]* byval([16 x double]) align 8, "
        "[16 x double]* byval([16 x double]) align 8, i32*)",
        "void @__ocl_tuvo_e9_sincosreg16({ [16 x double], [16 x double] }* sret({ [16 x double], [16 x double] }), "
        "[16 x double]* byval([16 x double]) align 8)",
    };
    for (const char* declaration : expected) EXPECT_TRUE(declarations.contains(declaration)) << declaration;
}

}  // namespace
}  // namespace tuvo
