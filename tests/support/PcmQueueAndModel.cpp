#include "support/PcmQueueAndModel.h"

#include <algorithm>
#include <initializer_list>
#include <vector>

namespace testSupport {

using miscUtils::NoTimeValue;
using miscUtils::TimeValue;
using miscUtils::TimeValueDelta;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue day = 24UL * 3600 * 1000 * ms;

} // namespace

PcmQueueAndModel::PcmQueueAndModel(Choices& choices, const QueueParameters& parameters)
    : m_choices(choices), m_parameters(parameters)
{
    configure();
}

std::string PcmQueueAndModel::call()
{
    anyOperation();
    compareStates();
    return m_differences.text();
}

void PcmQueueAndModel::configure()
{
    const auto apply = [this](auto& target) {
        target.configure(m_parameters.timestamping, m_parameters.maxFillLevelInMS,
                         m_parameters.sampleRate, m_parameters.channels,
                         m_parameters.numBytesPerSample, "random", m_parameters.filter,
                         m_parameters.jumpThreshold, 10 * ms);
    };
    apply(m_queue);
    apply(m_model);
    m_now = 1'700'000'000'000 * ms;
    m_nextPts = m_now;
}

// Mostly small, at times beyond the threshold, seldom absurd; of either sign.
TimeValue PcmQueueAndModel::deviation()
{
    const std::uint64_t kind = m_choices.below(100);
    const TimeValue size = kind < 70 ? m_choices.below(2 * ms)
                           : kind < 94
                               ? m_choices.below(4 * m_parameters.maxFillLevelInMS * ms)
                               : m_choices.anyOf(std::initializer_list<TimeValue>{
                                     m_parameters.jumpThreshold, m_parameters.jumpThreshold + 1,
                                     3600 * 1000 * ms, 3 * day, 40 * day});
    return m_choices.below(2) == 0 ? size : TimeValue{0} - size;
}

std::size_t PcmQueueAndModel::anyLength()
{
    const std::size_t frames = m_model.capacity / m_model.bytesPerFrame;
    return m_model.bytesPerFrame * m_choices.below(frames / (m_choices.oneIn(4) ? 1 : 4) + 2);
}

void PcmQueueAndModel::write()
{
    std::vector<unsigned char> data(anyLength());
    std::ranges::generate(data, [this] { return static_cast<unsigned char>(m_content() >> 8); });
    const TimeValue pts =
        m_choices.oneIn(20) ? NoTimeValue : m_nextPts + (m_choices.below(2) == 0 ? 0 : deviation());
    if (!m_model.hasRoomFor(pts, data)) {
        return;
    }
    const bool written = m_queue.write(pts, data);
    m_differences.compare("result of write()", written, m_model.write(pts, data));
    if (m_model.writePts != NoTimeValue) {
        m_nextPts = m_model.writePts;
    }
}

void PcmQueueAndModel::read()
{
    std::vector<unsigned char> out(anyLength(), 0xA5);
    std::vector<unsigned char> expected = out;
    TimeValueDelta delta = 12345;
    TimeValueDelta expectedDelta = delta;
    const TimeValue due = m_model.readPts == NoTimeValue ? m_now : m_model.readPts;
    const TimeValue time =
        m_choices.oneIn(20) ? NoTimeValue : due + (m_choices.below(2) == 0 ? 0 : deviation());
    const std::size_t frames = m_queue.read(time, out, delta);
    m_differences.compare("result of read()", frames, m_model.read(time, expected, expectedDelta));
    m_differences.compare("what was read, and what lies behind", out, expected);
    m_differences.compare("delta", delta, expectedDelta);
}

void PcmQueueAndModel::flushOldData()
{
    const TimeValue time = m_choices.oneIn(10)              ? NoTimeValue
                           : m_choices.oneIn(5)             ? m_model.writePts
                           : m_model.readPts == NoTimeValue ? m_now
                                                            : m_model.readPts + deviation();
    m_queue.flushOldData(time);
    m_model.flushOldData(time);
}

void PcmQueueAndModel::anyOperation()
{
    switch (m_choices.below(100)) {
    case 99:
        m_queue.reset();
        m_model.reset();
        break;
    case 98:
        configure();
        break;
    case 97:
        m_queue.resyncRead();
        m_model.resyncRead();
        break;
    case 96:
        if (m_choices.oneIn(10)) {
            m_queue.abortWrite();
            m_model.abortWrite();
        }
        break;
    case 95:
    case 94:
        flushOldData();
        break;
    case 93:
    case 92: {
        const TimeValue time = m_choices.oneIn(5) ? NoTimeValue : m_nextPts + deviation();
        const TimeValue duration = m_queue.bufferedDuration(time);
        m_differences.compare("bufferedDuration()", duration, m_model.bufferedDuration(time));
        break;
    }
    default:
        m_choices.below(2) == 0 ? write() : read();
    }
}

void PcmQueueAndModel::compareStates()
{
    m_differences.compare("log", m_log.takeLines(), m_model.log);
    m_model.log.clear();
    m_differences.compare("getReadPts()", m_queue.getReadPts(), m_model.readPts);
    m_differences.compare("getWritePts()", m_queue.getWritePts(), m_model.writePts);
    m_differences.compare("bufferedDuration() of all", m_queue.bufferedDuration(NoTimeValue),
                          m_model.bufferedDuration(NoTimeValue));
    const audioUtils::PcmQueueCounters counters = m_queue.counters();
    const audioUtils::PcmQueueCounters& expected = m_model.counters;
    m_differences.compare("insertedFrames", counters.insertedFrames, expected.insertedFrames);
    m_differences.compare("resets", counters.resets, expected.resets);
    m_differences.compare("silenceFrames", counters.silenceFrames, expected.silenceFrames);
    m_differences.compare("skippedFrames", counters.skippedFrames, expected.skippedFrames);
    m_differences.compare("underruns", counters.underruns, expected.underruns);
}

} // namespace testSupport
