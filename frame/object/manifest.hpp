// Descriptions of the exports for those who bind to them: a JSON manifest and LLVM declarations.
#pragma once

#include <ostream>
#include <vector>

#include "frame/description/operations.hpp"

namespace tuvo {

/// Writes the manifest of the six exports of each family in `built`, in that order and by ascending width.
///
/// The top level holds `soname`, `prefix` (of every symbol) and `exports`, an array of objects with one line each:
///
/// - `symbol`: name in the object, `name`: the same without the prefix.
/// - `operation`, `element` ("float", "double", "int", "uint"), `tier` ("", "native", "half", "rm"), `width`.
/// - `rounding` ("rte", "rtn", "rtp", "rtz") and `saturation` ("sat", "nosat"): words of conversions, else null.
/// - `form`: "registers" or "memory".
/// - `arguments`, `results`: values in order. Each has `type` ("float", "double", "int", "uint", "long", "ulong"),
///   `lanes` (those that the value occupies: 4 at width 3), and `parts`, the sizes in bits of its registers, lower
///   lanes first.
/// - `packed`: whether the two results share one register: lane 0 and lane 1 of xmm0, or the low and the high 32 bits
///   of rax.
/// - `out`: null, or `type`, `lanes` and `bytes` of what the call stores through its out-pointer.
/// - `preserved`: the registers that hold their value over the call; a ymm register is preserved with all 256 bits.
///
/// How values are placed, in the form "registers": the parts of all arguments take ymm0, ymm1, ... in order, counting
/// up over the arguments, a part of 128 bits its xmm half; the parts of all results likewise. A value with `parts` []
/// and `register` "general" is an integer of width 1: arguments take rdi, rsi (edi, esi if 32 bits wide) in order, the
/// result rax (eax). An out-pointer is in rdi. Lanes of a part above `width` are ignored on input and undefined on
/// output.
///
/// In the form "memory": the arguments lie on the stack from the first word above the return address, without gaps,
/// each `lanes` times the lane's size; rdi points to room for all results, one behind the other, and comes back in rax;
/// an out-pointer is in rsi. No alignment is required of the stack or of any pointer.
void write_exports_json(std::ostream& out, const std::vector<const Family*>& built);

/// Writes LLVM declarations of the same exports, readable by LLVM 14. A parameter of vector type is one part: a value
/// of two or more parts is passed as that many parameters and returned as a structure of parts. What the calls preserve
/// beyond the platform's convention does not show in a declaration; the manifest tells it.
void write_exports_ll(std::ostream& out, const std::vector<const Family*>& built);

}  // namespace tuvo
