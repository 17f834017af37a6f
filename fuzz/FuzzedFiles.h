#pragma once

// What the fuzz targets of sound files share.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "Fuzzing.h"
#include "SampleLayout.h"

namespace fuzzing {

// Beyond this a file is not followed: a header of a few bytes may promise hours of silence.
constexpr std::size_t mostFrames = 4000;

/// A file in memory, with a path to open it by.
class MemoryFile
{
public:
    explicit MemoryFile(const std::string& content) : m_descriptor(memfd_create("sound", 0))
    {
        check(m_descriptor >= 0);
        check(::write(m_descriptor, content.data(), content.size()) ==
              static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { ::close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::string path() const
    {
        return "/proc/self/fd/" + std::to_string(m_descriptor);
    }

private:
    int m_descriptor;
};

/// A file that is not played is told by its path, and for a reason.
inline void checkRefusal(const std::runtime_error& error, const std::string& path)
{
    const std::string text = error.what();
    check(text.starts_with(path + ": ") && text.size() > path.size() + 2);
}

using Bytes = std::vector<unsigned char>;

/// A stream's frames, up to mostFrames, read in blocks of any length; none when it is damaged.
template<typename Source>
std::optional<Bytes> readAll(Source& source, const std::string& path,
                             const keldaPlay::FrameLayout& layout, testSupport::Choices& choices,
                             std::size_t longestBlock)
{
    constexpr unsigned char untouched = 0xA5;
    Bytes all;
    Bytes block;
    while (all.size() < mostFrames * layout.bytes()) {
        const std::size_t wanted = std::min<std::size_t>(longestBlock - choices.below(longestBlock),
                                                         mostFrames - all.size() / layout.bytes());
        block.assign(wanted * layout.bytes(), untouched);
        std::size_t frames = 0;
        try {
            frames = source.read(layout, block);
        } catch (const std::runtime_error& error) {
            checkRefusal(error, path);
            return std::nullopt;
        }
        check(frames <= wanted);
        const auto end = block.begin() + static_cast<std::ptrdiff_t>(frames * layout.bytes());
        check(std::all_of(end, block.end(), [](unsigned char byte) { return byte == untouched; }));
        all.insert(all.end(), block.begin(), end);
        if (frames == 0) {
            break;
        }
    }
    return all;
}

} // namespace fuzzing
