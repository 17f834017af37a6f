// Whatever may lie in a DSF or DSDIFF file: its samples are played, or it is refused with a reason.

#include <memory>

#include "DffFile.h"
#include "Dop.h"
#include "DopSource.h"
#include "DsfFile.h"
#include "FuzzedFiles.h"

namespace {

using fuzzing::check;
using namespace keldaPlay;

std::unique_ptr<DsdReader> open(const std::string& path, bool isDsf)
{
    if (isDsf) {
        return std::make_unique<DsfFile>(path);
    }
    return std::make_unique<DffFile>(path);
}

void checkStream(const DsdStream& stream, std::size_t fileSize)
{
    check(stream.numChannels >= 1 && stream.numChannels <= 32);
    check(stream.bitrate >= 64 * 44'100 && stream.bitrate <= 512 * 48'000);
    check(stream.numBits <= 8 * fileSize / stream.numChannels);
}

/// Every sample of them is one of DSD over PCM, with idle bits in channels that the file lacks.
void checkFrames(const fuzzing::Bytes& frames, const FrameLayout& layout, std::size_t numChannels)
{
    const auto sampleBytes = static_cast<std::size_t>(layout.sample.bytes);
    for (std::size_t i = 0; i < frames.size() / sampleBytes; ++i) {
        const std::int32_t sample = unpackInteger(layout.sample, &frames[i * sampleBytes]);
        check(dop::markerOf(sample) == dop::markers[0] && (sample & 0xFF) == 0);
        check(i % layout.numChannels < numChannels || dop::bitsOf(sample) == dop::idleBits);
    }
}

void readEveryWay(const std::string& path, std::size_t fileSize, testSupport::Choices& choices)
{
    std::unique_ptr<DsdReader> reader;
    try {
        reader = open(path, choices.below(2) == 0);
    } catch (const std::runtime_error& error) {
        fuzzing::checkRefusal(error, path);
        return;
    }
    const DsdStream stream = reader->stream();
    checkStream(stream, fileSize);

    static constexpr audioUtils::PcmFormat formats[] = {audioUtils::S24LE, audioUtils::S24_32LE,
                                                        audioUtils::S32LE, audioUtils::S32BE};
    const FrameLayout layout{*layoutOf(choices.anyOf(formats)), 1 + choices.upTo(3)};
    DopSource source(std::move(reader));
    const auto frames = fuzzing::readAll(source, path, layout, choices, fuzzing::mostFrames);
    check(frames.has_value());
    check(frames->size() / layout.bytes() ==
          std::min<std::uint64_t>(fuzzing::mostFrames, (stream.numBits + 15) / 16));
    checkFrames(*frames, layout, source.numChannels());

    source.rewind();
    check(fuzzing::readAll(source, path, layout, choices, 1 + choices.upTo(500)) == frames);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    // The file comes first: choices are taken from the end of the input.
    constexpr std::size_t choiceBytes = 16;
    const std::size_t fileSize = size - std::min(size, choiceBytes);
    fuzzing::FuzzedChoices choices(bytes + fileSize, size - fileSize);
    const fuzzing::MemoryFile file(std::string(reinterpret_cast<const char*>(bytes), fileSize));
    readEveryWay(file.path(), fileSize, choices);
    return 0;
}
