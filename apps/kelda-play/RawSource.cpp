#include "RawSource.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <poll.h>

#include "ChannelMapping.h"

namespace keldaPlay {

RawSource::RawSource(const RawFormat& raw, const StopEvent& stop, int fd)
    : m_raw(raw), m_layout(raw.layout()), m_stop(stop), m_fd(fd)
{
    if (isatty(fd) != 0) {
        throw std::runtime_error(m_name + " is a terminal: raw audio comes from a pipe or a file");
    }
}

std::size_t RawSource::read(const FrameLayout& layout, std::span<unsigned char> out)
{
    m_bytes.resize(out.size() / layout.bytes() * m_layout.bytes());
    const std::size_t numBytes = fill();
    const std::size_t numFrames = numBytes / m_layout.bytes();
    if (const std::size_t rest = numBytes % m_layout.bytes(); rest > 0 && !m_isStopped) {
        static const log4cplus::Logger logger = log4cplus::Logger::getInstance("kelda-play");
        LOG4CPLUS_WARN(logger, "The last " << rest << " bytes of " << m_name
                                           << " are no whole frame: dropped");
    }
    convert(numFrames, layout, out.data());
    return numFrames;
}

std::size_t RawSource::fill()
{
    std::size_t numBytes = 0;
    while (numBytes < m_bytes.size() && !m_hasEnded) {
        const std::size_t more = readSome(std::span(m_bytes).subspan(numBytes));
        m_hasEnded = more == 0;
        numBytes += more;
    }
    return numBytes;
}

std::size_t RawSource::readSome(std::span<unsigned char> bytes)
{
    while (waitForInput()) { // its end is input, too, and so is what goes wrong
        const ssize_t count = ::read(m_fd, bytes.data(), bytes.size());
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR && errno != EAGAIN) {
            throw std::runtime_error(m_name + ": " + std::generic_category().message(errno));
        }
    }
    return 0;
}

bool RawSource::waitForInput()
{
    std::array<pollfd, 2> files{{{m_fd, POLLIN, 0}, {m_stop.fd(), POLLIN, 0}}};
    int count = 0;
    do {
        count = poll(files.data(), files.size(), -1);
    } while (count < 0 && errno == EINTR);
    m_isStopped = files[1].revents != 0;
    return count > 0 && !m_isStopped;
}

void RawSource::convert(std::size_t numFrames, const FrameLayout& layout, unsigned char* out)
{
    const SampleLayout& to = layout.sample;
    const auto packFull = [&to](std::int32_t value, unsigned char* bytes) {
        to.isFloat ? packFloat(to, static_cast<float>(value) / 2147483648.0F, bytes)
                   : packInteger(to, value, bytes);
    };
    const auto packReal = [&to](float value, unsigned char* bytes) {
        to.isFloat ? packFloat(to, value, bytes) : packInteger(to, toFullRange(value), bytes);
    };
    if (m_layout.sample.isFloat) {
        unpack(m_floats, numFrames, unpackFloat);
        packFrames<double>(std::span<const float>(m_floats), m_raw.numChannels, layout, out,
                           packReal);
    } else {
        unpack(m_integers, numFrames, unpackInteger);
        packFrames<std::int64_t>(std::span<const std::int32_t>(m_integers), m_raw.numChannels,
                                 layout, out, packFull);
    }
}

template<typename Sample, typename Unpack>
void RawSource::unpack(std::vector<Sample>& samples, std::size_t numFrames, Unpack unpackSample)
{
    samples.resize(numFrames * m_layout.numChannels);
    const unsigned char* from = m_bytes.data();
    for (Sample& sample : samples) {
        sample = unpackSample(m_layout.sample, from);
        from += m_layout.sample.bytes;
    }
}

void RawSource::rewind()
{
    throw std::runtime_error(m_name + " can't be played again");
}

} // namespace keldaPlay
