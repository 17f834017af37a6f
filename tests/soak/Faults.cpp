#include "Faults.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace keldaSoak {

using testSupport::faultyPcm::Call;

namespace {

std::string forMs(int milliseconds)
{
    return std::string(" for ") + std::to_string(milliseconds) + " ms";
}

std::string times(unsigned int count)
{
    return std::string(" ") + std::to_string(count) + " times";
}

} // namespace

Faults::Faults(testSupport::FaultySoundCard& card, testSupport::VirtualTime& time,
               unsigned int seed)
    : m_card(card), m_time(time), m_random(seed)
{
}

const std::vector<Faults::Kind>& Faults::kinds()
{
    static const std::vector<Kind> all = {
        {"xrun", &Faults::injectXrun},
        {"suspend", &Faults::injectSuspend},
        {"interrupted", &Faults::injectInterruption},
        {"try again", &Faults::injectTryAgain},
        {"short writes", &Faults::injectShortWrites},
        {"slow writes", &Faults::injectSlowWrites},
        {"vanishes", &Faults::injectVanishing},
        {"other period", &Faults::injectOtherPeriod},
        {"delay jumps", &Faults::injectJumpingDelay},
        {"delay negative", &Faults::injectNegativeDelay},
        {"delay frozen", &Faults::injectFrozenDelay},
        {"zero timestamps", &Faults::injectZeroTimestamps},
        {"coarse position", &Faults::injectCoarsePosition},
        {"no status", &Faults::injectFailingStatus},
        {"player stalls", &Faults::injectStall},
    };
    return all;
}

Fault Faults::injectNext()
{
    if (m_deck.empty()) {
        m_deck = kinds();
        std::ranges::shuffle(m_deck, m_random);
    }
    const Kind kind = m_deck.back();
    m_deck.pop_back();
    Fault fault{kind.name, "", m_time.monotonic(), 0};
    fault.detail = (this->*kind.inject)();
    fault.end = m_time.monotonic();
    return fault;
}

double Faults::pause(double least, double most)
{
    return std::uniform_real_distribution<double>(least, most)(m_random);
}

int Faults::chosen(int least, int most)
{
    return std::uniform_int_distribution<int>(least, most)(m_random);
}

void Faults::pass(int milliseconds)
{
    static_cast<void>(m_time.pass(std::chrono::milliseconds(milliseconds)));
}

template<typename Condition>
void Faults::await(Condition condition)
{
    const auto end = m_time.now() + std::chrono::seconds(5);
    static_cast<void>(m_time.runUntil([&] { return condition() || m_time.now() > end; }));
}

int Faults::lasting(int leastMs, int mostMs)
{
    const int milliseconds = chosen(leastMs, mostMs);
    pass(milliseconds);
    return milliseconds;
}

void Faults::failNow(int error, unsigned int repeats, unsigned int everyFrames)
{
    m_card->faultRepeats = repeats;
    m_card->faultEvery = everyFrames;
    m_card->faultAtFrame = m_card->framesTaken.load();
    m_card->fault = error;
    await([this] { return m_card->fault == 0; });
}

std::string Faults::injectXrun()
{
    const auto repeats = static_cast<unsigned int>(chosen(0, 4));
    failNow(-EPIPE, repeats, static_cast<unsigned int>(chosen(500, 5000)));
    return times(repeats + 1);
}

std::string Faults::injectSuspend()
{
    failNow(-ESTRPIPE, 0, 0);
    return "";
}

std::string Faults::injectInterruption()
{
    const auto repeats = static_cast<unsigned int>(chosen(0, 30));
    failNow(-EINTR, repeats, 480);
    return times(repeats + 1);
}

std::string Faults::injectTryAgain()
{
    failNow(-EAGAIN, 0, 0);
    return "";
}

std::string Faults::injectShortWrites()
{
    const int frames = chosen(1, 200);
    m_card->shortWrites = static_cast<unsigned int>(frames);
    const int milliseconds = lasting(100, 1000);
    m_card->shortWrites = 0;
    return std::string(" of ") + std::to_string(frames) + " frames" + forMs(milliseconds);
}

std::string Faults::injectSlowWrites()
{
    const int each = chosen(1, 30);
    m_card->slowWrites = static_cast<unsigned int>(each * 1000);
    const int milliseconds = lasting(100, 1000);
    m_card->slowWrites = 0;
    return std::string(" of ") + std::to_string(each) + " ms" + forMs(milliseconds);
}

std::string Faults::vanishFor(int milliseconds)
{
    m_card->isGone = true;
    pass(milliseconds);
    const std::uint32_t opens = m_card->opens;
    m_card->isGone = false;
    await([&] { return m_card->opens != opens; }); // tried again every 2 s
    return forMs(milliseconds);
}

std::string Faults::injectVanishing()
{
    return vanishFor(chosen(30, 800));
}

std::string Faults::injectOtherPeriod()
{
    constexpr std::uint32_t periods[] = {120, 240, 256, 320, 480, 960};
    const std::uint32_t period = periods[chosen(0, 5)];
    m_card->onlyPeriod = period;
    const std::string duration = vanishFor(chosen(30, 300));
    m_card->onlyPeriod = 0;
    return std::string(" of ") + std::to_string(period) + " frames, after being gone" + duration;
}

std::string Faults::injectJumpingDelay()
{
    const int off = chosen(1, 100) * (chosen(0, 1) == 0 ? 1 : -1);
    m_card->delayOffset = off * 48;
    const int milliseconds = lasting(20, 1000);
    m_card->delayOffset = 0;
    return std::string(" by ") + std::to_string(off) + " ms" + forMs(milliseconds);
}

std::string Faults::injectNegativeDelay()
{
    m_card->delayOffset = -48'000;
    const int milliseconds = lasting(20, 1000);
    m_card->delayOffset = 0;
    return forMs(milliseconds);
}

std::string Faults::injectFrozenDelay()
{
    m_card->systemTimestamp = m_time.monotonic();
    m_card->statusDelay = static_cast<std::int64_t>(m_card->framesTaken - m_card->framesPlayed -
                                                    m_card->framesDropped);
    m_card->overridesStatus = true;
    const int milliseconds = lasting(20, 300);
    m_card->overridesStatus = false;
    return forMs(milliseconds);
}

std::string Faults::injectZeroTimestamps()
{
    const int count = chosen(1, 100);
    m_card->zeroTimestamps = static_cast<std::uint32_t>(count);
    await([this] { return m_card->zeroTimestamps == 0; });
    return times(static_cast<unsigned int>(count));
}

std::string Faults::injectCoarsePosition()
{
    const int frames = chosen(16, 960);
    m_card->granularity = static_cast<std::uint32_t>(frames);
    const int milliseconds = lasting(200, 1500);
    m_card->granularity = 0;
    return std::string(" of ") + std::to_string(frames) + " frames" + forMs(milliseconds);
}

std::string Faults::injectFailingStatus()
{
    m_card.setResult(Call::snd_pcm_status, -EIO);
    const int milliseconds = lasting(20, 1000);
    m_card.setResult(Call::snd_pcm_status, 0);
    return forMs(milliseconds);
}

std::string Faults::injectStall()
{
    const int milliseconds = chosen(20, 600);
    m_time.leap(std::chrono::milliseconds(milliseconds));
    return forMs(milliseconds);
}

} // namespace keldaSoak
