#pragma once

#include <sys/eventfd.h>

#include "Descriptor.h"

namespace keldaPlay {

/// Tells a thread that waits for a file descriptor to wait no longer.
class StopEvent
{
public:
    /// Throws std::system_error when there is no descriptor to be had.
    StopEvent() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {}

    /// From any thread, once and for all.
    void set() { static_cast<void>(eventfd_write(fd(), 1)); }

    /// Readable as soon as it is set.
    [[nodiscard]] int fd() const { return m_event.get(); }

private:
    Descriptor m_event;
};

} // namespace keldaPlay
