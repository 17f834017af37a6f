#include "audioUtils/device/FakeOutputDevice.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using audioUtils::FakeOutputDevice;
using audioUtils::OutputDevice;
using audioUtils::PcmFormat;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;
using testSupport::LogCapture;
using testSupport::VirtualClock;

// Thousands of random calls, each compared in all that can be seen of it with a model that is
// written for plainness: one long function, in the order of the events.

namespace {

constexpr TimeValue us = 1'000;
constexpr TimeValue start = 1'000'000'000'000;

struct Geometry
{
    std::uint64_t bufferSize = 0;
    std::uint64_t periodSize = 0;
    std::uint64_t startThreshold = 0;

    bool operator==(const Geometry&) const = default;
};

/// All that a caller sees of a device.
struct View
{
    bool opened = false;
    Geometry geometry;
    unsigned int sampleRate = 0;
    long delay = 0;
    long timestamp = std::numeric_limits<long>::min();

    bool operator==(const View&) const = default;
};

/// What one call did to the world.
struct Outcome
{
    int result = 0;
    View view;
    TimeValue now = 0;
    std::vector<useconds_t> sleeps;
    std::vector<std::string> lines;

    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    const auto& [opened, geometry, sampleRate, delay, timestamp] = outcome.view;
    return out << "result " << outcome.result << ", opened " << opened << ", buffer "
               << geometry.bufferSize << ", period " << geometry.periodSize << ", threshold "
               << geometry.startThreshold << ", rate " << sampleRate << ", delay " << delay
               << " at " << timestamp << ", now " << outcome.now << ", sleeps "
               << testing::PrintToString(outcome.sleeps) << ", log "
               << testing::PrintToString(outcome.lines);
}

struct ModelClock
{
    TimeValue now = start;
    TimeValue readingDuration = 0;
    TimeValueDelta oversleep = 0;
    std::vector<useconds_t> sleeps;

    TimeValue read()
    {
        now += readingDuration;
        return now;
    }

    void sleep(useconds_t duration)
    {
        sleeps.push_back(duration);
        const TimeValueDelta slept = TimeValueDelta{duration} * 1000 + oversleep;
        if (slept > 0) {
            now += static_cast<TimeValue>(slept);
        }
    }
};

class Model
{
public:
    explicit Model(ModelClock& clock) : m_clock(clock) {}

    int open(const std::string& name, unsigned int sampleRate, const Geometry& geometry)
    {
        if (view.opened) {
            lines.push_back("ERROR Fake output device \"" + m_name + "\" already opened");
            return 0;
        }
        if (geometry.periodSize == 0 || sampleRate == 0) {
            lines.push_back("ERROR Failed to open fake output device \"" + name +
                            "\" with period size: " + std::to_string(geometry.periodSize) +
                            " and sample rate: " + std::to_string(sampleRate) +
                            ", neither can be 0");
            return 0;
        }
        m_name = name;
        view.sampleRate = sampleRate;
        m_running = false;
        m_buffered = 0;
        m_started = false;
        configure(geometry);
        view.opened = true;
        return 1;
    }

    int adjustParams(const Geometry& geometry)
    {
        if (!view.opened) {
            lines.emplace_back("ERROR Failed to adjust params, device has not been opened yet");
            return 0;
        }
        if (geometry.periodSize == 0) {
            lines.emplace_back("ERROR Failed to adjust params, period size cannot be 0");
            return 0;
        }
        configure(geometry);
        return 1;
    }

    void close()
    {
        view.opened = false;
        view.delay = 0;
        view.timestamp = std::numeric_limits<long>::min();
    }

