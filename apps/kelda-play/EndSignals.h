#pragma once

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <string>
#include <thread>

#include "StopEvent.h"
#include "miscUtils/TimeValue.h"

namespace keldaPlay {

/// The signals that end playing, SIGINT and SIGTERM: blocked in this thread and those that it
/// starts, and taken by a thread of its own, which waits for nothing else.
///
/// The first is a request, for haveCome() to tell. The second ends the process, as the signal
/// itself does where nobody takes it, whatever the other threads are at; and so does the first when
/// something is still being opened a moment later (Opening). Then one line on standard error tells
/// why.
class EndSignals
{
public:
    /// Throws std::system_error when there are no descriptors or threads to be had.
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    /// Waits for so many ns, less where the first one comes meanwhile.
    void waitFor(miscUtils::TimeValue nanoseconds);

    [[nodiscard]] bool haveCome();

private:
    void take();
    [[nodiscard]] int nextWithin(int milliseconds) const;
    void announce();
    [[noreturn]] void endProcess(int signal, const std::string& why) const;

    sigset_t m_previous{};
    sigset_t m_signals;
    Descriptor m_arrivals;
    StopEvent m_stop;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_haveCome = false;
    std::thread m_thread;
};

} // namespace keldaPlay
