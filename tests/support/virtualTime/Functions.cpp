// Stands before what a program waits and asks for the time with, preloaded into it (VirtualTime.h
// tells what for). What is not here keeps to the real time.

#include "support/virtualTime/Functions.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <optional>

#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/virtualTime/Event.h"
#include "support/virtualTime/Time.h"

using namespace testSupport::virtualTime;

namespace {

/// Waits as long as it lives, or until it has been woken.
template<typename Kind>
class Waiting : public Kind
{
public:
    template<typename... Arguments>
    Waiting(Time& time, std::int64_t end, Arguments... arguments) : Kind(arguments...), m_time(time)
    {
        m_time.waits().add(*this, end);
    }
    ~Waiting() override { m_time.waits().remove(*this); }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    Time& m_time;
};

class Sleep : public Wait
{
public:
    void wake() override
    {
        m_isOver = 1;
        syscall(SYS_futex, &m_isOver, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    void untilWoken()
    {
        while (m_isOver == 0) {
            syscall(SYS_futex, &m_isOver, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        }
    }

private:
    std::atomic<std::uint32_t> m_isOver = 0;
};

// Those who wait for the condition itself look again, as they must at any time.
class ConditionWait : public Wait
{
public:
    explicit ConditionWait(pthread_cond_t* condition) : m_condition(condition) {}
    void wake() override { pthread_cond_broadcast(m_condition); }

private:
    pthread_cond_t* m_condition;
};

class EventWait : public Event
{
public:
    EventWait() { open(EFD_NONBLOCK | EFD_CLOEXEC); }
    ~EventWait() override { close(file()); }
};

class Input
{
public:
    explicit Input(Time& time) : m_time(time) { m_time.beginInput(); }
    ~Input() { m_time.endInput(); }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

private:
    Time& m_time;
};

bool isStandardInput(const pollfd& file)
{
    return file.fd == STDIN_FILENO;
}

int sleepUntil(Time& time, std::int64_t end)
{
    Waiting<Sleep>(time, end).untilWoken();
    return 0;
}

} // namespace

KELDA_INSTEAD int clock_gettime(clockid_t clock, timespec* result) noexcept
{
    Time* const time = Time::current();
    if (time == nullptr || !Time::hasBecomeVirtual(clock)) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, result));
    }
    *result = time->on(clock);
    return 0;
}

KELDA_INSTEAD int nanosleep(const timespec* duration, timespec* left)
{
    static const auto real = KELDA_REAL(nanosleep);
    Time* const time = Time::current();
    return time == nullptr ? real(duration, left)
                           : sleepUntil(*time, time->now() + nanoseconds(*duration));
}

KELDA_INSTEAD int clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left)
{
    static const auto real = KELDA_REAL(clock_nanosleep);
    Time* const time = Time::current();
    if (time == nullptr || !Time::hasBecomeVirtual(clock)) {
        return real(clock, flags, until, left);
    }
    return sleepUntil(*time, (flags & TIMER_ABSTIME) != 0 ? time->from(clock, *until)
                                                          : time->now() + nanoseconds(*until));
}

KELDA_INSTEAD int usleep(useconds_t microseconds)
{
    static const auto real = KELDA_REAL(usleep);
    Time* const time = Time::current();
    return time == nullptr ? real(microseconds)
                           : sleepUntil(*time, time->now() + std::int64_t{microseconds} * 1000);
}

KELDA_INSTEAD int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                         clockid_t clock, const timespec* until)
{
    static const auto real = KELDA_REAL(pthread_cond_clockwait);
    static const auto wait = KELDA_REAL(pthread_cond_wait);
    Time* const time = Time::current();
    if (time == nullptr) {
        return real(condition, mutex, clock, until);
    }
    const std::int64_t end = time->from(clock, *until);
    const Waiting<ConditionWait> waiting(*time, end, condition);
    const int error = wait(condition, mutex);
    return error == 0 && time->now() >= end ? ETIMEDOUT : error;
}

KELDA_INSTEAD int poll(pollfd* files, nfds_t count, int milliseconds)
{
    static const auto real = KELDA_REAL(poll);
    Time* const time = Time::current();
    std::array<pollfd, 16> all{};
    if (time == nullptr || milliseconds == 0 || count >= all.size()) {
        return real(files, count, milliseconds);
    }
    if (milliseconds < 0) {
        const bool isInput =
            time->waitsForInput() && std::any_of(files, files + count, isStandardInput);
        std::optional<Input> input;
        if (isInput) {
            input.emplace(*time);
        }
        return real(files, count, milliseconds);
    }
    const Waiting<EventWait> event(*time, time->now() + std::int64_t{milliseconds} * 1'000'000);
    std::copy_n(files, count, all.begin());
    all[count] = {event.file(), POLLIN, 0};
    const int ready = real(all.data(), count + 1, -1);
    std::copy_n(all.begin(), count, files);
    return ready > 0 && all[count].revents != 0 ? ready - 1 : ready;
}
