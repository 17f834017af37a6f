#include "DopFilter.h"

#include <iterator>

#include "Dop.h"

namespace keldaPlay {

void DopFilter::process(std::span<unsigned char> block)
{
    const auto sampleBytes = static_cast<std::size_t>(m_layout.sample.bytes);
    for (; block.size() >= m_layout.bytes(); block = block.subspan(m_layout.bytes())) {
        const bool isSilence = dop::markerOf(unpackInteger(m_layout.sample, block.data())) == 0;
        const std::uint8_t marker = dop::markers[m_next];
        m_next = (m_next + 1) % std::size(dop::markers);
        for (std::size_t channel = 0; channel < m_layout.numChannels; ++channel) {
            unsigned char* const at = block.data() + channel * sampleBytes;
            const std::uint16_t bits =
                isSilence ? dop::idleBits : dop::bitsOf(unpackInteger(m_layout.sample, at));
            packInteger(m_layout.sample, dop::sample(marker, bits), at);
        }
    }
}

} // namespace keldaPlay
