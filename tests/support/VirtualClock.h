#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include <unistd.h>

#include "miscUtils/TimeValue.h"

namespace testSupport {

/// Takes over time for as long as it lives: miscUtils::getMonotonicRawSysclockTime() and usleep()
/// of the whole program, shared libraries included. Time stands still except for advance() and
/// for sleeps, which return at once and move it on. Without a VirtualClock both are the real ones.
///
/// One at a time, made and destroyed while no other thread asks for the time. All calls are safe
/// from any thread. Waiting by other means (condition variables, the standard library's clocks)
/// stays real.
///
///     VirtualClock clock;
///     device.write(block.data(), 480);
///     clock.advance(10'000'000);
///     device.write(block.data(), 480);
///     EXPECT_THAT(clock.takeSleeps(), ElementsAre(10'000));
class VirtualClock
{
public:
    explicit VirtualClock(miscUtils::TimeValue start = 1'000'000'000'000);
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    /// The time as it stands; unlike a reading, asking does not move it.
    [[nodiscard]] miscUtils::TimeValue now() const { return m_now; }

    void advance(miscUtils::TimeValue ns) { m_now += ns; }

    /// How far each reading moves the clock before it returns; 0 at first.
    void setReadingDuration(miscUtils::TimeValue ns) { m_readingDuration = ns; }

    /// How much longer than asked each sleep lasts; 0 at first. A negative value wakes the sleeper
    /// early, but never before it fell asleep.
    void setOversleep(miscUtils::TimeValueDelta ns) { m_oversleep = ns; }

    /// The sleeps asked for, in µs. Recording the first 4096 of them allocates nothing.
    [[nodiscard]] std::vector<useconds_t> sleeps() const;

    /// sleeps(), which are then forgotten.
    [[nodiscard]] std::vector<useconds_t> takeSleeps();

    /// What the replaced functions do meanwhile.
    [[nodiscard]] miscUtils::TimeValue read() { return m_now += m_readingDuration; }
    void sleep(useconds_t us);

private:
    std::atomic<miscUtils::TimeValue> m_now;
    std::atomic<miscUtils::TimeValue> m_readingDuration = 0;
    std::atomic<miscUtils::TimeValueDelta> m_oversleep = 0;
    mutable std::mutex m_mutex;
    std::vector<useconds_t> m_sleeps;
};

} // namespace testSupport
