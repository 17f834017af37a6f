// How long a call of the audio path can take at worst: a table, one line a call.
//
// Each call is made in a sequence of a few thousand blocks with all that makes it slow (gaps,
// jumps, fades, changes of the ratio), and the sequence is repeated. Interruptions by the system
// hit other calls each time; so the least time of each call over the repetitions is the call's own,
// and the largest of these is what the code takes at worst. The last column is the largest of all,
// with whatever the machine did meanwhile.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include "audioUtils/PcmQueue.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/clickRemover/ClickRemover.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/resample/HighQualityResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"

namespace {

using Microseconds = std::chrono::duration<double, std::micro>;
using audioUtils::AlsaOutputDevice;
using audioUtils::PcmQueue;
using miscUtils::TimeValue;

constexpr int calls = 3000;
constexpr int repetitions = 15;
constexpr std::size_t frames = 480; // 10 ms at 48 kHz
constexpr std::size_t samples = 2 * frames;
constexpr TimeValue blockDuration = 10'000'000; // ns

/// The call of this number, after whatever has to come before it.
using Call = std::function<void(int number)>;

struct Times
{
    std::vector<double> least = std::vector<double>(calls, std::numeric_limits<double>::max());
    double largest = 0; // us
};

/// @param prepare makes the object anew; what it gives is measured, and what it has to do first not
void measure(const std::string& name, const std::function<std::pair<Call, Call>()>& prepare)
{
    Times times;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        const auto [before, call] = prepare();
        for (int number = 0; number < calls; ++number) {
            before(number);
            const auto start = std::chrono::steady_clock::now();
            call(number);
            const double us = Microseconds(std::chrono::steady_clock::now() - start).count();
            double& least = times.least[static_cast<std::size_t>(number)];
            least = std::min(least, us);
            times.largest = std::max(times.largest, us);
        }
    }
    std::ranges::sort(times.least);
    std::cout << std::left << std::setw(54) << name << std::right << std::fixed
              << std::setprecision(2) << std::setw(10) << times.least[calls / 2] << std::setw(10)
              << times.least.back() << std::setw(12) << times.largest << '\n';
}

void nothing(int /*number*/) {}

/// When the packet or block of a number is due: a gap now and then, a jump back, a jump ahead.
TimeValue due(int number)
{
    TimeValue time = 5'000'000'000 + static_cast<TimeValue>(number) * blockDuration;
    if (number % 100 == 50) {
        time += 40'000'000;
    }
    if (number % 1000 > 500) {
        time += 3'000'000'000;
    }
    return time;
}

std::shared_ptr<PcmQueue> queue()
{
    auto made = std::make_shared<PcmQueue>();
    made->configure(true, 200, 48000, 2, 2, "q", true, 20'000'000, 10'000'000);
    return made;
}

void measureQueue()
{
    const std::vector<unsigned char> packet(samples * 2, 1);
    std::vector<unsigned char> block(samples * 2);
    const auto write = [&](PcmQueue& to, int number) { to.write(due(number), packet); };
    const auto read = [&](PcmQueue& from, int number) {
        miscUtils::TimeValueDelta delta = 0;
        from.read(due(number), block, delta);
    };
    measure("PcmQueue::write, with gaps and jumps", [&] {
        const auto made = queue();
        return std::pair<Call, Call>(
            [=](int number) {
                if (number > 4) {
                    read(*made, number - 4);
                }
                made->flushOldData(due(number) - 10 * blockDuration);
            },
            [=](int number) { write(*made, number); });
    });
    measure("PcmQueue::read, with gaps and jumps", [&] {
        const auto made = queue();
        return std::pair<Call, Call>(
            [=](int number) {
                made->flushOldData(due(number) - 10 * blockDuration);
                write(*made, number);
            },
            [=](int number) { read(*made, number); });
    });
}

