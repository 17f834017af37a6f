// Any calls of an ALSA device, on the real libasound, while the sound card beneath fails in any
// way. The card plays in virtual time. Every frame carries its number, so that none can get lost,
// be played twice or out of order without being noticed.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <numeric>
#include <vector>

#include <alsa/asoundlib.h>

#include "Fuzzing.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "support/FaultySoundCard.h"

namespace {

using audioUtils::AlsaOutputDevice;
using fuzzing::check;
using testSupport::FaultySoundCard;
using testSupport::faultyPcm::Call;

struct Layout
{
    audioUtils::PcmFormat format;
    unsigned int numChannels;
};

constexpr Layout layouts[] = {{audioUtils::S16LE, 2},    {audioUtils::S32BE, 1},
                              {audioUtils::F32LE, 2},    {audioUtils::S24LE, 4},
                              {audioUtils::S24_32LE, 1}, {audioUtils::S16BE, 8}};

class Run
{
public:
    Run(FaultySoundCard& card, fuzzing::FuzzedChoices& choices)
        : m_card(card),
          m_choices(choices),
          m_layout(choices.anyOf(layouts)),
          m_bytesPerFrame(
              m_layout.numChannels *
              static_cast<std::size_t>(audioUtils::getNumBytesForFormat(m_layout.format)))
    {
        m_card.renew();
        m_card->virtualTime = 1'000'000'000'000;
    }

    void goOn()
    {
        open();
        for (int i = 0; i < 40 && m_choices.areLeft(); ++i) {
            anyCall();
            check(m_card->framesTaken == m_taken.size());
        }
        mend();
        m_device.close();
        checkPlayed();
    }

    /// Whatever happened: once the card is well again, the device plays exactly what it is given.
    void playAgain()
    {
        check(m_device.open("faulty", m_layout.format, 48000, m_layout.numChannels, 2048, 256, 1024,
                            false, ""));
        const std::uint64_t droppedBefore = m_card->framesDropped;
        for (const std::size_t numFrames : {480U, 1U, 3000U, 480U}) {
            check(write(numFrames) == AlsaOutputDevice::Success);
        }
        m_device.drain();
        check(m_card->framesDropped == droppedBefore);
        checkPlayed();
        m_device.close();
    }

private:
    void anyCall()
    {
        switch (m_choices.below(16)) {
        case 15:
            withFailingCall([this] { anyCallOfTheDevice(); });
            break;
        case 14:
            breakStream();
            break;
        case 13:
            changeCard();
            break;
        case 12:
            m_card->virtualTime +=
                static_cast<std::int64_t>(m_choices.upTo(m_choices.oneIn(3) ? 100'000 : 10'000)) *
                1'000;
            break;
        default:
            anyCallOfTheDevice();
        }
    }

    void anyCallOfTheDevice()
    {
        switch (m_choices.below(16)) {
        case 15:
            atOnce([this] { m_device.close(); });
            check(!m_device.isOpened());
            break;
        case 14:
            open();
            break;
        case 13:
            drain();
            break;
        case 12:
            atOnce([this] { adjust(); });
            break;
        case 11:
        case 10:
            ask();
            break;
        default:
            anyWrite();
        }
    }

    // Without waiting for the card.
    template<typename Function>
    void atOnce(Function function)
    {
        const std::int64_t before = m_card->virtualTime;
        function();
        check(m_card->virtualTime == before);
    }

    // A call of libasound that can fail at any time fails for as long as this lasts.
    template<typename Function>
    void withFailingCall(Function function)
    {
        static constexpr int errors[] = {-EPIPE, -ENODEV, -EIO, -EINVAL, -ENOMEM, -EBADFD, -EBUSY};
        // A card that can't be written to, but can always be repaired, is written to for ever; and
        // a state is no error.
        static constexpr Call spared[] = {Call::snd_pcm_writei, Call::snd_pcm_state};
        const auto call = static_cast<Call>(m_choices.below(testSupport::faultyPcm::numCalls));
        if (std::ranges::find(spared, call) != std::end(spared)) {
            return;
        }
        m_card.setResult(call, m_choices.anyOf(errors));
        m_isUpset = true;
        function();
        m_card.setResult(call, 0);
    }

