// For preloading into a program that plays through libasound: counts what the thread that plays
// does to the heap and to locks, outside of libasound's own functions, and by which code. From its
// 200th block to its last; the rest is preparing and putting away.
//
// At the end it writes lines of "kind count caller" into the file that KELDA_WATCH names: "heap"
// and "lock", with the function or the file that called, and "block" for the blocks.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <alsa/asoundlib.h>
#include <csignal>
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the system's.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace {

constexpr std::uint64_t firstBlock = 200;

struct Caller
{
    const char* kind = nullptr;
    const void* address = nullptr; // or the number of a system call
    std::uint64_t count = 0;
};

using Callers = std::array<Caller, 256>;

struct Watched
{
    std::uint64_t blocks = 0;
    Callers sinceBlock; // not yet counted: it may be the end
    Callers all;
};

constinit Watched watched; // of the one thread that plays
constinit thread_local bool plays = false;
constinit thread_local int insideKnown = 0;

void add(Callers& callers, const Caller& more)
{
    for (Caller& caller : callers) {
        if (caller.kind == nullptr ||
            (caller.address == more.address && caller.kind == more.kind)) {
            caller = {more.kind, more.address, caller.count + more.count};
            return;
        }
    }
    std::abort(); // more callers than anybody would want to read of
}

void count(const char* kind, const void* address)
{
    if (plays && insideKnown == 0) {
        add(watched.sinceBlock, {kind, address, 1});
    }
}

void watchSystemCalls();

void countBlock()
{
    if (!plays) {
        plays = true;
        watchSystemCalls();
    }
    if (++watched.blocks > firstBlock) {
        for (const Caller& caller : watched.sinceBlock) {
            if (caller.kind != nullptr) {
                add(watched.all, caller);
            }
        }
    }
    watched.sinceBlock = {};
}

class InsideKnown
{
public:
    InsideKnown() { ++insideKnown; }
    ~InsideKnown() { --insideKnown; }
    InsideKnown(const InsideKnown&) = delete;
    InsideKnown& operator=(const InsideKnown&) = delete;
};

// The kernel asks this byte of the thread that plays, and sends SIGSYS instead of serving; but
// never for calls out of the section below, which is where the handler returns.
constinit volatile char systemCallsWatched = SYSCALL_DISPATCH_FILTER_ALLOW;

extern "C" const char __start_kelda_watch[];
extern "C" const char __stop_kelda_watch[];
extern "C" void keldaWatchReturn();
asm(".pushsection kelda_watch, \"ax\", @progbits\n"
    "keldaWatchReturn:\n"
    "    mov $15, %eax\n" // rt_sigreturn
    "    syscall\n"
    "    ud2\n" // the kernel looks at the address behind the call
    ".popsection\n");

long serve(long number, const greg_t* registers)
{
    long result = number;
    register long fourth asm("r10") = registers[REG_R10];
    register long fifth asm("r8") = registers[REG_R8];
    register long sixth asm("r9") = registers[REG_R9];
    asm volatile("syscall"
                 : "+a"(result)
                 : "D"(registers[REG_RDI]), "S"(registers[REG_RSI]), "d"(registers[REG_RDX]),
                   "r"(fourth), "r"(fifth), "r"(sixth)
                 : "rcx", "r11", "memory");
    return result;
}

void onSystemCall(int /*signal*/, siginfo_t* info, void* context)
{
    systemCallsWatched = SYSCALL_DISPATCH_FILTER_ALLOW;
    count("system", reinterpret_cast<const void*>(static_cast<long>(info->si_syscall)));
    greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    registers[REG_RAX] = serve(info->si_syscall, registers);
    systemCallsWatched = SYSCALL_DISPATCH_FILTER_BLOCK;
}

void watchSystemCalls()
{
    struct // as the kernel has it
    {
        void (*handler)(int, siginfo_t*, void*);
        unsigned long flags;
        void (*restorer)();
        unsigned long mask;
    } const action{onSystemCall, SA_SIGINFO | SA_NODEFER | 0x04000000UL, keldaWatchReturn, 0};
    const auto size = static_cast<unsigned long>(__stop_kelda_watch - __start_kelda_watch);
    if (syscall(SYS_rt_sigaction, SIGSYS, &action, nullptr, sizeof action.mask) != 0 ||
        prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, __start_kelda_watch, size,
              &systemCallsWatched) != 0) {
        std::perror("No watch of system calls");
        std::abort();
    }
    systemCallsWatched = SYSCALL_DISPATCH_FILTER_BLOCK;
}