template<typename T>
void measureClickRemover(const std::string& type)
{
    measure("ClickRemover<" + type + ">::process, a gap each second", [] {
        const auto remover = std::make_shared<audioUtils::ClickRemover<T>>(10, 5, 5, false);
        const auto block = std::make_shared<std::vector<T>>(samples);
        return std::pair<Call, Call>(
            [=](int number) {
                std::ranges::fill(*block, number % 100 < 90 ? T(1000) : T(0));
                if (number % 300 == 150) {
                    remover->notifyUnderrun(static_cast<std::uint64_t>(number) * frames + 100,
                                            48000);
                }
            },
            [=](int) { remover->process(block->data(), 48000, 2, frames); });
    });
}

/// @param process converts so many samples
template<typename Resampler, typename Sample, typename Process>
void measureResampler(const std::string& name, Process process)
{
    measure(name + ", Best, new ratio each block", [process] {
        const auto resampler = std::make_shared<Resampler>(2, Resampler::Best);
        const auto in = std::make_shared<std::vector<Sample>>(samples, Sample(1000));
        const auto out = std::make_shared<std::vector<Sample>>(4 * samples);
        return std::pair<Call, Call>(
            [=](int number) {
                resampler->setSamplingRate(48000, 48004.8F + static_cast<float>(number % 50));
            },
            [=](int) {
                auto room = static_cast<unsigned int>(out->size());
                process(*resampler, in->data(), out->data(), room);
            });
    });
}

void measureResamplers()
{
    using audioUtils::HighQualityResampler;
    using audioUtils::HighQualityResamplerShort;
    measureResampler<HighQualityResampler, float>(
        "HighQualityResampler", [](auto& resampler, auto* in, auto* out, unsigned int& room) {
            resampler.processFloat(in, samples, out, room, false, false);
        });
    measureResampler<HighQualityResamplerShort, unsigned short>(
        "HighQualityResamplerShort", [](auto& resampler, auto* in, auto* out, unsigned int& room) {
            resampler.processShort(in, samples, out, room, false, false);
        });
    measure("HighQualityResampler::setSamplingRate", [] {
        const auto resampler =
            std::make_shared<HighQualityResampler>(2, HighQualityResampler::Best);
        return std::pair<Call, Call>(nothing, [=](int number) {
            resampler->setSamplingRate(48000, 48004.8F + static_cast<float>(number % 50));
        });
    });
}

void measureCompensator()
{
    measure("PllDriftCompensator::update", [] {
        const auto adjustment = std::make_shared<int>(0);
        const auto compensator = std::make_shared<PllDriftCompensator>(
            -100'000, 100'000, 200, 10, 0, [=](int value) { *adjustment = value; }, 10, 0.1);
        return std::pair<Call, Call>(nothing, [=](int number) {
            compensator->update(number % 7 * 1000L - 3000, due(number));
        });
    });
}

/// On ALSA's own "null" device, which takes everything at once: what is measured is ours, and
/// libasound's.
void measureDevice()
{
    const auto open = [] {
        auto device = std::make_shared<AlsaOutputDevice>();
        if (!device->open("null", audioUtils::S16LE, 48000, 2, 4096, 480, 480, false, "")) {
            std::cerr << "no null device\n";
            std::exit(1);
        }
        return device;
    };
    measure("AlsaOutputDevice::write, device null", [&] {
        const auto block = std::make_shared<std::vector<short>>(samples, short{1});
        return std::pair<Call, Call>(
            nothing, [block, device = open()](int) { device->write(block->data(), frames); });
    });
    measure("AlsaOutputDevice::getCompensatedRenderingDelay", [&] {
        return std::pair<Call, Call>(nothing, [device = open()](int) {
            static_cast<void>(device->getCompensatedRenderingDelay());
        });
    });
}

} // namespace

int main()
{
    const log4cplus::Initializer logging;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    std::cout << "us per call, stereo, blocks of 10 ms at 48 kHz; " << repetitions << " times "
              << calls << " calls\n"
              << std::left << std::setw(54) << "" << std::right << std::setw(10) << "median"
              << std::setw(10) << "worst" << std::setw(12) << "worst seen" << '\n';
    measureQueue();
    measureClickRemover<short>("short");
    measureClickRemover<int>("int");
    measureClickRemover<float>("float");
    measureResamplers();
    measureCompensator();
    measureDevice();
}
