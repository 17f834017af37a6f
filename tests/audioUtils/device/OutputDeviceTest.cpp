#include "audioUtils/device/OutputDevice.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

#include <gtest/gtest.h>

using audioUtils::OutputDevice;
using audioUtils::PcmFormat;
using audioUtils::RenderingDelay;
using miscUtils::TimeValue;

namespace {

/// Which entry of the virtual table a member pointer calls. Both ways of storing that which are in
/// use with this C++ ABI keep 8 times the entry in the first word, but for its lowest bit.
template<typename Member>
std::size_t slotOf(Member member)
{
    std::size_t word = 0;
    static_assert(sizeof member >= sizeof word);
    std::memcpy(&word, &member, sizeof word);
    return word / sizeof(void*);
}

class NeverOpenedDevice : public OutputDevice
{
public:
    explicit NeverOpenedDevice(bool& destroyed) : m_destroyed(destroyed) {}
    ~NeverOpenedDevice() override { m_destroyed = true; }

    bool open(const std::string&, PcmFormat, unsigned int, unsigned int, std::uint64_t,
              std::uint64_t, std::uint64_t, bool, const std::string&) override
    {
        return false;
    }
    void close() override {}
    void drain() override {}
    [[nodiscard]] bool isOpened() const override { return false; }
    WriteReturnValue write(void*, std::uint64_t) override { return NotOpened; }
    bool adjustParams(std::uint64_t, std::uint64_t, std::uint64_t) override { return false; }
    [[nodiscard]] PcmFormat sampleFormat() const override { return PcmFormat::S16LE; }
    [[nodiscard]] unsigned int sampleRate() const override { return 0; }
    [[nodiscard]] unsigned int numChannels() const override { return 0; }
    [[nodiscard]] unsigned int numBytesPerSample() const override { return 0; }
    [[nodiscard]] std::uint64_t bufferSize() const override { return 0; }
    [[nodiscard]] std::uint64_t periodSize() const override { return 0; }
    [[nodiscard]] std::uint64_t startThreshold() const override { return 0; }
    [[nodiscard]] std::int64_t getCompensatedRenderingDelay() const override { return 0; }
    [[nodiscard]] RenderingDelay lastRenderingDelay() const override { return {}; }
    [[nodiscard]] TimeValue currentAudioTimestamp() const override { return 0; }
    [[nodiscard]] int framesReady() const override { return -1; }

private:
    bool& m_destroyed;
};

TEST(RenderingDelay, IsClearedByDefault)
{
    const RenderingDelay cleared;
    EXPECT_EQ(cleared.delay, 0);
    EXPECT_EQ(cleared.timestamp, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(cleared.timestamp, RenderingDelay::noTimestamp);
}

TEST(RenderingDelay, HoldsExactlyTheValuesGiven)
{
    const RenderingDelay delay(5000, 12);
    EXPECT_EQ(delay.delay, 5000);
    EXPECT_EQ(delay.timestamp, 12);

    const RenderingDelay negative(-1, std::numeric_limits<long>::max());
    EXPECT_EQ(negative.delay, -1);
    EXPECT_EQ(negative.timestamp, std::numeric_limits<long>::max());
}

TEST(RenderingDelay, IsAPlainRecordOfDelayThenTimestamp)
{
    EXPECT_TRUE(std::is_trivially_copyable_v<RenderingDelay>);
    EXPECT_TRUE(std::is_standard_layout_v<RenderingDelay>);
    EXPECT_EQ(sizeof(RenderingDelay), 16U);
    EXPECT_EQ(offsetof(RenderingDelay, delay), 0U);
    EXPECT_EQ(offsetof(RenderingDelay, timestamp), 8U);
}

TEST(OutputDevice, NumbersTheResultsOfAWriteStably)
{
    EXPECT_EQ(static_cast<int>(OutputDevice::WriteReturnValue::Success), 0);
    EXPECT_EQ(static_cast<int>(OutputDevice::WriteReturnValue::Underrun), 1);
    EXPECT_EQ(static_cast<int>(OutputDevice::WriteReturnValue::NotOpened), 2);
    EXPECT_EQ(static_cast<int>(OutputDevice::WriteReturnValue::PrepareFailed), 3);
    EXPECT_EQ(static_cast<int>(OutputDevice::WriteReturnValue::RecoverFailed), 4);
}

TEST(OutputDevice, HasNoStateOfItsOwn)
{
    EXPECT_EQ(sizeof(OutputDevice), sizeof(void*));
    EXPECT_TRUE(std::is_abstract_v<OutputDevice>);
}

TEST(OutputDevice, DestroysTheImplementationThroughTheInterface)
{
    bool destroyed = false;
    std::unique_ptr<OutputDevice> device = std::make_unique<NeverOpenedDevice>(destroyed);
    device.reset();
    EXPECT_TRUE(destroyed);
}

TEST(OutputDevice, KeepsTheOrderOfItsOperationsForProgramsAlreadyCompiled)
{
    std::size_t slot = 2; // the two entries of the destructor come first
    EXPECT_EQ(slotOf(&OutputDevice::open), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::close), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::drain), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::isOpened), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::write), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::adjustParams), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::sampleFormat), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::sampleRate), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::numChannels), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::numBytesPerSample), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::bufferSize), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::periodSize), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::startThreshold), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::getCompensatedRenderingDelay), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::lastRenderingDelay), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::currentAudioTimestamp), slot++);
    EXPECT_EQ(slotOf(&OutputDevice::framesReady), slot++);
}

} // namespace
