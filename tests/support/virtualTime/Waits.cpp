#include "support/virtualTime/Waits.h"

#include <algorithm>
#include <utility>

#include "support/virtualTime/Shared.h"

namespace testSupport::virtualTime {

void Waits::add(Wait& wait, std::int64_t time)
{
    const std::lock_guard lock(m_mutex);
    unlink(wait);
    wait.m_time = time;
    wait.m_next = std::exchange(m_first, &wait);
    wait.m_isListed = true;
}

void Waits::remove(Wait& wait)
{
    const std::lock_guard lock(m_mutex);
    unlink(wait);
}

std::int64_t Waits::next()
{
    const std::lock_guard lock(m_mutex);
    std::int64_t time = never;
    for (const Wait* wait = m_first; wait != nullptr; wait = wait->m_next) {
        time = std::min(time, wait->m_time);
    }
    return time;
}

// Under the lock: what is woken must not be gone.
void Waits::wakeUntil(std::int64_t now)
{
    const std::lock_guard lock(m_mutex);
    for (Wait* wait = m_first; wait != nullptr;) {
        Wait* const next = wait->m_next;
        if (wait->m_time <= now) {
            unlink(*wait);
            wait->wake();
        }
        wait = next;
    }
}

void Waits::unlink(Wait& wait)
{
    if (!wait.m_isListed) {
        return;
    }
    Wait** link = &m_first;
    while (*link != &wait) {
        link = &(*link)->m_next;
    }
    *link = wait.m_next;
    wait.m_isListed = false;
}

} // namespace testSupport::virtualTime
