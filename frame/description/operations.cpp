#include "frame/description/operations.hpp"

#include <algorithm>
#include <bit>
#include <functional>
#include <map>
#include <stdexcept>

namespace tuvo {

namespace {

/// A set of tiers, one bit each.
using Tiers = unsigned;
constexpr Tiers bit(Tier tier) { return 1u << static_cast<unsigned>(tier); }

constexpr Tiers no = 0;
constexpr Tiers D = bit(Tier::standard);
constexpr Tiers N = bit(Tier::native);
constexpr Tiers H = bit(Tier::half);
constexpr Tiers R = bit(Tier::rm);
constexpr Tiers DN = D | N;
constexpr Tiers DNH = D | N | H;
constexpr Tiers DNR = D | N | R;
constexpr Tiers DNHR = D | N | H | R;
/// Every tier that the row has.
constexpr Tiers all = DNHR;

/// Lane type of one argument or result, relative to the element type of the family.
enum class Slot : std::uint8_t {
    absent,
    element,
    element_bits,  ///< unsigned integer of the element's size
    f32,
    i32,
    u32,
    i64,
    u64,
};

struct Shape {
    std::array<Slot, 3> arguments;
    std::array<Slot, 2> results;
    Slot out = Slot::absent;
};

using enum Slot;
constexpr Shape unary{{element}, {element}};
constexpr Shape binary{{element, element}, {element}};
constexpr Shape ternary{{element, element, element}, {element}};
constexpr Shape with_int{{element, i32}, {element}};
constexpr Shape to_int{{element}, {i32}};
constexpr Shape from_bits{{element_bits}, {element}};
constexpr Shape out_element{{element}, {element}, element};
constexpr Shape out_int{{element}, {element}, i32};
constexpr Shape binary_out_int{{element, element}, {element}, i32};
constexpr Shape pair{{element}, {element, element}};
constexpr Shape binary_pair{{element, element}, {element, element}};
constexpr Shape conversion_to(Slot target) { return {{element}, {target}}; }
constexpr Shape conversion_from(Slot source) { return {{source}, {element}}; }

/// One element type of an operation: its tiers, those with a rare path, and those with a first, second, third block.
struct Column {
    Tiers tiers;
    Tiers rare = no;
    std::array<Tiers, 3> blocks{};
};

constexpr Column absent_column{no};

/// What replaces lane 3 of an argument at width 3.
struct Fill {
    double floating = 0.75;
    std::uint64_t integer = 1;
    double second = floating;  ///< of a second floating-point argument
};

constexpr std::array no_rounding{Rounding::none};
constexpr std::array every_rounding{Rounding::rte, Rounding::rtn, Rounding::rtp, Rounding::rtz};
constexpr std::array rte_only{Rounding::rte};
constexpr std::array directed{Rounding::rtn, Rounding::rtp, Rounding::rtz};

/// The rounding words that a row stands for: a view of one of the arrays above.
struct Roundings {
    const Rounding* first;
    std::size_t count;
    template <std::size_t n>
    constexpr Roundings(const std::array<Rounding, n>& words) : first(words.data()), count(n) {}
    constexpr const Rounding* begin() const { return first; }
    constexpr const Rounding* end() const { return first + count; }
};

struct Row {
    std::string_view operation;  ///< without rounding and saturation word
    Shape shape;
    Column with_letter;     ///< element type float, type letter f
    Column without_letter;  ///< element type `plain`, no type letter
    Fill fill{};
    Lane plain = Lane::f64;
    Roundings roundings = no_rounding;
    Saturation saturation = Saturation::none;
};

constexpr Row conversion_from_floating(std::string_view operation, Slot target, Saturation saturation, Tiers block) {
    return {operation, conversion_to(target), {D, no, {block}}, {D, no, {block}}, {},
            Lane::f64, every_rounding,        saturation};
}

constexpr Row conversion_to_floating(std::string_view operation, Slot source, Tiers float_block, Tiers double_block) {
    return {operation, conversion_from(source), {D, no, {float_block}}, {D, no, {double_block}}, {},
            Lane::f64, every_rounding};
}

constexpr Row conversion_narrowing(Roundings roundings, Tiers block) {
    return {"cvtfp64tofp32", conversion_to(f32), absent_column, {D, no, {block}}, {}, Lane::f64, roundings};
}

constexpr Row integer_division(std::string_view operation, const Shape& shape, Lane lane) {
    return {operation, shape, absent_column, {D}, {}, lane};
}

constexpr Fill fill_one{.floating = 1.0};
constexpr Fill fill_two{.floating = 2.0};
constexpr Fill fill_opposite{.second = -0.75};  // equal numbers take the rare path
constexpr Fill cleared{.floating = 0.0, .integer = 0};
constexpr auto sat = Saturation::sat;
constexpr auto nosat = Saturation::nosat;

// Each column: tiers, tiers with a rare path, {tiers with a constant block, with a second one, with a third one}. The
// second and third blocks hold tables of large-argument reduction and of the turn.
// clang-format off
constexpr Row table[] = {
    // operation  shape            float                        without type letter
    {"acos",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"acosh",     unary,          {DN, all, {all}},            {DN, all, {all}},  fill_two},
    {"acospi",    unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"asin",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"asinh",     unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"asinpi",    unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"atan",      unary,          {DN, N,   {all}},            {DN, N,   {all}}},
    {"atanh",     unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"atanpi",    unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"cbrt",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"cosh",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"cospi",     unary,          {DN, all, {all}},            {DN, no,  {all}}},
    {"erf",       unary,          {DN, no,  {all}},            {DN, no,  {all}}},
    {"erfc",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"expm1",     unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"log1p",     unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"rcbrt",     unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"sinh",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"sinpi",     unary,          {DN, all, {all}},            {DN, no,  {all}}},
    {"tanh",      unary,          {DN, all, {all}},            {DN, all, {all}}},
    {"tanpi",     unary,          {DN, all, {all}},            {DN, all, {all}}},

    {"cos",       unary,          {DNHR, all, {all, all}},     {DN, all, {all, D, D}}},
    {"exp",       unary,          {DNHR, all, {all}},          {DN, all, {all}}},
    {"exp10",     unary,          {DNHR, all, {all}},          {DN, all, {all}}},
    {"exp2",      unary,          {DNHR, all, {all}},          {DN, all, {all}}},
    {"inv",       unary,          {DNHR, N | H | R, {all}},    {DN, D,   {all}}},
    {"log",       unary,          {DNHR, all, {all}},          {DN, all, {all}}},
    {"log2",      unary,          {DNHR, all, {all}},          {DN, all, {all}}},
    {"sin",       unary,          {DNHR, all, {all, all}},     {DN, all, {all, D, D}}},
    {"tan",       unary,          {DNHR, all, {all, all}},     {DN, all, {all, all}}},

    {"log10",     unary,          {DNH, all, {all}},           {DN, all, {all}}},
    {"rsqrt",     unary,          {DNH, all, {all}},           {DN, all, {all}}},
    {"sqrt",      unary,          {DNH, H,   {H}},             {DN}},

    {"ceil",      unary,          {D},                         {D}},
    {"fabs",      unary,          {D},                         {D}},
    {"floor",     unary,          {D},                         {D}},
    {"lgamma",    unary,          {D, all},                    {D, all}},
    {"logb",      unary,          {D, all, {all}},             {D, all, {all}}},
    {"nearbyint", unary,          {D},                         {D}},
    {"rint",      unary,          {D},                         {D}},
    {"round",     unary,          {D, no,  {all}},             {D, no,  {all}}},
    {"tgamma",    unary,          {D, all},                    {D, all}},
    {"trunc",     unary,          {D},                         {D}},

    {"atan2",     binary,         {DN, all, {all}},            {DN, all, {all}}},
    {"atan2pi",   binary,         {DN, all, {all}},            {DN, all, {all}}},
    {"hypot",     binary,         {DN, D,   {D}},              {DN, all, {all}}},
    {"div",       binary,         {DNHR, N | H | R, {N | H | R}}, {DN, all, {all}}},
    {"pow",       binary,         {DNR, all, {all}},           {DN, all, {all}}},
    {"powr",      binary,         {DNH, all, {all}},           {DN, all, {all}}},

    {"copysign",  binary,         {D},                         {D}},
    {"fdim",      binary,         {D, all, {all}},             {D, all, {all}}},
    {"fmax",      binary,         {D, all},                    {D, all}},
    {"fmin",      binary,         {D, all},                    {D, all}},
    {"fmod",      binary,         {D, all, {all}},             {D, all, {all}}},
    {"maxmag",    binary,         {D, all},                    {D, all}},
    {"minmag",    binary,         {D, all},                    {D, all}},
    {"nextafter", binary,         {D, all, {all}},             {D, all, {all}},  fill_opposite},
    {"remainder", binary,         {D, all, {all}},             {D, all, {all}}},

    {"fma",       ternary,        {D | R, all},                {D, all}},

    {"pown",      with_int,       {DN, all, {all}},            {DN, all, {all}},  fill_one},
    {"rootn",     with_int,       {DN, all, {all}},            {DN, all, {all}},  fill_one},
    {"ldexp",     with_int,       {D, all, {all}},             {D, all, {all}},   fill_one},

    {"ilogb",     to_int,         {D, all, {all}},             {D, all, {all}}},
    {"nan",       from_bits,      {D},                         {D},               cleared},
    {"fract",     out_element,    {D, all, {all}},             {D, all, {all}}},
    {"modf",      out_element,    {D, all},                    {D, all}},
    {"frexp",     out_int,        {D, all, {all}},             {D, all, {all}}},
    {"lgammar",   out_int,        {D, all},                    {D, all}},
    {"remquo",    binary_out_int, {D, all, {all}},             {D, all, {all}}},
    {"sincos",    out_element,    {DNR, all, {all, all}},      {DN, all, {all, D, D}}},
    {"sincosreg", pair,           {DN, all, {all, all}},       {DN, all, {all, D, D}}},

    integer_division("idiv",    binary,      Lane::i32),
    integer_division("irem",    binary,      Lane::i32),
    integer_division("idivrem", binary_pair, Lane::i32),
    integer_division("udiv",    binary,      Lane::u32),
    integer_division("urem",    binary,      Lane::u32),
    integer_division("udivrem", binary_pair, Lane::u32),

    conversion_from_floating("cvtfptoi32", i32, nosat, no),
    conversion_from_floating("cvtfptoi32", i32, sat,   all),
    conversion_from_floating("cvtfptoi64", i64, nosat, all),
    conversion_from_floating("cvtfptoi64", i64, sat,   all),
    conversion_from_floating("cvtfptou32", u32, nosat, all),
    conversion_from_floating("cvtfptou32", u32, sat,   all),
    conversion_from_floating("cvtfptou64", u64, nosat, all),
    conversion_from_floating("cvtfptou64", u64, sat,   all),

    // operation, source, block at float, block at double (every int is exact in double)
    conversion_to_floating("cvti32tofp", i32, all, no),
    conversion_to_floating("cvtu32tofp", u32, all, all),
    conversion_to_floating("cvti64tofp", i64, all, all),
    conversion_to_floating("cvtu64tofp", u64, all, all),

    // The rounding to nearest is one machine instruction.
    conversion_narrowing(rte_only, no),
    conversion_narrowing(directed, all),
};
// clang-format on

constexpr std::string_view rounding_word(Rounding rounding) {
    switch (rounding) {
    case Rounding::none: return "";
    case Rounding::rte: return "rte";
    case Rounding::rtn: return "rtn";
    case Rounding::rtp: return "rtp";
    case Rounding::rtz: return "rtz";
    }
    return "";
}

constexpr std::string_view saturation_word(Saturation saturation) {
    switch (saturation) {
    case Saturation::none: return "";
    case Saturation::nosat: return "nosat";
    case Saturation::sat: return "sat";
    }
    return "";
}

constexpr int size_of(Lane lane) { return lane == Lane::f64 || lane == Lane::i64 || lane == Lane::u64 ? 8 : 4; }

constexpr Lane lane_of(Slot slot, Lane element_lane) {
    switch (slot) {
    case absent: break;
    case element: return element_lane;
    case element_bits: return size_of(element_lane) == 8 ? Lane::u64 : Lane::u32;
    case f32: return Lane::f32;
    case i32: return Lane::i32;
    case u32: return Lane::u32;
    case i64: return Lane::i64;
    case u64: return Lane::u64;
    }
    throw std::logic_error("no lane in an absent slot");
}

constexpr Family make_family(const Row& row, const Column& column, Lane element_lane, char letter, Rounding rounding,
                             Tier tier) {
    Family family;
    family.operation = row.operation;
    family.operation += rounding_word(rounding);
    family.operation += saturation_word(row.saturation);
    family.stem = family.operation;
    if (letter != 0) family.stem += letter;
    family.tier = tier;
    family.element = element_lane;
    for (Slot slot : row.shape.arguments)
        if (slot != absent) family.arguments.push_back(lane_of(slot, element_lane));
    for (Slot slot : row.shape.results)
        if (slot != absent) family.results.push_back(lane_of(slot, element_lane));
    if (row.shape.out != absent) family.out = lane_of(row.shape.out, element_lane);
    family.has_rare = (column.rare & bit(tier)) != 0;
    if (family.has_rare) family.rare_routine = family.stem + "_rare";
    for (Tiers block : column.blocks) family.blocks += (block & bit(tier)) != 0;
    family.rounding = rounding;
    family.saturation = row.saturation;
    return family;
}

/// Calls `visit(row, family)` for every family, in table order; within a row by rounding word, float first, then tier.
template <typename Visit>
constexpr void expand(Visit visit) {
    for (const Row& row : table) {
        for (Rounding rounding : row.roundings) {
            for (bool letter : {true, false}) {
                const Column& column = letter ? row.with_letter : row.without_letter;
                for (Tier tier : {Tier::standard, Tier::native, Tier::half, Tier::rm})
                    if (column.tiers & bit(tier))
                        visit(row, make_family(row, column, letter ? Lane::f32 : row.plain, letter ? 'f' : char{0},
                                               rounding, tier));
            }
        }
    }
}

constexpr int lanes_in(int width) { return width == 3 ? 4 : width; }

/// Parts that hold a vector value: as many 256-bit registers as it fills, or one register.
constexpr int part_count(Lane lane, int width) { return std::max(1, lanes_in(width) * size_of(lane) / 32); }

constexpr bool in_memory(const Family& family, int width) {
    constexpr int most_parts = 4;
    auto parts = [&](const std::vector<Lane>& lanes) {
        int sum = 0;
        for (Lane lane : lanes) sum += part_count(lane, width);
        return sum;
    };
    return parts(family.arguments) > most_parts || parts(family.results) > most_parts;
}

struct Totals {
    int families = 0;
    int exports = 0;
    int in_memory = 0;
    int blocks = 0;
    int families_with_block = 0;
    int kernels_with_rare_path = 0;
    bool operator==(const Totals&) const = default;
};

constexpr Totals count() {
    Totals totals;
    expand([&](const Row&, const Family& family) {
        ++totals.families;
        totals.blocks += family.blocks;
        totals.families_with_block += family.blocks > 0;
        for (int width : widths) {
            ++totals.exports;
            totals.in_memory += in_memory(family, width);
            totals.kernels_with_rare_path += family.has_rare;
        }
    });
    return totals;
}

static_assert(count() == Totals{.families = 361,
                                .exports = 2166,
                                .in_memory = 33,
                                .blocks = 328,
                                .families_with_block = 301,
                                .kernels_with_rare_path = 1314});

/// The families, and what is looked up about them by name.
struct Index {
    std::vector<Family> families;
    std::map<std::string, std::size_t, std::less<>> by_name;  ///< positions in `families`
    std::map<std::string, Fill, std::less<>> fills;           ///< by operation
};

const Index& index() {
    static const Index built = [] {
        Index result;
        expand([&](const Row& row, Family family) {
            result.by_name.emplace(family.name(), result.families.size());
            result.fills.emplace(family.operation, row.fill);
            result.families.push_back(std::move(family));
        });
        return result;
    }();
    return built;
}

}  // namespace

int lane_size(Lane lane) { return size_of(lane); }

std::string_view lane_name(Lane lane) {
    switch (lane) {
    case Lane::f32: return "float";
    case Lane::f64: return "double";
    case Lane::i32: return "int";
    case Lane::u32: return "uint";
    case Lane::i64: return "long";
    case Lane::u64: return "ulong";
    }
    throw std::logic_error("unknown lane type");
}

bool is_floating(Lane lane) { return lane == Lane::f32 || lane == Lane::f64; }

std::string_view tier_suffix(Tier tier) {
    switch (tier) {
    case Tier::standard: return "";
    case Tier::native: return "_native";
    case Tier::half: return "_half";
    case Tier::rm: return "_rm";
    }
    throw std::logic_error("unknown tier");
}

int physical_lanes(int width) { return lanes_in(width); }

std::vector<Lane> Family::outputs() const {
    std::vector<Lane> lanes = results;
    if (out) lanes.push_back(*out);
    return lanes;
}

const std::vector<Family>& families() { return index().families; }

const Family* find_family(std::string_view name) {
    auto found = index().by_name.find(name);
    return found == index().by_name.end() ? nullptr : &index().families[found->second];
}

std::string short_name(const Family& family, int width) {
    return family.stem + std::to_string(width) + std::string(tier_suffix(family.tier));
}

std::string export_name(const Family& family, int width) {
    return std::string(export_prefix) + short_name(family, width);
}

std::vector<ParsedName> parse_short_name(std::string_view name) {
    std::vector<ParsedName> readings;
    for (Tier tier : {Tier::standard, Tier::native, Tier::half, Tier::rm}) {
        std::string_view suffix = tier_suffix(tier);
        if (!name.ends_with(suffix)) continue;
        std::string_view front = name.substr(0, name.size() - suffix.size());
        for (int width : widths) {
            std::string token = std::to_string(width);
            if (!front.ends_with(token)) continue;
            std::string family_name{front.substr(0, front.size() - token.size())};
            family_name += suffix;
            // A stem that itself looks like a suffixed name cannot be mistaken: no stem holds an underscore.
            const Family* family = find_family(family_name);
            if (family && family->tier == tier) readings.push_back({family, width});
        }
    }
    return readings;
}

std::vector<int> part_bits(Lane lane, int width) {
    bool fills_wide = physical_lanes(width) * lane_size(lane) >= 32;
    return std::vector<int>(static_cast<std::size_t>(part_count(lane, width)), fills_wide ? 256 : 128);
}

Form call_form(const Family& family, int width) { return in_memory(family, width) ? Form::memory : Form::registers; }

Preserved preserved(const Family& family, int width) {
    if (call_form(family, width) == Form::memory) return Preserved::nothing_more;
    // Only the integer divisions have an integer element type.
    if (width == 1 && !is_floating(family.element)) return Preserved::pointers;
    return Preserved::upper_vectors_and_pointers;
}

int out_bytes(const Family& family, int width) {
    return family.out ? physical_lanes(width) * lane_size(*family.out) : 0;
}

std::uint64_t lane3_fill(const Family& family, int argument) {
    const Fill& fill = index().fills.find(family.operation)->second;
    const double floating = argument == 1 ? fill.second : fill.floating;
    switch (family.arguments.at(static_cast<std::size_t>(argument))) {
    case Lane::f32: return std::bit_cast<std::uint32_t>(static_cast<float>(floating));
    case Lane::f64: return std::bit_cast<std::uint64_t>(floating);
    default: return fill.integer;
    }
}

}  // namespace tuvo
