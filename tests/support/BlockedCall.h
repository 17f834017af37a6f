#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>

#include <gtest/gtest.h>

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

} // namespace testSupport
