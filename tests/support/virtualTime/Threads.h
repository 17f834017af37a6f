#pragma once

#include <cstdint>
#include <vector>

#include <sys/types.h>

namespace testSupport::virtualTime {

/// Tells whether a process has nothing to do: every thread but the one that asks sleeps.
///
/// A thread that waits for a processor, however long, does not sleep.
class Threads
{
public:
    /// From the thread that is not counted.
    [[nodiscard]] bool allSleep();

private:
    struct Thread
    {
        pid_t id = 0;
        std::int64_t used = 0; ///< processor time in ns
    };

    std::vector<Thread> m_threads;
};

} // namespace testSupport::virtualTime
