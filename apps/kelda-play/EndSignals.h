#pragma once

#include <csignal>
#include <ctime>

#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// The signals that end playing: blocked in this thread and those that it starts, and taken by
/// waitFor() alone.
class EndSignals
{
public:
    EndSignals()
    {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGINT);
        sigaddset(&m_signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &m_signals, &m_previous);
    }
    ~EndSignals() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    /// Whether one has come by now, or comes within so many ns, below a second.
    [[nodiscard]] bool waitFor(miscUtils::TimeValue nanoseconds)
    {
        const timespec timeout{0, static_cast<long>(nanoseconds)};
        m_haveCome = sigtimedwait(&m_signals, nullptr, &timeout) > 0 || m_haveCome;
        return m_haveCome;
    }

    /// Whether one has come at all.
    [[nodiscard]] bool haveCome() { return waitFor(0); }

private:
    sigset_t m_signals{};
    sigset_t m_previous{};
    bool m_haveCome = false;
};

} // namespace keldaPlay
