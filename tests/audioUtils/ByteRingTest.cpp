#include "audioUtils/detail/ByteRing.h"

#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>

using audioUtils::detail::ByteRing;
using testing::ElementsAre;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes take(ByteRing& ring, std::size_t count)
{
    Bytes out(count);
    ring.take(out.data(), count);
    return out;
}

void store(ByteRing& ring, const Bytes& bytes)
{
    ring.store(bytes.data(), bytes.size());
}

} // namespace

TEST(ByteRing, ReturnsBytesInOrderAcrossItsEnd)
{
    ByteRing ring;
    ring.setCapacity(5);
    store(ring, {1, 2, 3, 4});
    EXPECT_THAT(take(ring, 3), ElementsAre(1, 2, 3));
    store(ring, {5, 6, 7});
    EXPECT_EQ(ring.freeSpace(), 1U);
    ring.drop(2);
    ring.storeZeros(3);
    EXPECT_TRUE(ring.isFull());
    EXPECT_THAT(take(ring, 5), ElementsAre(6, 7, 0, 0, 0));
    EXPECT_TRUE(ring.isEmpty());
}

TEST(ByteRing, IsEmptyAfterClearAndANewCapacity)
{
    ByteRing ring;
    ring.setCapacity(4);
    store(ring, {1, 2, 3});
    ring.clear();
    EXPECT_EQ(ring.fillLevel(), 0U);
    store(ring, {4, 5, 6, 7});
    ring.setCapacity(2);
    EXPECT_EQ(ring.freeSpace(), 2U);
    store(ring, {8, 9});
    EXPECT_THAT(take(ring, 2), ElementsAre(8, 9));
}

TEST(ByteRing, OfNoCapacityIsEmptyAndFull)
{
    ByteRing ring;
    EXPECT_TRUE(ring.isEmpty() && ring.isFull());
    store(ring, {});
    ring.storeZeros(0);
    ring.drop(0);
    EXPECT_TRUE(take(ring, 0).empty());
    EXPECT_EQ(ring.freeSpace(), 0U);
}

TEST(ByteRing, IsNotFullBeforeItsLastByte)
{
    ByteRing ring;
    ring.setCapacity(3);
    store(ring, {1, 2});
    EXPECT_FALSE(ring.isFull());
    store(ring, {3});
    EXPECT_TRUE(ring.isFull());
}

TEST(ByteRing, HasNoRoomWhereThereIsNoMemory)
{
    ByteRing ring;
    ring.setCapacity(4);
    store(ring, {1, 2});
    // Unknown to the compiler, which warns of it.
    volatile std::size_t tooMuch = std::numeric_limits<std::size_t>::max();
    EXPECT_THROW(ring.setCapacity(tooMuch), std::length_error);
    EXPECT_TRUE(ring.isEmpty() && ring.isFull());
    EXPECT_EQ(ring.freeSpace(), 0U);
}
