#include "resampleKit/FloatFilterKit.h"

#include "resampleKit/KaiserSinc.h"

namespace {

constexpr double entriesPerSample = 4096;

/// One wing, walked in steps of so many entries.
float innerProduct(const float* imp, const float* impD, unsigned nwing, bool interpolate,
                   const float* x, double position, int inc, double step)
{
    double sum = 0;
    while (position < nwing) {
        const auto entry = static_cast<unsigned>(position);
        double weight = imp[entry];
        if (interpolate) {
            weight += impD[entry] * (position - entry);
        }
        sum += weight * *x;
        x += inc;
        position += step;
    }
    return static_cast<float>(sum);
}

} // namespace

void lrsLpFilter(double c[], int N, double frq, double Beta, int Num)
{
    for (int i = 0; i < N; ++i) {
        const double position = N > 1 ? static_cast<double>(i) / (N - 1) : 0;
        c[i] = resampleKit::lowPass(static_cast<double>(i) / Num, frq) *
               resampleKit::kaiser(position, Beta);
    }
}

float lrsFilterUp(float Imp[], float ImpD[], unsigned Nwing, bool Interp, float* Xp, double Ph,
                  int Inc)
{
    return innerProduct(Imp, ImpD, Nwing, Interp, Xp, Ph * entriesPerSample, Inc, entriesPerSample);
}

float lrsFilterUD(float Imp[], float ImpD[], unsigned Nwing, bool Interp, float* Xp, double Ph,
                  int Inc, double dhb)
{
    return innerProduct(Imp, ImpD, Nwing, Interp, Xp, Ph * dhb, Inc, dhb);
}
