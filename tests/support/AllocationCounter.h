#pragma once

#include <cstdint>

// Whether a sanitizer allocates in malloc's place, and ends the program where malloc would fail.
#if defined(__has_feature)
#define KELDA_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KELDA_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) ||                               \
    KELDA_HAS_FEATURE(address_sanitizer) || KELDA_HAS_FEATURE(thread_sanitizer)
#define KELDA_SANITIZER_OWNS_HEAP 1
#else
#define KELDA_SANITIZER_OWNS_HEAP 0
#endif

namespace testSupport {

/// Counts the heap allocations that the calling thread makes while it lives: new, malloc, calloc,
/// realloc and the aligned ones, in the program and in every shared library. (Under ThreadSanitizer
/// the aligned ones escape it.)
///
///     const AllocationCounter allocations;
///     device.write(block.data(), 480);
///     EXPECT_EQ(allocations.count(), 0);
class AllocationCounter
{
public:
    AllocationCounter();
    ~AllocationCounter() = default;
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    /// Allocations since construction. Only for the thread that made the counter.
    [[nodiscard]] std::uint64_t count() const;

private:
    std::uint64_t m_before;
};

} // namespace testSupport
