#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace keldaPlay {

/// How much of what was sent last is the stream's, and how much silence: what is still on the way
/// to the listener when something happens to it.
class SentFrames
{
public:
    /// @param numBlocks that can be on the way
    explicit SentFrames(std::size_t numBlocks) : m_blocks(numBlocks) {}

    /// A block has been sent; its silence is at its begin.
    void add(std::uint64_t numFrames, std::uint64_t dataFrames)
    {
        m_newest = (m_newest + 1) % m_blocks.size();
        m_blocks[m_newest] = {numFrames, dataFrames};
    }

    /// What was sent so far is on the way no more.
    void clear() { std::ranges::fill(m_blocks, Block()); }

    /// The stream's frames among the last ones that were sent.
    [[nodiscard]] std::uint64_t dataAmongLast(std::uint64_t numFrames) const
    {
        std::uint64_t data = 0;
        for (std::size_t i = 0; i < m_blocks.size() && numFrames > 0; ++i) {
            const Block& block = m_blocks[(m_newest + m_blocks.size() - i) % m_blocks.size()];
            data += std::min(block.data, numFrames);
            numFrames -= std::min(block.frames, numFrames);
        }
        return data;
    }

private:
    struct Block
    {
        std::uint64_t frames = 0;
        std::uint64_t data = 0;
    };

    std::vector<Block> m_blocks;
    std::size_t m_newest = 0;
};

} // namespace keldaPlay