    int write(std::uint64_t numFrames)
    {
        if (!view.opened) {
            lines.emplace_back("ERROR Failed to write, device has not been opened yet");
            return 2;
        }
        const auto& [bufferSize, periodSize, startThreshold] = view.geometry;
        TimeValue now = m_clock.read();
        const TimeValue period = periodSize * 1'000'000'000 / view.sampleRate;
        int result = 0;
        bool block = false;
        bool accepted = false;

        if (m_running) {
            const TimeValue periods = (now - m_boundary) / period;
            if (m_buffered > periods * periodSize) {
                m_buffered = m_buffered - periods * periodSize + numFrames;
                m_boundary += periods * period;
                block = m_buffered > bufferSize;
                accepted = true;
            } else {
                m_running = false;
                m_buffered = 0;
                lines.emplace_back("WARN Underrun occurred");
                result = 1;
            }
        }
        if (!accepted) {
            m_buffered += numFrames;
            if (m_buffered > bufferSize) {
                m_running = m_started = true;
                m_boundary = now;
                block = true;
            } else if (m_buffered >= startThreshold) {
                m_running = m_started = true;
                m_boundary = now;
            }
        }
        if (block) {
            std::uint64_t periods = 0;
            std::uint64_t left = m_buffered;
            while (left > bufferSize) {
                ++periods;
                left = left > periodSize ? left - periodSize : 0;
            }
            const TimeValue deadline = m_boundary + periods * period;
            do {
                m_clock.sleep(deadline - now < us ? 1
                                                  : static_cast<useconds_t>((deadline - now) / us));
                now = m_clock.read();
            } while (now < deadline);
            m_buffered = left;
            m_boundary = deadline;
        }
        view.delay = static_cast<long>(m_buffered * 1'000'000 / view.sampleRate);
        view.timestamp = m_started ? static_cast<long>(m_boundary / us) : 0;
        return result;
    }

    [[nodiscard]] bool running() const { return m_running; }

    View view;
    std::vector<std::string> lines;

private:
    void configure(const Geometry& geometry)
    {
        view.geometry = geometry;
        auto& [bufferSize, periodSize, startThreshold] = view.geometry;
        while (bufferSize % periodSize != 0) {
            ++bufferSize;
        }
        if (bufferSize != geometry.bufferSize) {
            lines.push_back(
                "DEBUG Buffer size adjusted from: " + std::to_string(geometry.bufferSize) +
                " to: " + std::to_string(bufferSize));
        }
        if (bufferSize < startThreshold) {
            lines.push_back("DEBUG Start threshold adjusted from: " +
                            std::to_string(startThreshold) + " to: " + std::to_string(bufferSize));
            startThreshold = bufferSize;
        }
    }

    ModelClock& m_clock;
    std::string m_name;
    bool m_running = false;
    bool m_started = false;
    std::uint64_t m_buffered = 0;
    TimeValue m_boundary = 0;
};

/// One stream of random calls, made to the device and to the model.
class FakeOutputDeviceRandomTest : public testing::TestWithParam<unsigned int>
{
protected:
    std::uint64_t random(std::uint64_t least, std::uint64_t most)
    {
        return std::uniform_int_distribution(least, most)(m_random);
    }

    bool oneIn(std::uint64_t count) { return random(1, count) == 1; }

    Geometry randomGeometry()
    {
        const std::uint64_t period = oneIn(20) ? 0 : random(1, 600);
        const std::uint64_t buffer = oneIn(4) ? random(0, 2000) : period * random(0, 5);
        return {buffer, period, random(0, buffer + buffer / 4)};
    }

    unsigned int randomRate()
    {
        constexpr unsigned int rates[] = {8000, 44100, 48000, 192000, 1000};
        return oneIn(20) ? 0 : rates[random(0, std::size(rates) - 1)];
    }

    /// Makes the next call; returns its name.
    std::string step()
    {
        const std::uint64_t choice = random(1, 100);
        if (choice <= 2) {
            m_device.close();
            m_model.close();
            return "close";
        }
        if (choice <= 8) {
            return open();
        }
        if (choice <= 12) {
            const Geometry geometry = randomGeometry();
            m_seen.result = m_device.adjustParams(geometry.bufferSize, geometry.periodSize,
                                                  geometry.startThreshold)
                                ? 1
                                : 0;
            m_expected.result = m_model.adjustParams(geometry);
            return "adjustParams";
        }
        if (choice <= 14) {
            setSleepError();
            return "set sleep error";
        }
        if (choice <= 45) {
            advance();
            return "advance";
        }
        return write();
    }

