#include "EndSignals.h"

#include <array>
#include <chrono>

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "Opening.h"
#include "OutputFile.h"

namespace keldaPlay {

namespace {

// Instead of a signal's number.
constexpr int timeIsOver = 0;
constexpr int stopped = -1;

constexpr int forEver = -1;
constexpr int moment = 700; // ms in which most things open

sigset_t blocked(sigset_t& previous)
{
    sigset_t signals{};
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &previous);
    return signals;
}

// Before the renderer, which runs at the lowest real-time priority where the user may ask for one.
void precedeOthers()
{
    const sched_param priority{sched_get_priority_min(SCHED_FIFO) + 1};
    static_cast<void>(pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority));
}

// A terminal that was stopped, or a pipe that nobody reads, must not hold up the end.
void printIfPossible(const std::string& text)
{
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) > 0) {
        static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
    }
}

} // namespace

EndSignals::EndSignals()
    : m_signals(blocked(m_previous)),
      m_arrivals(signalfd(-1, &m_signals, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"),
      m_thread([this] { take(); })
{
}

EndSignals::~EndSignals()
{
    m_stop.set();
    m_thread.join();
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

void EndSignals::waitFor(miscUtils::TimeValue nanoseconds)
{
    std::unique_lock lock(m_mutex);
    m_condition.wait_for(lock, std::chrono::nanoseconds(nanoseconds),
                         [this, before = m_haveCome] { return m_haveCome != before; });
}

bool EndSignals::haveCome()
{
    const std::lock_guard lock(m_mutex);
    return m_haveCome;
}

void EndSignals::take()
{
    precedeOthers();
    for (int first = timeIsOver;;) {
        const int signal = nextWithin(first == timeIsOver ? forEver : moment);
        if (signal == stopped) {
            return;
        }
        if (signal == timeIsOver) {
            if (const auto what = Opening::current()) {
                endProcess(first, " while " + *what + " was being opened");
            }
        } else if (first != timeIsOver) {
            endProcess(signal, ", the second signal, at once");
        } else {
            first = signal;
            announce();
        }
    }
}

int EndSignals::nextWithin(int milliseconds) const
{
    std::array<pollfd, 2> files{{{m_arrivals.get(), POLLIN, 0}, {m_stop.fd(), POLLIN, 0}}};
    poll(files.data(), files.size(), milliseconds);
    if (files[1].revents != 0) {
        return stopped;
    }
    signalfd_siginfo arrival{};
    return read(m_arrivals.get(), &arrival, sizeof arrival) == sizeof arrival
               ? static_cast<int>(arrival.ssi_signo)
               : timeIsOver;
}

void EndSignals::announce()
{
    {
        const std::lock_guard lock(m_mutex);
        m_haveCome = true;
    }
    m_condition.notify_all();
}

// As if it had not been blocked, for the shell and whoever else has started this process to see.
// What is left to do here may hang as well: the next signal needs nobody's help any more.
void EndSignals::endProcess(int signal, const std::string& why) const
{
    for (const int each : {SIGINT, SIGTERM}) {
        struct sigaction action = {};
        if (sigaction(each, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            action.sa_handler = SIG_DFL; // std::system() has it ignored while it waits
            sigaction(each, &action, nullptr);
        }
    }
    pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
    printIfPossible(std::string(isatty(STDERR_FILENO) != 0 ? "\n" : "") + "kelda-play: ended by " +
                    (signal == SIGINT ? "SIGINT" : "SIGTERM") + why + "\n");
    keldaFiles::removeUnfinished();
    raise(signal);
    _exit(128 + signal); // the first process of a container gets no signal that it does not handle
}

} // namespace keldaPlay
