#pragma once

#include "miscUtils/Export.h"

/// @file
/// The float filter kit: a low-pass filter as a finely sampled table, and what it weighs out of a
/// signal at any point between two samples. C linkage, no state, safe to call from any thread.
///
/// The impulse response of an ideal low-pass filter with the cut-off f (a fraction of the sampling
/// rate) is sin(2 π f t) / (π t), with t in samples; a Kaiser window makes it finite. It is
/// symmetric, so a table of one wing (t >= 0) serves both. Interpolating a signal x at a point
/// between x[n] and x[n + 1], a fraction p behind x[n], is the sum of two wings:
///
///     y = lrsFilterUp(..., &x[n], p, -1) + lrsFilterUp(..., &x[n + 1], 1 - p, +1)
///
/// FloatBlockFilter.h does the same for whole blocks, much faster.

extern "C" {

/// Designs one wing.
///
/// @param c    receives N values: c[0] = 2 frq, c[i] = sin(2 π frq i / Num) / (π i / Num), times
///             the Kaiser window I0(Beta sqrt(1 - (i / (N - 1))²)) / I0(Beta). Summed over both
///             wings at a spacing of Num they give 1.
/// @param N    length of the wing
/// @param frq  cut-off, as a fraction of the sampling rate (0.5: half of it)
/// @param Beta of the Kaiser window
/// @param Num  values for each zero crossing of a cut-off of 0.5, that is, for each sample
KELDA_EXPORT void lrsLpFilter(double c[], int N, double frq, double Beta, int Num);

/// The inner product of one wing with a signal, at 4096 table entries a sample.
///
/// @param Imp    one wing
/// @param Nwing  entries of the wing
/// @param ImpD   the differences Imp[i + 1] - Imp[i]; past the end the wing is 0
/// @param Interp whether to interpolate linearly between entries
/// @param Xp     the sample nearest to the wing's centre
/// @param Ph     its distance from the centre, in samples, 0 to 1 (both included)
/// @param Inc    -1: the wing goes back in time; +1: forward
/// @return the sum
KELDA_EXPORT float lrsFilterUp(float Imp[], float ImpD[], unsigned Nwing, bool Interp, float* Xp,
                               double Ph, int Inc);

/// The same with a stretched filter, whose cut-off is lower.
///
/// @param Imp, ImpD, Nwing, Interp, Xp, Ph, Inc as for lrsFilterUp()
/// @param dhb table entries for each sample of the signal, at most 4096
/// @return the sum
KELDA_EXPORT float lrsFilterUD(float Imp[], float ImpD[], unsigned Nwing, bool Interp, float* Xp,
                               double Ph, int Inc, double dhb);
}