    std::string open()
    {
        const Geometry geometry = randomGeometry();
        const unsigned int rate = randomRate();
        const std::string name = "device " + std::to_string(random(0, 999));
        m_seen.result = m_device.open(name, PcmFormat::S16LE, rate, 2, geometry.bufferSize,
                                      geometry.periodSize, geometry.startThreshold, false, "")
                            ? 1
                            : 0;
        m_expected.result = m_model.open(name, rate, geometry);
        return "open";
    }

    std::string write()
    {
        const std::uint64_t buffer = m_model.view.geometry.bufferSize;
        const std::uint64_t frames = oneIn(3) ? m_model.view.geometry.periodSize
                                              : random(0, oneIn(10) ? 3 * buffer : buffer);
        m_seen.result = m_device.write(nullptr, frames);
        m_expected.result = m_model.write(frames);
        ++m_results[static_cast<std::size_t>(m_expected.result)];
        m_writesThatSlept += m_modelClock.sleeps.empty() ? 0 : 1;
        return "write of " + std::to_string(frames);
    }

    // Every reading takes a nanosecond at least: a running device's clock never stands still.
    void setSleepError()
    {
        m_modelClock.readingDuration = oneIn(2) ? 1 : random(1, 50 * us);
        m_modelClock.oversleep =
            static_cast<TimeValueDelta>(random(0, oneIn(2) ? 1000 : 2000 * us));
        if (oneIn(2)) {
            m_modelClock.oversleep = std::max(-m_modelClock.oversleep, TimeValueDelta{-1000});
        }
        m_clock.setReadingDuration(m_modelClock.readingDuration);
        m_clock.setOversleep(m_modelClock.oversleep);
    }

    // By some part of the buffer, and now and then to the boundary where it has just run dry.
    void advance()
    {
        const auto& [opened, geometry, rate, delay, timestamp] = m_model.view;
        if (rate == 0) {
            return;
        }
        const TimeValue period = geometry.periodSize * 1'000'000'000 / rate;
        const TimeValue ns = oneIn(4) ? period * random(0, 3) : random(0, 2 * period);
        m_clock.advance(ns);
        m_modelClock.now += ns;
    }

    void expectSame(const std::string& call)
    {
        const audioUtils::RenderingDelay delay = m_device.lastRenderingDelay();
        m_seen.view = {m_device.isOpened(),
                       {m_device.bufferSize(), m_device.periodSize(), m_device.startThreshold()},
                       m_device.sampleRate(),
                       delay.delay,
                       delay.timestamp};
        m_seen.now = m_clock.now();
        m_seen.sleeps = m_clock.takeSleeps();
        m_seen.lines = m_log.takeLines();

        m_expected.view = m_model.view;
        m_expected.now = m_modelClock.now;
        m_expected.sleeps = std::exchange(m_modelClock.sleeps, {});
        m_expected.lines = std::exchange(m_model.lines, {});
        ASSERT_EQ(m_seen, m_expected) << "after " << call;
        ASSERT_EQ(m_device.getCompensatedRenderingDelay(), m_expected.view.delay * 1000);
        ASSERT_EQ(m_device.framesReady(), static_cast<int>(m_expected.view.geometry.periodSize));
    }

    std::mt19937_64 m_random{GetParam()};
    VirtualClock m_clock{start};
    ModelClock m_modelClock;
    LogCapture m_log{"AudioUtils"};
    FakeOutputDevice m_device;
    Model m_model{m_modelClock};
    Outcome m_seen;
    Outcome m_expected;
    int m_results[3] = {};
    int m_writesThatSlept = 0;
};

TEST_P(FakeOutputDeviceRandomTest, BehavesLikeThePlainModel)
{
    setSleepError();
    for (int call = 0; call < 5'000; ++call) {
        m_seen.result = m_expected.result = -1;
        const std::string name = step();
        ASSERT_NO_FATAL_FAILURE(expectSame(name + ", call " + std::to_string(call)));
    }
    // The calls were worth making.
    EXPECT_GT(m_results[OutputDevice::Success], 500);
    EXPECT_GT(m_results[OutputDevice::Underrun], 100);
    EXPECT_GT(m_results[OutputDevice::NotOpened], 100);
    EXPECT_GT(m_writesThatSlept, 100);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FakeOutputDeviceRandomTest, testing::Values(1, 2, 3, 4, 5, 6));

} // namespace
