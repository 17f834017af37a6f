#include "support/virtualTime/Threads.h"

#include <array>
#include <charconv>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace testSupport::virtualTime {

namespace {

// The kernel's number for the processor time of one thread: clock_getres(2), "dynamic clocks".
std::int64_t processorTime(pid_t thread)
{
    const auto clock = static_cast<clockid_t>((~static_cast<unsigned int>(thread) << 3U) | 6U);
    timespec used{};
    return syscall(SYS_clock_gettime, clock, &used) == 0
               ? used.tv_sec * 1'000'000'000 + used.tv_nsec
               : -1;
}

// 'S' in the third field of proc(5)'s stat, behind a name in parentheses.
bool isAsleep(pid_t thread)
{
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    std::array<char, 64> text{};
    const ssize_t length = read(file, text.data(), text.size() - 1);
    close(file);
    const char* const end = length > 0 ? std::strrchr(text.data(), ')') : nullptr;
    return end != nullptr && end[1] == ' ' && end[2] == 'S';
}

template<typename Use>
void forEachThread(Use use)
{
    struct Close
    {
        void operator()(DIR* folder) const { closedir(folder); }
    };
    const std::unique_ptr<DIR, Close> folder(opendir("/proc/self/task"));
    const pid_t self = gettid();
    while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
        pid_t id = 0;
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        if (std::from_chars(entry->d_name, end, id).ptr == end && id != self) {
            use(id);
        }
    }
}

} // namespace

// A thread that is asleep twice and has used no processor time meanwhile has slept in between. Each
// is looked at once before any is looked at again: there was a moment in which all slept, and since
// only one that is awake can wake another, they still do.
bool Threads::allSleep()
{
    m_threads.clear();
    bool sleep = true;
    forEachThread([&](pid_t id) {
        m_threads.push_back({id, processorTime(id)});
        sleep = sleep && isAsleep(id);
    });
    if (!sleep) {
        return false;
    }
    std::size_t count = 0;
    forEachThread([&](pid_t id) {
        const std::size_t at = count++;
        sleep = sleep && at < m_threads.size() && m_threads[at].id == id && isAsleep(id) &&
                processorTime(id) == m_threads[at].used;
    });
    return sleep && count == m_threads.size();
}

} // namespace testSupport::virtualTime