    void breakStream()
    {
        static constexpr int faults[] = {-EPIPE, -ESTRPIPE, -EINTR, -EIO, -ENODEV};
        m_card->faultAtFrame = m_card->framesTaken + m_choices.upTo(2000);
        m_card->faultEvery = 1 + m_choices.upTo(500);
        m_card->faultRepeats = static_cast<std::uint32_t>(m_choices.upTo(8));
        m_card->fault = m_choices.anyOf(faults);
        m_isUpset = true;
    }

    void changeCard()
    {
        const auto upTo = [this](std::uint64_t most) {
            return static_cast<std::uint32_t>(m_choices.upTo(most));
        };
        switch (m_choices.below(7)) {
        case 0:
            m_card->shortWrites = upTo(300);
            break;
        case 1:
            if (!m_device.isOpened()) { // a position that moves back is not a card's
                m_card->granularity = upTo(300);
            }
            break;
        case 2:
            m_card->delayOffset = static_cast<std::int64_t>(upTo(4000)) - 2000;
            break;
        case 3:
            m_card->crystalPpm = static_cast<std::int32_t>(upTo(2000)) - 1000;
            break;
        case 4:
            m_card->zeroTimestamps = upTo(3);
            m_card->hasAudioTimestamp = !m_card->hasAudioTimestamp;
            break;
        case 5:
            m_card->onlyRate = m_card->onlyRate == 0 ? 44100 : 0;
            break;
        default:
            m_card->isGone = !m_card->isGone;
            m_isUpset = true;
        }
    }

    /// A perfect card again.
    void mend()
    {
        m_card->fault = 0;
        m_card->isGone = false;
        m_card->shortWrites = 0;
        m_card->granularity = 0;
        m_card->onlyRate = 0;
    }

    void open()
    {
        static constexpr unsigned int rates[] = {48000, 44100, 8000, 192000};
        const bool wasOpen = m_device.isOpened();
        const bool opened =
            m_device.open("faulty", m_layout.format, m_choices.anyOf(rates), m_layout.numChannels,
                          m_choices.upTo(4096), m_choices.upTo(1024), m_choices.upTo(5000),
                          m_choices.below(2) == 1, m_choices.oneIn(4) ? "FL FR" : "");
        check(!(opened && wasOpen));
        check(!opened || m_device.isOpened());
        check(m_isUpset || opened || wasOpen);
    }

    void adjust()
    {
        const std::uint64_t before[] = {m_device.bufferSize(), m_device.periodSize(),
                                        m_device.startThreshold()};
        const bool wasOpen = m_device.isOpened();
        const bool adjusted =
            m_device.adjustParams(m_choices.upTo(4096), m_choices.upTo(1024), m_choices.upTo(5000));
        check(wasOpen || !adjusted);
        check(!adjusted || m_device.isOpened());
        check(m_isUpset || adjusted == wasOpen);
        if (!adjusted) {
            check(m_device.bufferSize() == before[0] && m_device.periodSize() == before[1] &&
                  m_device.startThreshold() == before[2]);
        }
    }

    void drain()
    {
        const std::uint64_t droppedBefore = m_card->framesDropped;
        m_device.drain();
        check(m_isUpset || m_card->framesDropped == droppedBefore);
        check(m_isUpset || !m_device.isOpened() ||
              m_card->framesPlayed + m_card->framesDropped == m_card->framesTaken);
    }

    void ask()
    {
        const std::uint64_t droppedBefore = m_card->framesDropped;
        const int ready = m_device.framesReady();
        check(m_device.isOpened() ? ready >= -1 : ready == -1);
        check(ready <= static_cast<int>(m_device.bufferSize()) || m_isUpset);
        static_cast<void>(m_device.getCompensatedRenderingDelay());
        static_cast<void>(m_device.currentAudioTimestamp());
        check(m_isUpset || m_card->framesDropped == droppedBefore);
    }

