#include "support/AllocationCounter.h"

#include <cerrno>
#include <cstddef>

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the system's.

namespace {

// Static TLS: touching it never allocates.
constinit thread_local std::uint64_t allocationsOfThisThread = 0;

} // namespace

#if KELDA_SANITIZER_OWNS_HEAP

// From <sanitizer/allocator_interface.h>, which gcc's packages lack.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*,
                                                                          std::size_t),
                                                         void (*onFree)(const volatile void*));

namespace {

void countAllocation(const volatile void* /*memory*/, std::size_t /*size*/)
{
    ++allocationsOfThisThread;
}

void ignoreRelease(const volatile void* /*memory*/) {}

[[maybe_unused]] const int hooksInstalled =
    __sanitizer_install_malloc_and_free_hooks(countAllocation, ignoreRelease);

} // namespace

#else

// The allocator of the C library under its internal names. Every `new` ends there too.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

#define KELDA_REPLACES_LIBC __attribute__((visibility("default")))

KELDA_REPLACES_LIBC void* malloc(std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_malloc(size);
}

KELDA_REPLACES_LIBC void* calloc(std::size_t count, std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_calloc(count, size);
}

KELDA_REPLACES_LIBC void* realloc(void* memory, std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_realloc(memory, size);
}

KELDA_REPLACES_LIBC void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_memalign(alignment, size);
}

KELDA_REPLACES_LIBC void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return memalign(alignment, size);
}

KELDA_REPLACES_LIBC int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept
{
    const bool powerOfTwo = (alignment & (alignment - 1)) == 0;
    if (alignment == 0 || !powerOfTwo || alignment % sizeof(void*) != 0) {
        return EINVAL;
    }
    void* memory = memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *out = memory;
    return 0;
}
} // extern "C"

#endif

// NOLINTEND(bugprone-reserved-identifier)

namespace testSupport {

AllocationCounter::AllocationCounter() : m_before(allocationsOfThisThread) {}

std::uint64_t AllocationCounter::count() const
{
    return allocationsOfThisThread - m_before;
}

} // namespace testSupport
