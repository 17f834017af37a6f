// Timers that are files.

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/timerfd.h>

#include "support/virtualTime/Event.h"
#include "support/virtualTime/Functions.h"
#include "support/virtualTime/Time.h"

using namespace testSupport::virtualTime;

namespace {

std::array<Event, 16> timers; // a program has one or two at a time

Event* timerOf(int file)
{
    const auto timer = std::ranges::find(timers, file, &Event::file);
    return timer == timers.end() ? nullptr : &*timer;
}

} // namespace

KELDA_INSTEAD int timerfd_create(int clock, int flags) noexcept
{
    static const auto real = KELDA_REAL(timerfd_create);
    static_assert(int{EFD_NONBLOCK} == int{TFD_NONBLOCK} && int{EFD_CLOEXEC} == int{TFD_CLOEXEC});
    Event* const timer = Time::current() == nullptr ? nullptr : timerOf(Event::none);
    return timer == nullptr ? real(clock, flags) : timer->open(flags);
}

// Once, and relative to now: all that is asked for here.
KELDA_INSTEAD int timerfd_settime(int file, int flags, const itimerspec* value,
                                  itimerspec* old) noexcept
{
    static const auto real = KELDA_REAL(timerfd_settime);
    Event* const timer = timerOf(file);
    if (timer == nullptr) {
        return real(file, flags, value, old);
    }
    if (flags != 0 || old != nullptr || nanoseconds(value->it_interval) != 0) {
        errno = ENOSYS;
        return -1;
    }
    Time& time = *Time::current();
    time.waits().remove(*timer);
    timer->calm();
    if (const std::int64_t duration = nanoseconds(value->it_value); duration != 0) {
        time.waits().add(*timer, time.now() + duration);
    }
    return 0;
}

// Its number is soon another file's.
KELDA_INSTEAD int close(int file)
{
    static const auto real = KELDA_REAL(close);
    if (Event* const timer = file < 0 ? nullptr : timerOf(file)) {
        Time::current()->waits().remove(*timer);
        timer->forget();
    }
    return real(file);
}
