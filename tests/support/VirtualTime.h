#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "support/virtualTime/Shared.h"

namespace testSupport {

/// The time of a program that a test starts. It moves on only while all the program's threads
/// sleep, and then at once to the next moment that one of them waits for: what plays for a minute
/// takes a second or so, and never comes late, however busy the machine is. What the program
/// calculates takes no time; what comes from outside (a signal, a pipe, a file of the test's) comes
/// at a time that the test says:
///
///     VirtualTime time;
///     time.holdAt(1500ms);
///     Process player(time.environment() + "kelda-play sound.wav");
///     ASSERT_TRUE(time.isHeld());
///     kill(player.id(), SIGINT);
///     time.release();
///
/// Sleeps, conditions' time-outs, poll() and timer files are in virtual time; what the program
/// starts itself, and what other programs do, is not. One program at a time.
class VirtualTime
{
public:
    using Duration = std::chrono::nanoseconds;

    VirtualTime();
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    /// The beginning of a shell's command, which tells the next program; its time begins anew.
    /// @param preloaded another library to be loaded into it
    [[nodiscard]] std::string environment(const std::string& preloaded = "");

    /// Time stops at this one, counted from when the program was loaded.
    void holdAt(Duration time) { m_shared->limit = time.count(); }
    void release() { m_shared->limit = virtualTime::never; }

    /// Waits until it has come to the time at which it is held, and all that is to happen until
    /// then has happened.
    /// @return false where it does not come there, or has ended before
    [[nodiscard]] bool isHeld() const;

    /// Lets it come to where something has become so, looking each millisecond of its time; it is
    /// held there.
    template<typename Condition>
    [[nodiscard]] bool runUntil(Condition condition)
    {
        while (!condition()) {
            if (!pass(std::chrono::milliseconds(1))) {
                return false;
            }
        }
        return true;
    }

    /// Passes for the program as it does for one that has been stopped: it can do nothing
    /// meanwhile. While it is held.
    void leap(Duration duration) { m_shared->now += duration.count(); }

    /// Before a program is started that is to be held: nothing of the last one's is left.
    void beginAnew();

    /// Time goes on while the program waits for its standard input. Else what writes that takes no
    /// time.
    void goOnWithoutInput() { m_shared->waitsForInput = false; }

    /// Lets so much of its time pass; it is held then.
    /// @return false where it has ended before
    [[nodiscard]] bool pass(Duration duration)
    {
        holdAt(now() + duration);
        return isHeld();
    }

    /// What the program's monotonic clocks show, in ns, once it is loaded.
    [[nodiscard]] std::int64_t monotonic() const
    {
        return m_shared->monotonicAtStart + m_shared->now;
    }

    [[nodiscard]] Duration now() const { return Duration(m_shared->now); }

private:
    std::filesystem::path m_file;
    virtualTime::SharedPointer m_shared;
};

} // namespace testSupport
