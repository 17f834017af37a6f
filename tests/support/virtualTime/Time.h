#pragma once

#include <atomic>
#include <cstdint>

#include <time.h>

#include "support/virtualTime/Shared.h"
#include "support/virtualTime/Threads.h"
#include "support/virtualTime/Waits.h"

namespace testSupport::virtualTime {

/// The time of this process. While a thread has something to do it stands still, but for a moment
/// that each look at a clock takes; when all sleep, it is at once the next time that one waits for.
///
/// All calls but run() from any thread.
class Time
{
public:
    /// @return null where time is the real one
    static Time* current();

    /// Once, when the library is loaded: takes the file that the environment names, if it does.
    static void begin();

    /// ns since the process was loaded; asking moves it on.
    [[nodiscard]] std::int64_t now();

    /// The same on one of the system's clocks.
    [[nodiscard]] timespec on(clockid_t clock);
    /// @return never where the clock is none that has become virtual
    [[nodiscard]] std::int64_t from(clockid_t clock, const timespec& time) const;
    [[nodiscard]] static bool hasBecomeVirtual(clockid_t clock);

    [[nodiscard]] Waits& waits() { return m_waits; }

    /// While a thread waits for standard input, time stands still, or not.
    [[nodiscard]] bool waitsForInput() const { return m_shared->waitsForInput; }
    void beginInput() { ++m_numInputs; }
    void endInput() { --m_numInputs; }

    void end() { m_shared->hasEnded = true; }

private:
    explicit Time(SharedPointer shared);
    [[nodiscard]] std::int64_t start(clockid_t clock) const;
    [[noreturn]] void run();
    void moveOn();

    SharedPointer m_shared;
    std::atomic<int> m_numInputs = 0;
    std::int64_t m_realtime = 0; ///< what the clocks showed at the start, ns
    std::int64_t m_monotonic = 0;
    Waits m_waits;
    Threads m_threads;
};

} // namespace testSupport::virtualTime
