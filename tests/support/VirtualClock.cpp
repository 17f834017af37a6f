#include "support/VirtualClock.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <ctime>

namespace testSupport {

using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

constexpr TimeValue nanosecondsPerSecond = 1'000'000'000;
constexpr std::size_t sleepsWithoutAllocation = 4096;

// Relaxed, so that asking for the real time orders nothing between the threads that do.
std::atomic<VirtualClock*> current = nullptr;

VirtualClock* virtualClock()
{
    return current.load(std::memory_order_relaxed);
}

TimeValue readRealClock()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<TimeValue>(now.tv_sec) * nanosecondsPerSecond +
           static_cast<TimeValue>(now.tv_nsec);
}

int sleepReally(useconds_t us)
{
    const TimeValue ns = TimeValue{us} * 1000;
    const timespec duration{static_cast<time_t>(ns / nanosecondsPerSecond),
                            static_cast<long>(ns % nanosecondsPerSecond)};
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, nullptr);
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

} // namespace

VirtualClock::VirtualClock(TimeValue start) : m_now(start)
{
    m_sleeps.reserve(sleepsWithoutAllocation);
    VirtualClock* none = nullptr;
    [[maybe_unused]] const bool first = current.compare_exchange_strong(none, this);
    assert(first && "one virtual clock at a time");
}

VirtualClock::~VirtualClock()
{
    current = nullptr;
}

std::vector<useconds_t> VirtualClock::sleeps() const
{
    const std::lock_guard lock(m_mutex);
    return m_sleeps;
}

std::vector<useconds_t> VirtualClock::takeSleeps()
{
    const std::lock_guard lock(m_mutex);
    std::vector<useconds_t> sleeps = m_sleeps;
    m_sleeps.clear(); // keeps its memory
    return sleeps;
}

void VirtualClock::sleep(useconds_t us)
{
    const TimeValueDelta slept = TimeValueDelta{us} * 1000 + m_oversleep;
    m_now += static_cast<TimeValue>(std::max(slept, TimeValueDelta{0}));
    const std::lock_guard lock(m_mutex);
    m_sleeps.push_back(us);
}

} // namespace testSupport

// Being the program's own, these come before the ones in the shared libraries.

namespace miscUtils {

KELDA_EXPORT TimeValue getMonotonicRawSysclockTime()
{
    testSupport::VirtualClock* const clock = testSupport::virtualClock();
    return clock != nullptr ? clock->read() : testSupport::readRealClock();
}

} // namespace miscUtils

extern "C" KELDA_EXPORT int usleep(useconds_t us)
{
    testSupport::VirtualClock* const clock = testSupport::virtualClock();
    if (clock == nullptr) {
        return testSupport::sleepReally(us);
    }
    clock->sleep(us);
    return 0;
}
