// For test programs that run in an emulator of another processor: a death test starts the program
// anew, which the machine itself cannot run. Being the program's own, this execv comes before the C
// library's.

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include <unistd.h>

namespace {

constexpr std::array emulator = {KELDA_EMULATOR};

} // namespace

extern "C" int execv(const char* path, char* const argv[])
{
    // No allocation: another thread's may have been cut off by the fork.
    std::array<char*, 64> arguments{};
    std::span<char*> left = arguments;
    const auto add = [&left](const char* argument) {
        left.front() = const_cast<char*>(argument);
        left = left.subspan(1);
    };
    std::for_each(emulator.begin(), emulator.end(), add);
    add(path);
    for (char* const* argument = argv + 1; *argument != nullptr; ++argument) {
        if (left.size() == 1) {
            errno = E2BIG;
            return -1;
        }
        add(*argument);
    }
    return execvp(arguments.front(), arguments.data());
}
