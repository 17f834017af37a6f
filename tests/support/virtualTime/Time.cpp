#include "support/virtualTime/Time.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace testSupport::virtualTime {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t aLookAtTheClock = 50; // ns

// Not by the names that this library stands before.
std::int64_t realTime(clockid_t clock)
{
    timespec time{};
    syscall(SYS_clock_gettime, clock, &time);
    return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
}

void reallySleep(long nanoseconds)
{
    const timespec duration{0, nanoseconds};
    syscall(SYS_nanosleep, &duration, nullptr);
}

// What this process starts lives in real time again.
SharedPointer takeFromEnvironment()
{
    const char* const path = std::getenv(fileVariable);
    if (path == nullptr) {
        return nullptr;
    }
    SharedPointer shared = map(path);
    unsetenv(fileVariable);
    unsetenv("LD_PRELOAD");
    return shared;
}

// Real time until there is one: what a sanitizer and libc do before.
constinit std::atomic<Time*> running = nullptr;

__attribute__((destructor)) void end()
{
    if (Time* const time = running) {
        time->end();
    }
}

} // namespace

Time* Time::current()
{
    return running;
}

// Before the program's first thread can sleep. Never destroyed: threads may sleep until the process
// is gone.
void Time::begin()
{
    if (SharedPointer shared = takeFromEnvironment()) {
        running = new Time(std::move(shared));
    }
}

Time::Time(SharedPointer shared)
    : m_shared(std::move(shared)),
      m_realtime(realTime(CLOCK_REALTIME)),
      m_monotonic(realTime(CLOCK_MONOTONIC))
{
    m_shared->monotonicAtStart = m_monotonic;
    sigset_t all{};
    sigset_t before{};
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before); // the program's signals are the program's
    pthread_t thread{};
    const auto run = [](void* time) -> void* { static_cast<Time*>(time)->run(); };
    if (pthread_create(&thread, nullptr, run, this) != 0) {
        std::abort();
    }
    pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

std::int64_t Time::now()
{
    return m_shared->now += aLookAtTheClock;
}

bool Time::hasBecomeVirtual(clockid_t clock)
{
    switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_BOOTTIME:
        return true;
    default:
        return false;
    }
}

std::int64_t Time::start(clockid_t clock) const
{
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE ? m_realtime : m_monotonic;
}

timespec Time::on(clockid_t clock)
{
    const std::int64_t time = start(clock) + now();
    return {time / nanosecondsPerSecond, time % nanosecondsPerSecond};
}

std::int64_t Time::from(clockid_t clock, const timespec& time) const
{
    return time.tv_sec * nanosecondsPerSecond + time.tv_nsec - start(clock);
}

void Time::run()
{
    for (;;) {
        if (m_numInputs == 0 && m_threads.allSleep()) {
            moveOn();
        } else {
            reallySleep(20'000);
        }
    }
}

void Time::moveOn()
{
    const std::int64_t next = m_waits.next();
    const std::int64_t limit = m_shared->limit;
    if (next < limit) {
        m_shared->now = std::max<std::int64_t>(m_shared->now, next);
        m_waits.wakeUntil(m_shared->now);
        return;
    }
    if (limit != never) {
        m_shared->now = std::max<std::int64_t>(m_shared->now, limit);
        m_shared->heldAt = limit;
    }
    reallySleep(200'000); // what comes next comes from outside
}

__attribute__((constructor)) static void begin()
{
    Time::begin();
}

} // namespace testSupport::virtualTime
