// Whatever may lie in a file that is to be played: it is read, or refused with a reason.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <vector>

#include "AudioFile.h"
#include "FuzzedFiles.h"
#include "Negotiation.h"
#include "Playlist.h"

namespace {

using fuzzing::Bytes;
using fuzzing::check;
using fuzzing::checkRefusal;
using fuzzing::MemoryFile;
using fuzzing::mostFrames;
using fuzzing::readAll;
using keldaPlay::AudioFile;
using keldaPlay::FrameLayout;
using keldaPlay::Playlist;
using keldaPlay::Track;

/// What libsndfile itself makes of the file.
class Decoder
{
public:
    explicit Decoder(const std::string& path) : m_file(sf_open(path.c_str(), SFM_READ, &m_info))
    {
        check(m_file != nullptr);
    }

    /// Samples that need no conversion, from the start.
    template<typename Sample>
    Bytes read(sf_count_t (*decode)(SNDFILE*, Sample*, sf_count_t))
    {
        const auto channels = static_cast<std::size_t>(m_info.channels);
        Bytes bytes(mostFrames * channels * sizeof(Sample));
        const sf_count_t frames = decode(m_file.get(), reinterpret_cast<Sample*>(bytes.data()),
                                         static_cast<sf_count_t>(mostFrames));
        bytes.resize(static_cast<std::size_t>(frames) * channels * sizeof(Sample));
        return bytes;
    }

    /// Whether it decodes the same again; of a file that ends within a frame it need not.
    bool repeats()
    {
        const Bytes first = read<float>(sf_readf_float);
        return sf_seek(m_file.get(), 0, SEEK_SET) == 0 && read<float>(sf_readf_float) == first;
    }

private:
    SF_INFO m_info{};
    keldaPlay::FileHandle m_file;
};

void checkAgainstLibrary(const AudioFile& file, const FrameLayout& layout, const Bytes& bytes)
{
    if (layout.numChannels != file.numChannels() || layout.sample.isBigEndian) {
        return;
    }
    if (layout.sample.isFloat) {
        check(bytes == Decoder(file.name()).read<float>(sf_readf_float));
    } else if (layout.sample.bits == 32 && file.format() <= audioUtils::S32BE) {
        check(bytes == Decoder(file.name()).read<int>(sf_readf_int));
    }
}

void readEveryWay(const std::string& path, testSupport::Choices& choices)
{
    std::optional<AudioFile> file;
    try {
        file.emplace(path);
    } catch (const std::runtime_error& error) {
        checkRefusal(error, path);
        return;
    }
    check(file->rate() > 0 && file->numChannels() > 0);
    check(file->format() <= audioUtils::F64BE);

    static constexpr audioUtils::PcmFormat formats[] = {
        audioUtils::F32LE, audioUtils::S32LE, audioUtils::S16LE,    audioUtils::S24BE,
        audioUtils::F32BE, audioUtils::S32BE, audioUtils::S24_32LE, audioUtils::S16BE};
    FrameLayout layout{*keldaPlay::layoutOf(choices.anyOf(formats)), 1 + choices.upTo(3)};
    if (choices.below(2) == 0) {
        layout.numChannels = std::min(file->numChannels(), 64U);
    }
    const auto bytes = readAll(*file, path, layout, choices, mostFrames);
    if (!bytes) {
        return;
    }
    checkAgainstLibrary(*file, layout, *bytes);

    const std::size_t longestBlock = 1 + choices.upTo(500);
    Track track;
    track.path = path;
    track.info = keldaPlay::describe(*file);
    const std::vector<Track> tracks(1 + choices.below(2), track);
    Playlist playlist(tracks, choices.below(2) == 1);
    const auto again = readAll(playlist, path, layout, choices, longestBlock);
    if (!again || bytes->empty()) {
        return;
    }
    check(again->size() >= bytes->size());
    const std::size_t end = Decoder(path).repeats() ? again->size() : bytes->size();
    for (std::size_t i = 0; i < end; ++i) {
        check((*again)[i] == (*bytes)[i % bytes->size()]); // the file from its start again
    }
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the sanitizer's.

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_options();

// What the decoders leave behind of a damaged file is theirs.
const char* __lsan_default_suppressions()
{
    return "leak:libsndfile\n"
           "leak:libvorbis\n"
           "leak:libogg\n"
           "leak:libFLAC\n"
           "leak:libopus\n"
           "leak:libmpg123\n";
}

const char* __lsan_default_options()
{
    return "print_suppressions=0";
}

// NOLINTEND(bugprone-reserved-identifier)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    // The file comes first: choices are taken from the end of the input.
    constexpr std::size_t choiceBytes = 16;
    const std::size_t fileSize = size - std::min(size, choiceBytes);
    fuzzing::FuzzedChoices choices(bytes + fileSize, size - fileSize);
    const MemoryFile file(std::string(reinterpret_cast<const char*>(bytes), fileSize));
    readEveryWay(file.path(), choices);
    return 0;
}
