// Tables of log-gamma and gamma, from the fits and by rule. All are read by rare routines only.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Of `lgammaf_rare`, in doubles, rising powers: eleven coefficients a binade from 4 on, in x / 2^(n + 2) - 1; those of
/// lgamma x / (x - 2) for x in (2, 4); and of four intervals of a quarter from 1 on, in x, and in x - 1.46... for the
/// second.
RawTable lgammaf_binades();
RawTable lgammaf_two_to_four();
RawTable lgammaf_quarters();
/// Rows (low, zero, high, c0, c1, c2, c3) for the zeros next to -2.457, -2.748, -3.144, -3.955: log |gamma| at zero + t.
RawTable lgammaf_zeros();

/// A number of 80 bits is two values of 64: significand, and sign with exponent.
///
/// Of all the routines: (c, -log c) for c near 1 / (1 + (i + 1/2) / 128), c of 10 bits.
RawTable gamma_log_table();

/// Of `lgamma_rare`: the binades from 4 to 512, the intervals between them and 0.875, and the reflection.
RawTable lgamma_binades();
RawTable lgamma_from_9_4();
RawTable lgamma_about_2();
RawTable lgamma_about_least();
RawTable lgamma_about_1();
RawTable lgamma_reflection();
/// Rows (low, zero, rest of the zero, high, sixteen coefficients of log |gamma| / t), two for each unit from -2 to -15.
RawTable lgamma_zeros();

/// Of `tgammaf_rare`, in doubles: rows (six a, six b, lead) from 2, 8, 16 ... 40 on; and eight coefficients for each
/// quarter from 1 on.
RawTable tgammaf_segments();
RawTable tgammaf_small();

/// Of `tgamma_rare`, in 80 bits: 24 coefficients from 2, 16, 32 ... 176 on; sixteen for each quarter from 1 on; and
/// sin(pi z) / (pi z) in z^2.
RawTable tgamma_segments();
RawTable tgamma_small();
RawTable tgamma_sine();

}  // namespace tuvo
