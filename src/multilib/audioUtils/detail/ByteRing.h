#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace audioUtils::detail {

/// A ring of bytes: what is stored first is taken first, in at most two block copies.
///
/// The bytes held lie from m_readIndex on, wrapping at the capacity. Nobody may store more than
/// freeSpace() or take more than fillLevel(). Only setCapacity() allocates.
class ByteRing
{
public:
    /// Empties the ring, with room for so many bytes, all zero. If that throws, there is room for
    /// none.
    void setCapacity(std::size_t capacity)
    {
        clear();
        m_capacity = 0;
        m_buffer.assign(capacity, 0);
        m_capacity = capacity;
    }

    [[nodiscard]] std::size_t fillLevel() const { return m_fillLevel; }
    [[nodiscard]] std::size_t freeSpace() const { return m_capacity - m_fillLevel; }
    [[nodiscard]] bool isEmpty() const { return m_fillLevel == 0; }
    [[nodiscard]] bool isFull() const { return m_fillLevel == m_capacity; }

    void clear() { m_readIndex = m_writeIndex = m_fillLevel = 0; }

    void store(const unsigned char* data, std::size_t count)
    {
        forEachPiece(m_writeIndex, count, [&](unsigned char* piece, std::size_t size) {
            std::memcpy(piece, data, size);
            data += size;
        });
        advanceWriteIndex(count);
    }

    void storeZeros(std::size_t count)
    {
        forEachPiece(m_writeIndex, count,
                     [](unsigned char* piece, std::size_t size) { std::memset(piece, 0, size); });
        advanceWriteIndex(count);
    }

    void take(unsigned char* out, std::size_t count)
    {
        forEachPiece(m_readIndex, count, [&](const unsigned char* piece, std::size_t size) {
            std::memcpy(out, piece, size);
            out += size;
        });
        drop(count);
    }

    void drop(std::size_t count)
    {
        m_readIndex = wrapped(m_readIndex + count);
        m_fillLevel -= count;
    }

private:
    template<typename Function>
    void forEachPiece(std::size_t index, std::size_t count, Function function)
    {
        const std::size_t first = std::min(count, m_capacity - index);
        if (first > 0) {
            function(m_buffer.data() + index, first);
        }
        if (first < count) {
            function(m_buffer.data(), count - first);
        }
    }

    void advanceWriteIndex(std::size_t count)
    {
        m_writeIndex = wrapped(m_writeIndex + count);
        m_fillLevel += count;
    }

    // Without a division: a ring of capacity 0 needs no special case.
    [[nodiscard]] std::size_t wrapped(std::size_t index) const
    {
        return index >= m_capacity ? index - m_capacity : index;
    }

    std::vector<unsigned char> m_buffer;
    std::size_t m_readIndex = 0;  // of the oldest byte
    std::size_t m_writeIndex = 0; // where the next byte goes
    std::size_t m_fillLevel = 0;
    std::size_t m_capacity = 0;
};

} // namespace audioUtils::detail
