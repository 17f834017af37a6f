#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

namespace testSupport {

/// The result of a call on another thread; a call that hangs ends the whole program with a message
/// instead of holding up the tests.
template<typename T>
T resultOf(std::future<T>& future)
{
    if (future.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        ADD_FAILURE() << "the call was not released";
        std::fflush(stdout);
        std::_Exit(1);
    }
    return future.get();
}

template<typename T>
bool isBlocked(const std::future<T>& future)
{
    return future.wait_for(std::chrono::milliseconds(30)) == std::future_status::timeout;
}

/// Whether a thread of this process sleeps; true where that can't be known.
inline bool isAsleep(pid_t thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat, '\0');
    const std::size_t name = stat.rfind(')');
    return name == std::string::npos || stat.compare(name, 3, ") S") == 0;
}

/// Calls on another thread what is to block, and returns when it does: however busy the machine,
/// the thread has got there.
template<typename Call>
auto blockedCall(Call call)
{
    std::promise<pid_t> thread;
    auto begun = thread.get_future();
    auto result = std::async(std::launch::async,
                             [call = std::move(call), thread = std::move(thread)]() mutable {
                                 thread.set_value(gettid());
                                 return call();
                             });
    const pid_t caller = begun.get();
    bool isThere = false;
    for (int i = 0; i < 10'000 && !isThere; ++i) {
        isThere = isBlocked(result) && isAsleep(caller);
    }
    EXPECT_TRUE(isThere);
    return result;
}

} // namespace testSupport