template<typename Function>
Function* realOne(Function* /*ours*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void print(std::FILE* file, const Caller& caller)
{
    if (std::strcmp(caller.kind, "system") == 0) {
        std::fprintf(file, "system %lu %ld\n", caller.count,
                     reinterpret_cast<long>(caller.address));
        return;
    }
    Dl_info info{};
    const bool known = dladdr(caller.address, &info) != 0;
    const char* const name = known && info.dli_sname != nullptr ? info.dli_sname : "-";
    const auto offset = static_cast<const char*>(caller.address) -
                        static_cast<const char*>(known ? info.dli_fbase : nullptr);
    std::fprintf(file, "%s %lu %s+0x%lx:%s\n", caller.kind, caller.count,
                 known ? info.dli_fname : "?", static_cast<unsigned long>(offset), name);
}

struct Report
{
    Report() = default;
    ~Report()
    {
        plays = false;
        const char* const path = std::getenv("KELDA_WATCH");
        std::FILE* const file =
            path != nullptr && watched.blocks > firstBlock ? std::fopen(path, "w") : nullptr;
        if (file == nullptr) {
            return;
        }
        std::fprintf(file, "block %lu -\n", watched.blocks - firstBlock);
        for (const Caller& caller : watched.all) {
            if (caller.kind != nullptr) {
                print(file, caller);
            }
        }
        std::fclose(file);
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
};

const Report report;

} // namespace

#define KELDA_STANDS_BEFORE extern "C" __attribute__((visibility("default")))

#define KELDA_HEAP() count("heap", __builtin_return_address(0))

KELDA_STANDS_BEFORE void* malloc(std::size_t size) noexcept
{
    KELDA_HEAP();
    return __libc_malloc(size);
}

KELDA_STANDS_BEFORE void* calloc(std::size_t number, std::size_t size) noexcept
{
    KELDA_HEAP();
    return __libc_calloc(number, size);
}

KELDA_STANDS_BEFORE void* realloc(void* memory, std::size_t size) noexcept
{
    KELDA_HEAP();
    return __libc_realloc(memory, size);
}

KELDA_STANDS_BEFORE void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    KELDA_HEAP();
    return __libc_memalign(alignment, size);
}

KELDA_STANDS_BEFORE void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    KELDA_HEAP();
    return __libc_memalign(alignment, size);
}

KELDA_STANDS_BEFORE void free(void* memory) noexcept
{
    KELDA_HEAP();
    __libc_free(memory);
}

KELDA_STANDS_BEFORE void* _Znwm(std::size_t size) // operator new
{
    KELDA_HEAP();
    const InsideKnown inside;
    static const auto original =
        reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "_Znwm"));
    return original(size);
}

KELDA_STANDS_BEFORE void _ZdlPvm(void* memory, std::size_t /*size*/) noexcept // operator delete
{
    KELDA_HEAP();
    __libc_free(memory);
}

#define KELDA_PASSES_ON(name, parameters, arguments, before)                                       \
    KELDA_STANDS_BEFORE int name parameters                                                        \
    {                                                                                              \
        static const auto original = realOne(&(name), #name);                                      \
        before;                                                                                    \
        const InsideKnown inside;                                                                  \
        return original arguments;                                                                 \
    }

// Functions that take a lock or wait, and those that wake others.
#define KELDA_LOCK(name, parameters, arguments)                                                    \
    KELDA_PASSES_ON(name, parameters, arguments, count("lock", __builtin_return_address(0)))

KELDA_LOCK(pthread_mutex_lock, (pthread_mutex_t * mutex) noexcept, (mutex))
KELDA_LOCK(pthread_mutex_trylock, (pthread_mutex_t * mutex) noexcept, (mutex))
KELDA_LOCK(pthread_mutex_timedlock, (pthread_mutex_t * mutex, const timespec* time) noexcept,
           (mutex, time))
KELDA_LOCK(pthread_mutex_clocklock,
           (pthread_mutex_t * mutex, clockid_t clock, const timespec* time) noexcept,
           (mutex, clock, time))
KELDA_LOCK(pthread_rwlock_rdlock, (pthread_rwlock_t * lock) noexcept, (lock))
KELDA_LOCK(pthread_rwlock_wrlock, (pthread_rwlock_t * lock) noexcept, (lock))
KELDA_LOCK(pthread_spin_lock, (pthread_spinlock_t * lock) noexcept, (lock))
KELDA_LOCK(pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
           (condition, mutex))
KELDA_LOCK(pthread_cond_timedwait,
           (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* time),
           (condition, mutex, time))
KELDA_LOCK(pthread_cond_clockwait,
           (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock,
            const timespec* time),
           (condition, mutex, clock, time))
KELDA_LOCK(pthread_cond_signal, (pthread_cond_t * condition) noexcept, (condition))
KELDA_LOCK(pthread_cond_broadcast, (pthread_cond_t * condition) noexcept, (condition))
KELDA_LOCK(sem_wait, (sem_t * semaphore), (semaphore))

// What is unlocked was locked, and counted. As the last thing that a function does it is jumped to,
// and would be told to be its caller's.
KELDA_PASSES_ON(pthread_mutex_unlock, (pthread_mutex_t * mutex) noexcept, (mutex), )

// What plays calls of libasound.
#define KELDA_DEVICE(result, name, parameters, arguments)                                          \
    KELDA_STANDS_BEFORE result name parameters                                                     \
    {                                                                                              \
        const InsideKnown inside;                                                                  \
        static const auto original = realOne(&(name), #name);                                      \
        return original arguments;                                                                 \
    }

KELDA_DEVICE(int, snd_pcm_status, (snd_pcm_t * pcm, snd_pcm_status_t* status), (pcm, status))
KELDA_DEVICE(snd_pcm_state_t, snd_pcm_state, (snd_pcm_t * pcm), (pcm))
KELDA_DEVICE(int, snd_pcm_delay, (snd_pcm_t * pcm, snd_pcm_sframes_t* delay), (pcm, delay))
KELDA_DEVICE(snd_pcm_sframes_t, snd_pcm_avail_update, (snd_pcm_t * pcm), (pcm))
KELDA_DEVICE(int, snd_pcm_recover, (snd_pcm_t * pcm, int error, int silent), (pcm, error, silent))

KELDA_STANDS_BEFORE snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t* pcm, const void* frames,
                                                     snd_pcm_uframes_t numFrames)
{
    countBlock();
    const InsideKnown inside;
    static const auto original = realOne(&snd_pcm_writei, "snd_pcm_writei");
    return original(pcm, frames, numFrames);
}

// NOLINTEND(bugprone-reserved-identifier)
