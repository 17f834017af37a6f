#pragma once

#include <cstdint>

#include <dlfcn.h>
#include <time.h>

// What the functions share that stand before the system's.
#define KELDA_REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define KELDA_INSTEAD extern "C" __attribute__((visibility("default")))

namespace testSupport::virtualTime {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

constexpr std::int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
}

} // namespace testSupport::virtualTime
