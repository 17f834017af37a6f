// The filter kits by themselves: a program links with them and nothing else.
#include <array>
#include <cstddef>
#include <cstdlib>

#include "resampleKit/FloatFilterKit.h"
#include "resampleKit/ShortFilterKit.h"

namespace {

// Both wings over a constant signal give the signal back.
bool floatsPass()
{
    constexpr int perSample = 4096;
    constexpr int length = 4 * perSample;
    static std::array<double, length> design;
    static std::array<float, length> wing;
    static std::array<float, length> differences;
    lrsLpFilter(design.data(), length, 0.45, 6, perSample);
    for (std::size_t i = 0; i < design.size(); ++i) {
        wing[i] = static_cast<float>(design[i]);
    }
    std::array<float, 16> ones;
    ones.fill(1);
    const float plain =
        lrsFilterUp(wing.data(), differences.data(), length, false, &ones[7], 0.5, -1) +
        lrsFilterUp(wing.data(), differences.data(), length, false, &ones[8], 0.5, 1);
    const float stretched =
        lrsFilterUD(wing.data(), differences.data(), length, false, &ones[7], 0.5, -1, perSample) +
        lrsFilterUD(wing.data(), differences.data(), length, false, &ones[8], 0.5, 1, perSample);
    return plain > 0.99F && plain < 1.01F && stretched > 0.99F && stretched < 1.01F;
}

bool shortsPass()
{
    constexpr unsigned short length = 1024;
    static std::array<short, length> wing;
    static std::array<short, length> differences;
    unsigned short scale = 0;
    if (makeFilter(wing.data(), differences.data(), &scale, length, 0.9, 6) != 0) {
        return false;
    }
    std::array<short, 16> signal;
    signal.fill(1000);
    const auto level = [scale](int left, int right) {
        return (((left + right) >> 2) * scale + 4096) >> 13;
    };
    constexpr short half = 16384;
    const int plain =
        level(FilterUp(wing.data(), differences.data(), length, false, &signal[7], half, -1),
              FilterUp(wing.data(), differences.data(), length, false, &signal[8], half, 1));
    const int stretched =
        level(FilterUD(wing.data(), differences.data(), length, false, &signal[7], half, -1, 32768),
              FilterUD(wing.data(), differences.data(), length, false, &signal[8], half, 1, 32768));
    return std::abs(plain - 1000) <= 1 && std::abs(stretched - 1000) <= 1;
}

} // namespace

int main()
{
    return floatsPass() && shortsPass() ? 0 : 1;
}
