#include "StandardStreams.h"

#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace keldaFiles {

namespace {

/// As good as closed: it can't be written. But its number is taken.
void occupy(int descriptor)
{
    if (fcntl(descriptor, F_GETFD) >= 0) {
        return;
    }
    const int nothing = open("/dev/null", O_RDONLY);
    if (nothing >= 0 && nothing != descriptor) {
        dup2(nothing, descriptor);
        close(nothing);
    }
}

} // namespace

void prepareStandardStreams()
{
    occupy(STDOUT_FILENO);
    occupy(STDERR_FILENO);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

int finishStandardOutput(const std::string& program, int status)
{
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (isWritten) {
        return status;
    }
    if (hasReaderGone()) {
        std::signal(SIGPIPE, SIG_DFL);
        raise(SIGPIPE);
    }
    std::fprintf(stderr, "%s: standard output: not all could be written\n", program.c_str());
    return status == 0 ? 1 : status;
}

bool hasReaderGone()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) > 0 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

} // namespace keldaFiles
