#pragma once

// A mutex and a condition variable that clang's -Wthread-safety can check. Private to the library:
// programs see these types only as members of the classes that they use.

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "audioUtils/detail/DeferredLog.h"

#if defined(__clang__)
#define KELDA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KELDA_THREAD_ANNOTATION(x)
#endif

#define KELDA_CAPABILITY(name) KELDA_THREAD_ANNOTATION(capability(name))
#define KELDA_SCOPED_CAPABILITY KELDA_THREAD_ANNOTATION(scoped_lockable)
#define KELDA_GUARDED_BY(mutex) KELDA_THREAD_ANNOTATION(guarded_by(mutex))
#define KELDA_REQUIRES(...) KELDA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KELDA_EXCLUDES(...) KELDA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define KELDA_ACQUIRE(...) KELDA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KELDA_RELEASE(...) KELDA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KELDA_NO_THREAD_SAFETY_ANALYSIS KELDA_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace audioUtils::detail {

/// Messages for the log are handed to the mutex while it is held; it appends them once it has been
/// given up. So an appender that blocks, on a full pipe or a slow disk, holds up its own thread
/// alone.
class KELDA_CAPABILITY("mutex") Mutex
{
public:
    /// Throws std::system_error when the system refuses the lock.
    void lock() KELDA_ACQUIRE() { m_mutex.lock(); }

    void unlock() KELDA_RELEASE()
    {
        if (__builtin_expect(m_lines.empty(), true)) {
            m_mutex.unlock();
            return;
        }
        const std::vector<DeferredLine> lines = std::exchange(m_lines, {});
        m_mutex.unlock(); // from here on this object may be gone
        appendLines(lines);
    }

    /// @param file, function and logger must live for ever
    void log(int level, std::string text, const char* file, int line, const char* function,
             const log4cplus::Logger* logger) KELDA_REQUIRES(this)
    {
        m_lines.push_back({logger, level, std::move(text), file, line, function});
    }

private:
    friend class Condition;
    std::mutex m_mutex;
    std::vector<DeferredLine> m_lines;
};

class KELDA_SCOPED_CAPABILITY ScopedLock
{
public:
    explicit ScopedLock(Mutex& mutex) KELDA_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~ScopedLock() KELDA_RELEASE() { m_mutex.unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Mutex& m_mutex;
};

class Condition
{
public:
    /// Gives the mutex up while waiting. Wakes spuriously: always check what was waited for.
    void wait(Mutex& mutex) KELDA_REQUIRES(mutex)
    {
        if (!mutex.m_lines.empty()) { // nobody knows how long the wait will be
            mutex.unlock();
            mutex.lock();
            return;
        }
        std::unique_lock lock(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(lock);
        lock.release(); // it stays locked, and the caller's
    }

    void notifyAll() { m_condition.notify_all(); }

private:
    std::condition_variable m_condition;
};

} // namespace audioUtils::detail
