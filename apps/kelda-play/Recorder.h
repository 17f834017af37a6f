#pragma once

#include <span>
#include <string>
#include <vector>

#include "SampleLayout.h"
#include "SoundOutput.h"

namespace keldaPlay {

/// Writes blocks of any sample format to a WAV file, without losing a bit. It gets its name when it
/// is committed.
class Recorder
{
public:
    /// Throws std::runtime_error with the path and the reason when the file can't be written.
    Recorder(const std::string& path, const SampleLayout& layout, unsigned int sampleRate,
             unsigned int numChannels);

    /// @param block interleaved frames
    void write(std::span<const unsigned char> block);

    /// As SoundOutput::commit().
    void commit() { m_file.commit(); }

private:
    template<typename Sample, typename Unpack, typename WriteSamples>
    void writeAs(std::vector<Sample>& samples, std::span<const unsigned char> block, Unpack unpack,
                 WriteSamples writeSamples);

    SampleLayout m_layout;
    SoundOutput m_file;
    std::vector<int> m_integers;
    std::vector<float> m_floats;
};

} // namespace keldaPlay
