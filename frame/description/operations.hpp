// The operation table: the one source of what the library can export.
//
// A *family* is one operation in one element type and one tier; it has six exports, one for each width. Everything that
// loops over the library (the generator, the manifest, tests, benches, reports) loops over `families()`.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tuvo {

/// Element type of one lane.
enum class Lane : std::uint8_t { f32, f64, i32, u32, i64, u64 };

/// Size of a lane in bytes: 4 or 8.
int lane_size(Lane lane);
/// C spelling used in the manifest: "float", "double", "int", "uint", "long", "ulong".
std::string_view lane_name(Lane lane);
bool is_floating(Lane lane);

/// A separate implementation of an operation, at its own point between speed and fidelity.
enum class Tier : std::uint8_t { standard, native, half, rm };
/// "", "_native", "_half", "_rm".
std::string_view tier_suffix(Tier tier);

/// The six widths, in lanes. Width 3 has the room of four lanes everywhere.
inline constexpr std::array<int, 6> widths{1, 2, 3, 4, 8, 16};
/// Lanes that a value of this width occupies in registers and memory: the width, but 4 for width 3.
int physical_lanes(int width);

enum class Rounding : std::uint8_t { none, rte, rtn, rtp, rtz };
enum class Saturation : std::uint8_t { none, nosat, sat };

/// How a call passes its values.
enum class Form : std::uint8_t {
    registers,  ///< vector arguments and results in registers; rsi, rdi and ymm8 to ymm15 preserved
    memory,     ///< arguments on the stack, result through a hidden pointer; plain System V otherwise
};

/// What a call preserves beyond the System V rules.
enum class Preserved : std::uint8_t {
    upper_vectors_and_pointers,  ///< ymm8 to ymm15 (all 256 bits), rsi, rdi
    pointers,                    ///< rsi, rdi only: the width-1 integer divisions
    nothing_more,                ///< the memory form
};

struct Family {
    std::string stem;  ///< operation and type letter: "logf", "cvtfptoi32rtesatf", "idiv"
    Tier tier = Tier::standard;
    std::string operation;        ///< "log", "cvtfptoi32rtesat", "idiv"
    Lane element = Lane::f32;     ///< the type letter's lane; i32 or u32 for the integer divisions; the source lane
                                  ///< of conversions from floating point, the target lane of those to it
    std::vector<Lane> arguments;  ///< one to three vector arguments
    std::vector<Lane> results;    ///< one or two values that are returned
    std::optional<Lane> out;      ///< lane of the value stored through the out-pointer
    bool has_rare = false;        ///< whether the kernels have a rare path
    std::string rare_routine;     ///< "logf_rare"; empty without a rare path
    int blocks = 0;               ///< constant blocks, 0 to 3
    Rounding rounding = Rounding::none;
    Saturation saturation = Saturation::none;

    /// "logf_half": stem and tier suffix.
    std::string name() const { return stem + std::string(tier_suffix(tier)); }
    /// All values that the call yields: results, then the out-value.
    std::vector<Lane> outputs() const;
};

/// All 361 families, in a fixed order.
const std::vector<Family>& families();
/// The family of that name ("logf_half"), or null.
const Family* find_family(std::string_view name);

inline constexpr std::string_view export_prefix = "__ocl_tuvo_e9_";
inline constexpr std::string_view soname = "__ocl_tuvo_e9.so.3.5";
inline constexpr std::string_view debug_name = "__ocl_tuvo_e9.so.debug";

/// "logf4_half", without the export prefix.
std::string short_name(const Family& family, int width);
/// "__ocl_tuvo_e9_logf4_half".
std::string export_name(const Family& family, int width);

struct ParsedName {
    const Family* family;
    int width;
};
/// Every reading of a short name against the table; exactly one for a name of the library, none for any other text.
std::vector<ParsedName> parse_short_name(std::string_view name);

/// Sizes in bits of the parts of a vector value, lower lanes first: {128}, {256}, {256, 256} ...
std::vector<int> part_bits(Lane lane, int width);

Form call_form(const Family& family, int width);
Preserved preserved(const Family& family, int width);

/// Bytes that a call stores through its out-pointer: width (4 at width 3) times the lane size.
int out_bytes(const Family& family, int width);

/// The value that replaces lane 3 of an argument at width 3, as a bit pattern; zero means that the lane is cleared.
/// It lies inside the range that the vector path of the operation finishes.
std::uint64_t lane3_fill(const Family& family, int argument);

}  // namespace tuvo
