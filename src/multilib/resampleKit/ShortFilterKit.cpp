#include "resampleKit/ShortFilterKit.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "resampleKit/KaiserSinc.h"
#include "resampleKit/ShortArithmetic.h"

using namespace resampleKit;

namespace {

constexpr int unitySum = 1 << 15; // of the weights of both wings
// (2^15 x >> 13) >> 2 is the sample x itself.
constexpr unsigned short unityScale = 1 << 13;

/// One weight of a phase; in the centre's phase all but the centre stand for two.
struct Weight
{
    int entry;
    double exact;
    int multiple;
};

/// Rounds the weights of one phase so that they sum up to unity: those that come nearest to the
/// next integer go there.
void roundToUnity(std::vector<Weight>& weights, short imp[])
{
    int missing = unitySum;
    for (const Weight& weight : weights) {
        imp[weight.entry] = static_cast<short>(std::lround(weight.exact));
        missing -= weight.multiple * imp[weight.entry];
    }
    const int direction = missing > 0 ? 1 : -1;
    const auto error = [&](const Weight& weight) {
        return direction * (weight.exact - imp[weight.entry]);
    };
    while (missing != 0) {
        const bool odd = missing % 2 != 0;
        const auto best = std::ranges::max_element(weights, {}, [&](const Weight& weight) {
            const bool fits = odd ? weight.multiple == 1 : std::abs(missing) >= weight.multiple;
            return fits ? error(weight) : -1e9;
        });
        imp[best->entry] = static_cast<short>(imp[best->entry] + direction);
        missing -= direction * best->multiple;
    }
}

} // namespace

int makeFilter(short Imp[], short ImpD[], unsigned short* LpScl, unsigned short Nwing, double Froll,
               double Beta)
{
    const auto exact = [&](int entry) {
        return unitySum * lowPass(static_cast<double>(entry) / entriesPerSampleShort, Froll / 2) *
               kaiser(static_cast<double>(entry) / (Nwing - 1), Beta);
    };
    for (int phase = 0; phase <= entriesPerSampleShort / 2; ++phase) {
        const int mirrored = entriesPerSampleShort - phase;
        std::vector<Weight> weights;
        // In phase 0 the wings share all but the centre, in the middle one they are the same.
        const bool shared = phase == 0 || phase == mirrored;
        for (int entry = phase; entry < Nwing; entry += entriesPerSampleShort) {
            weights.push_back({entry, exact(entry), shared && entry != 0 ? 2 : 1});
        }
        for (int entry = mirrored; entry < Nwing && !shared; entry += entriesPerSampleShort) {
            weights.push_back({entry, exact(entry), 1});
        }
        roundToUnity(weights, Imp);
    }
    for (int entry = 0; entry < Nwing; ++entry) {
        const int next = entry + 1 < Nwing ? Imp[entry + 1] : 0;
        ImpD[entry] = static_cast<short>(next - Imp[entry]);
    }
    *LpScl = unityScale;
    return 0;
}

int FilterUp(short Imp[], short ImpD[], unsigned short Nwing, bool Interp, short* Xp, short Ph,
             short Inc)
{
    constexpr unsigned short wholeSample = entriesPerSampleShort << fractionBits;
    return FilterUD(Imp, ImpD, Nwing, Interp, Xp, Ph, Inc, wholeSample);
}

int FilterUD(short Imp[], short ImpD[], unsigned short Nwing, bool Interp, short* Xp, short Ph,
             short Inc, unsigned short dhb)
{
    std::int64_t sum = 0;
    for (std::uint32_t position = startOf(static_cast<unsigned short>(Ph), Inc, dhb);
         position >> fractionBits < Nwing; position += dhb) {
        const std::uint32_t entry = position >> fractionBits;
        const std::int64_t fraction = Interp ? position & (fractionOne - 1) : 0;
        sum += (std::int64_t{Imp[entry]} * fractionOne + ImpD[entry] * fraction) * *Xp;
        Xp += Inc;
    }
    return rounded(sum);
}
