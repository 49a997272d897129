// Tables of the float circular functions for arguments beyond their main paths, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// `invTwoPiWords`: 256 rows of three 32-bit words, the most significant first, by the exponent field e of a float:
///     W = floor(2^(e - 54) / (2 pi)) modulo 2^96.
/// For |x| = m 2^(e - 150) with the 24-bit significand m, m W modulo 2^96 is the fraction of |x| / (2 pi) in units of
/// 2^-96. Rows up to e = 56 are zero.
RawTable inv_two_pi_words();

/// `sinCosTurnTable`: 256 entries (cosTail, sinHead, sinTail, cosHead) for the points t = 2 pi (i + rotation) / 256 of
/// the turn. cosHead is the power of two nearest to cos t on the logarithmic scale, so that its products are exact; the
/// others are floats: sinHead + sinTail = sin t, cosHead + cosTail = cos t. Rotated by a quarter, 64, what finds the
/// sine in it finds the cosine.
RawTable sin_cos_turn_table(int rotation = 0);

/// `tanPoleTable`: 128 entries of ten floats for the points t = pi i / 128 of the half turn, with u = pi/2 - t the
/// distance to the pole:
///     poleDistHead + poleDistTail = u
///     poleWeight                    1 for i from 32 to 95, else 0
///     valueHead, valueTail, slopeHead, slopeTail, coefR2, coefR3, coefR4: for |r| up to half a step,
///     tan(t + r) = poleWeight / (u - r) + (valueHead + valueTail) + (slopeHead + slopeTail) r + coefR2 r^2 + ...
/// valueHead is the nearest float at r = 0; slopeHead the power of two nearest to the slope there. The others are
/// fitted (fits/tan_pole_table.sollya).
RawTable tan_pole_table();

/// Largest error that the fit of an entry claims for its regular part, relative to it; at the pole itself, i = 64,
/// absolute.
double tan_pole_fit_error(int entry);

}  // namespace tuvo
