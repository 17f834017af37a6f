#pragma once

#include "miscUtils/Export.h"

/// @file
/// The 16-bit filter kit: as FloatFilterKit.h, in fixed point. C linkage, no state, safe to call
/// from any thread.
///
/// A table has 256 entries a sample; its entries and the samples are 16-bit, their products are
/// summed exactly and rounded once, at the end of a wing. An output sample is
///
///     y = (((left + right) >> 2) * LpScl + 4096) >> 13, clipped to 16 bits
///
/// which is the signal's own level for a constant signal, within 1. ShortBlockFilter.h does the
/// same for whole blocks, bit for bit, much faster.

extern "C" {

/// Designs one wing: the Kaiser-windowed low-pass filter of lrsLpFilter(), scaled to integers.
///
/// At each of the 256 phases the entries of both wings are rounded so that their sum is exactly
/// 2^15.
///
/// @param Imp   receives Nwing entries
/// @param ImpD  receives the differences Imp[i + 1] - Imp[i]; past the end the wing is 0
/// @param LpScl receives the scale for unity gain, with 13 fraction bits
/// @param Nwing a multiple of 256, from 512 on
/// @param Froll cut-off, as a fraction of half the sampling rate, at most 0.99
/// @param Beta  of the Kaiser window
/// @return 0
KELDA_EXPORT int makeFilter(short Imp[], short ImpD[], unsigned short* LpScl, unsigned short Nwing,
                            double Froll, double Beta);

/// The inner product of one wing with a signal, divided by 2^13 and rounded.
///
/// Full-scale input does not overflow.
///
/// @param Imp    one wing
/// @param ImpD   the differences Imp[i + 1] - Imp[i]; past the end the wing is 0
/// @param Nwing  entries of the wing
/// @param Interp whether to interpolate linearly between entries
/// @param Xp     the sample nearest to the wing's centre
/// @param Ph     its distance from the centre, in 1/32768 of a sample; with Inc = +1, 0 means a
///               whole sample, for it is what (-time) & 32767 gives there
/// @param Inc    -1: the wing goes back in time; +1: forward
/// @return the sum
KELDA_EXPORT int FilterUp(short Imp[], short ImpD[], unsigned short Nwing, bool Interp, short* Xp,
                          short Ph, short Inc);

/// The same with a stretched filter, whose cut-off is lower.
///
/// The sum of the weights is that of FilterUp() times 32768 / dhb.
///
/// @param Imp, ImpD, Nwing, Interp, Xp, Ph, Inc as for FilterUp()
/// @param dhb table entries for each sample of the signal, with 7 fraction bits: 32768 is 256
///            entries
/// @return the sum
KELDA_EXPORT int FilterUD(short Imp[], short ImpD[], unsigned short Nwing, bool Interp, short* Xp,
                          short Ph, short Inc, unsigned short dhb);
}
