#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace testSupport::virtualTime {

/// The file in which a program's time is kept; empty where nobody else has to do with it. Without
/// it in the environment time is the real one.
constexpr const char* fileVariable = "KELDA_VIRTUAL_TIME";

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

/// What the program and the test share. Times are ns since the program was loaded.
struct Shared
{
    std::atomic<std::int64_t> now = 0;
    std::atomic<std::int64_t> limit = never; ///< the program's time stops here
    std::atomic<std::int64_t> heldAt = 0;   ///< the limit at which it stands, and all threads sleep
    std::atomic<bool> waitsForInput = true; ///< time stands still while it waits for standard input
    std::atomic<bool> hasEnded = false;
    std::atomic<std::int64_t> monotonicAtStart = 0; ///< what the monotonic clocks showed then
};

struct Unmap
{
    void operator()(Shared* shared) const { munmap(shared, sizeof(Shared)); }
};
using SharedPointer = std::unique_ptr<Shared, Unmap>;

/// @return null when there is no such file
inline SharedPointer map(const std::string& path)
{
    if (path.empty()) {
        void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return SharedPointer(memory == MAP_FAILED ? nullptr : new (memory) Shared);
    }
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return nullptr;
    }
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return SharedPointer(memory == MAP_FAILED ? nullptr : static_cast<Shared*>(memory));
}

} // namespace testSupport::virtualTime