    void anyWrite()
    {
        const std::uint64_t droppedBefore = m_card->framesDropped;
        const std::uint64_t takenBefore = m_taken.size();
        const bool wasOpen = m_device.isOpened();
        const std::size_t numFrames = m_choices.upTo(m_choices.oneIn(8) ? 6000 : 500);
        const AlsaOutputDevice::WriteReturnValue result = write(numFrames);
        const std::uint64_t taken = m_taken.size() - takenBefore;
        switch (result) {
        case AlsaOutputDevice::Success:
            check(taken == numFrames);
            // A write of nothing is no occasion to tell of a card that has gone.
            check(numFrames == 0 || m_card->framesDropped == droppedBefore);
            break;
        case AlsaOutputDevice::Underrun:
            check(taken == numFrames);
            break;
        case AlsaOutputDevice::NotOpened:
            check(taken == 0 && !wasOpen);
            break;
        case AlsaOutputDevice::PrepareFailed:
            check(taken == 0 && m_isUpset);
            break;
        case AlsaOutputDevice::RecoverFailed:
            check(taken <= numFrames && m_isUpset);
            break;
        default:
            check(false);
        }
        check(wasOpen || result == AlsaOutputDevice::NotOpened);
    }

    /// Writes the next frames, and notes which the card has taken: the first ones.
    AlsaOutputDevice::WriteReturnValue write(std::size_t numFrames)
    {
        std::vector<unsigned char> data(numFrames * m_bytesPerFrame);
        for (std::size_t i = 0; i < numFrames; ++i) {
            const auto number = m_next + static_cast<std::uint32_t>(i);
            std::memcpy(data.data() + i * m_bytesPerFrame, &number, sizeof number);
        }
        const std::uint64_t takenBefore = m_card->framesTaken;
        const AlsaOutputDevice::WriteReturnValue result = m_device.write(data.data(), numFrames);
        const std::size_t known = m_taken.size();
        m_taken.resize(known + m_card->framesTaken - takenBefore);
        std::iota(m_taken.begin() + static_cast<std::ptrdiff_t>(known), m_taken.end(), m_next);
        m_next += static_cast<std::uint32_t>(numFrames);
        return result;
    }

    /// Nothing is held any more: all was played in its order that the card did not drop.
    void checkPlayed()
    {
        const std::vector<unsigned char> bytes = m_card.played<unsigned char>();
        check(bytes.size() % m_bytesPerFrame == 0);
        std::vector<std::uint32_t> played(bytes.size() / m_bytesPerFrame);
        for (std::size_t i = 0; i < played.size(); ++i) {
            std::memcpy(&played[i], bytes.data() + i * m_bytesPerFrame, sizeof played[i]);
            const auto rest = bytes.begin() + static_cast<std::ptrdiff_t>(i * m_bytesPerFrame + 4);
            check(std::all_of(rest, rest + static_cast<std::ptrdiff_t>(m_bytesPerFrame - 4),
                              [](unsigned char byte) { return byte == 0; }));
        }
        check(std::ranges::adjacent_find(played, std::greater_equal<>()) == played.end());
        check(std::ranges::includes(m_taken, played));
        check(played.size() == m_taken.size() - m_card->framesDropped);
    }

    FaultySoundCard& m_card;
    fuzzing::FuzzedChoices& m_choices;
    const Layout m_layout;
    const std::size_t m_bytesPerFrame;
    AlsaOutputDevice m_device;
    std::uint32_t m_next = 1;
    std::vector<std::uint32_t> m_taken; // by the card, by their numbers
    bool m_isUpset = false;             // something was made to fail
};

void ignoreError(const char*, int, const char*, int, const char*, ...) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static FaultySoundCard card;
    snd_lib_error_set_handler(ignoreError); // libasound tells of each recovery on standard error
    fuzzing::FuzzedChoices choices(bytes, size);
    Run run(card, choices);
    run.goOn();
    run.playAgain();
    return 0;
}
