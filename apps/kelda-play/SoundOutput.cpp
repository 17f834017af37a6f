#include "SoundOutput.h"

#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace keldaPlay {

using keldaFiles::OutputFile;

namespace {

OutputFile& fileOf(void* user)
{
    return *static_cast<OutputFile*>(user);
}

sf_count_t lengthOf(void* user)
{
    return fileOf(user).length();
}

sf_count_t seek(sf_count_t offset, int whence, void* user)
{
    OutputFile& file = fileOf(user);
    const sf_count_t from = whence == SEEK_CUR   ? file.position()
                            : whence == SEEK_END ? file.length()
                                                 : 0;
    return file.seek(from + offset) ? file.position() : -1;
}

sf_count_t read(void* to, sf_count_t count, void* user)
{
    return static_cast<sf_count_t>(
        fileOf(user).read(static_cast<char*>(to), static_cast<std::size_t>(count)));
}

sf_count_t write(const void* from, sf_count_t count, void* user)
{
    const std::string_view bytes(static_cast<const char*>(from), static_cast<std::size_t>(count));
    return fileOf(user).write(bytes) ? count : 0;
}

sf_count_t positionOf(void* user)
{
    return fileOf(user).position();
}

// Of a library's reason, which is a sentence of its own.
std::string reasonOf(SNDFILE* sound)
{
    std::string reason = sf_strerror(sound);
    reason.erase(reason.find_last_not_of(" .\n") + 1);
    constexpr std::string_view prefix = "Error : ";
    return reason.starts_with(prefix) ? reason.substr(prefix.size()) : reason;
}

/// Writes a frame to nowhere: only trying tells what an encoder takes.
void checkFormat(const std::string& path, SF_INFO info)
{
    SF_VIRTUAL_IO nowhere{
        [](void*) -> sf_count_t { return 0; },
        [](sf_count_t offset, int, void*) -> sf_count_t { return offset; },
        [](void*, sf_count_t, void*) -> sf_count_t { return 0; },
        [](const void*, sf_count_t count, void*) -> sf_count_t { return count; },
        [](void*) -> sf_count_t { return 0; },
    };
    const std::string what = path + ": can't be written with " + std::to_string(info.channels) +
                             (info.channels == 1 ? " channel at " : " channels at ") +
                             std::to_string(info.samplerate) + " Hz: ";
    const FileHandle sound(sf_open_virtual(&nowhere, SFM_WRITE, &info, nullptr));
    if (!sound) {
        throw std::runtime_error(what + reasonOf(nullptr));
    }
    const std::vector<float> frame(static_cast<std::size_t>(info.channels));
    if (sf_writef_float(sound.get(), frame.data(), 1) != 1) {
        throw std::runtime_error(what + reasonOf(sound.get()));
    }
}

/// Whether it can be written without going back.
bool isStream(int format)
{
    const int container = format & SF_FORMAT_TYPEMASK;
    return container == SF_FORMAT_FLAC || container == SF_FORMAT_OGG;
}

/// Goes first in the members' order.
const std::string& checked(const std::string& path, const SF_INFO& info)
{
    checkFormat(path, info);
    return path;
}

FileHandle openIn(OutputFile& file, SF_INFO info)
{
    if (!file.isSeekable() && !isStream(info.format)) {
        throw std::runtime_error(
            file.path() + ": such a file's header is completed at its end, which a pipe can't do");
    }
    SF_VIRTUAL_IO io{lengthOf, seek, read, write, positionOf};
    FileHandle sound(sf_open_virtual(&io, SFM_WRITE, &info, &file));
    file.check();
    if (!sound) {
        throw std::runtime_error(file.path() + ": " + reasonOf(nullptr));
    }
    return sound;
}

} // namespace

SoundOutput::SoundOutput(const std::string& path, const SF_INFO& info)
    : m_file(checked(path, info)), m_sound(openIn(m_file, info))
{
}

void SoundOutput::fail()
{
    m_file.fail(EIO);
}

void SoundOutput::commit()
{
    m_sound.reset();
    m_file.commit();
}

} // namespace keldaPlay
