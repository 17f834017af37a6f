#pragma once

#include <cerrno>
#include <system_error>

#include <unistd.h>

namespace keldaPlay {

/// A file descriptor that closes by itself.
class Descriptor
{
public:
    /// Throws std::system_error when it is none.
    /// @param what made it, if it is one
    Descriptor(int fd, const char* what) : m_fd(fd)
    {
        if (fd < 0) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }
    ~Descriptor() { close(m_fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return m_fd; }

private:
    int m_fd;
};

} // namespace keldaPlay
