#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

namespace testSupport {

/// A call on a thread of its own.
template<typename T>
struct BlockedCall
{
    std::future<T> result;
    pid_t thread;
};

/// What it returns; a call that hangs ends the whole program with a message instead of holding up
/// the tests.
template<typename T>
T resultOf(BlockedCall<T>& call)
{
    if (call.result.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        ADD_FAILURE() << "the call was not released";
        std::fflush(stdout);
        std::_Exit(1);
    }
    return call.result.get();
}

/// Whether a thread of this process sleeps: not so from the moment on when it is woken, though it
/// may get a processor much later.
inline bool isAsleep(pid_t thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat, '\0');
    const std::size_t name = stat.rfind(')');
    return name != std::string::npos && stat.compare(name, 3, ") S") == 0;
}

/// Whether a call waits for something. Returns when it has got there, or has returned, however busy
/// the machine.
template<typename T>
bool isBlocked(const BlockedCall<T>& call)
{
    while (call.result.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        if (isAsleep(call.thread)) {
            return true;
        }
    }
    return false;
}

/// Calls on another thread, and returns when the call is at work there.
template<typename Call>
auto callElsewhere(Call call)
{
    std::promise<pid_t> thread;
    auto begun = thread.get_future();
    auto result = std::async(std::launch::async,
                             [call = std::move(call), thread = std::move(thread)]() mutable {
                                 thread.set_value(gettid());
                                 return call();
                             });
    return BlockedCall<decltype(call())>{std::move(result), begun.get()};
}

/// Calls on another thread what is to block, and returns when it does.
template<typename Call>
auto blockedCall(Call call)
{
    auto blocked = callElsewhere(std::move(call));
    EXPECT_TRUE(isBlocked(blocked));
    return blocked;
}

} // namespace testSupport
