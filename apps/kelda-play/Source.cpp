#include "Source.h"

#include "AudioFile.h"

namespace keldaPlay {

std::unique_ptr<Source> openSource(const std::string& path)
{
    return std::make_unique<AudioFile>(path);
}

} // namespace keldaPlay
