// Plays silence, and tells whether the device's delay can be relied on: the due times of its blocks
// should lie on a straight line.
//     watch_device [DEVICE [SECONDS]]      of ALSA's; without one, a simulated device, for 2 s
#include "audioUtils/Logging.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>
using namespace audioUtils;

int main(int argc, char** argv)
{
    logToStandardError();
    AlsaOutputDevice card;
    FakeOutputDevice simulated;
    OutputDevice& device = argc > 1 ? static_cast<OutputDevice&>(card) : simulated;
    if (!device.open(argc > 1 ? argv[1] : "", S16LE, 48000, 2, 3840, 480, 3840, false, ""))
        return 1; // the log says why
    std::printf("%u Hz, period %lu, buffer %lu, start %lu frames\n", device.sampleRate(),
                device.periodSize(), device.bufferSize(), device.startThreshold());

    const unsigned long period = device.periodSize();
    const double nominal = static_cast<double>(period) * 1e9 / device.sampleRate(); // ns
    const double seconds = argc > 2 ? std::atof(argv[2]) : 2;
    std::vector<unsigned char> silence(period * device.numChannels() * device.numBytesPerSample());
    std::vector<double> off; // how much later than nominal each block is heard, ns
    int underruns = 0;
    const miscUtils::TimeValue start = miscUtils::getMonotonicRawSysclockTime();
    for (double n = 0; n * nominal < seconds * 1e9; ++n) {
        const auto passed = static_cast<double>(miscUtils::getMonotonicRawSysclockTime() - start);
        const auto delay = static_cast<double>(device.getCompensatedRenderingDelay());
        if (n * nominal > 0.5e9) // once it runs
            off.push_back(passed + delay - n * nominal);
        const auto result = device.write(silence.data(), period);
        underruns += result == OutputDevice::Underrun ? 1 : 0;
        if (result >= OutputDevice::NotOpened)
            return 1;
    }
    if (off.empty())
        return 1;
    double sumXX = 0, sumY = 0, sumXY = 0; // a straight line through them
    const auto count = static_cast<double>(off.size());
    const auto x = [&](std::size_t i) { return static_cast<double>(i) - (count - 1) / 2; };
    for (std::size_t i = 0; i < off.size(); ++i)
        sumXX += x(i) * x(i), sumY += off[i], sumXY += x(i) * off[i];
    for (std::size_t i = 0; i < off.size(); ++i)
        off[i] = std::abs(off[i] - sumY / count - x(i) * sumXY / sumXX) * 1e-6;
    std::sort(off.begin(), off.end());
    std::printf("%.1f ppm fast; due times off a line: 99 %% by at most %.3f ms, worst %.3f ms\n",
                -sumXY / sumXX / nominal * 1e6, off[off.size() * 99 / 100], off.back());
    std::printf("%d underruns, delay %.1f ms\n", underruns,
                static_cast<double>(device.getCompensatedRenderingDelay()) * 1e-6);
    return 0;
}
