#pragma once

#include <cstdint>
#include <mutex>

namespace testSupport::virtualTime {

/// Something that is to happen at a time. Making one tells nobody: see Waits.
class Wait
{
public:
    Wait() = default;
    virtual ~Wait() = default;
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    /// At once, without waiting for anybody: whoever is woken no longer sleeps when it returns.
    virtual void wake() = 0;

private:
    friend class Waits;
    std::int64_t m_time = 0;
    Wait* m_next = nullptr;
    bool m_isListed = false;
};

/// All that waits for a time, in no order: there are a handful. Allocates nothing.
class Waits
{
public:
    /// Until it has been woken, or is taken out.
    void add(Wait& wait, std::int64_t time);
    void remove(Wait& wait);

    /// @return the earliest time that something waits for; `never`
    [[nodiscard]] std::int64_t next();

    /// Wakes what waits for this time or an earlier one.
    void wakeUntil(std::int64_t now);

private:
    void unlink(Wait& wait);

    std::mutex m_mutex;
    Wait* m_first = nullptr;
};

} // namespace testSupport::virtualTime
