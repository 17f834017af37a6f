#pragma once

#include <atomic>

#include <sys/eventfd.h>
#include <unistd.h>

#include "support/virtualTime/Waits.h"

namespace testSupport::virtualTime {

/// A file that can be read from when it has been woken.
class Event : public Wait
{
public:
    static constexpr int none = -1;

    /// @return the new file's number; it is the caller's
    int open(int flags) { return m_file = eventfd(0, flags); }
    void forget() { m_file = none; }
    [[nodiscard]] int file() const { return m_file; }

    void wake() override
    {
        const std::uint64_t once = 1;
        static_cast<void>(!write(m_file, &once, sizeof once));
    }

    void calm() const
    {
        std::uint64_t times = 0;
        static_cast<void>(!read(m_file, &times, sizeof times));
    }

private:
    std::atomic<int> m_file = none;
};

} // namespace testSupport::virtualTime
