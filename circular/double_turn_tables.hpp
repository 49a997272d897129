// Tables of the double circular functions for arguments beyond their main paths, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// `invTwoPiWords64`: 2,048 rows of three 64-bit words, the most significant first, by the exponent field e of a
/// double:
///     W = floor(2^(e - 883) / (2 pi)) modulo 2^192.
/// For |x| = m 2^(e - 1075) with the 53-bit significand m, m W modulo 2^192 is the fraction of |x| / (2 pi) in units of
/// 2^-192. Rows up to e = 885 are zero.
RawTable inv_two_pi_words64();

/// `sinCosTurnTable64`: 512 entries (cosTail, cosHead, sinHead, sinTail) for the points t = 2 pi (i + rotation) / 512
/// of the turn. cosHead is the power of two nearest to cos t, so that its products are exact; cosTail and sinHead are
/// doubles, sinTail has 24 bits: sinHead + sinTail = sin t, cosHead + cosTail = cos t. Rotated by a quarter, 128, what
/// finds the sine in it finds the cosine.
RawTable sin_cos_turn_table64(int rotation = 0);

/// `circle_points`, for the rare routines: 64 entries (cosTail, sinHead, sinTail, cosHead) for the points t = 2 pi i /
/// 64, made like those above but for sinTail, which is rounded to nearest.
RawTable circle_points_table();

/// `four_over_pi_slices`: 51 doubles. From the second to the last but one, the k-th are the bits 2^(1 - 25 k) and 24
/// above of 4/pi, 25 in all, times 2^200; the first and the last are 0.
RawTable four_over_pi_slices_table();

/// `tanPoleTable64`: 256 entries of thirteen doubles for the points t = pi i / 256 of the half turn, with u = pi/2 - t
/// the distance to the pole:
///     poleDistHead + poleDistTail = u
///     poleWeight                    1 for i from 64 to 191, else 0
///     valueHead, valueTail, slopeHead, slopeTail, coefR2 to coefR7: for |r| up to half a step,
///     tan(t + r) = poleWeight / (u - r) + (valueHead + valueTail) + (slopeHead + slopeTail) r + coefR2 r^2 + ...
/// valueHead is the nearest double at r = 0; slopeHead the power of two nearest to the slope there. The others are
/// fitted (fits/tan_pole_table64.sollya). The kernels read neither poleDistTail nor valueTail.
RawTable tan_pole_table64();

/// Largest error that the fit of an entry claims for its regular part, relative to it; at the pole itself, i = 128,
/// absolute.
double tan_pole_fit_error64(int entry);

}  // namespace tuvo
