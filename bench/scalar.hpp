// Loops over lanes as a compiler makes them of plain C, for operations that the C library has no function for.
#pragma once

namespace tuvo {

struct Family;

/// The function that does the family's operation on `lanes` lanes, one by one; null if there is none. One lane is
/// called as the kernel of width 1 is; 3, 4 and 8 lanes take their arguments in registers and store the results through
/// a hidden pointer.
const void* scalar_loop(const Family& family, int lanes);

}  // namespace tuvo
