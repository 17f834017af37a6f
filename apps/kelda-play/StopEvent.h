#pragma once

#include <cerrno>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

namespace keldaPlay {

/// Tells a thread that waits for a file descriptor to wait no longer.
class StopEvent
{
public:
    StopEvent() : m_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (m_fd < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }
    ~StopEvent() { close(m_fd); }
    StopEvent(const StopEvent&) = delete;
    StopEvent& operator=(const StopEvent&) = delete;

    /// From any thread, once and for all.
    void set() { static_cast<void>(eventfd_write(m_fd, 1)); }

    /// Readable as soon as it is set.
    [[nodiscard]] int fd() const { return m_fd; }

private:
    int m_fd;
};

} // namespace keldaPlay
