#pragma once

#include <random>
#include <string>
#include <vector>

#include "audioUtils/clickRemover/ClickRemover.h"
#include "audioUtils/clickRemover/ClickRemoverModel.h"
#include "support/Choices.h"
#include "support/Differences.h"

namespace clickRemoverModel {

/// A click remover and the plain one, of any parameters, which get the same calls.
template<typename T>
class ClickRemoverAndModel
{
public:
    explicit ClickRemoverAndModel(testSupport::Choices& choices)
        : m_choices(choices),
          m_channels(1 + choices.below(8)),
          m_rate(static_cast<int>(8 + choices.upTo(40)) * 1000),
          m_model{choices.upTo(20),
                  choices.upTo(10),
                  choices.upTo(20),
                  choices.below(2) == 1,
                  {},
                  {},
                  {},
                  {},
                  {}},
          m_remover(m_model.gap, m_model.margin, m_model.fadeLength, m_model.skipShort)
    {
        m_model.reset();
    }

    /// @return in what the two differ after the call
    [[nodiscard]] std::string call()
    {
        const std::size_t frames = m_choices.upTo(m_choices.oneIn(10) ? 3000 : 500);
        switch (m_choices.below(30)) {
        case 29:
            flush(frames);
            break;
        case 28:
            m_remover.reset();
            m_model.reset();
            break;
        case 27: {
            const std::size_t position = m_choices.upTo(20'000);
            m_remover.notifyUnderrun(position, m_rate);
            m_model.notifyUnderrun(position);
            break;
        }
        default:
            process(frames);
        }
        return m_differences.text();
    }

private:
    void process(std::size_t frames)
    {
        std::vector<T> actual = signal(frames);
        std::vector<T> expected = actual;
        const std::size_t held = m_remover.process(actual.data(), m_rate, m_channels, frames);
        m_differences.compare("frames held", held,
                              m_model.process(expected.data(), m_rate, m_channels, frames));
        m_differences.compare("what came out", actual, expected);
    }

    void flush(std::size_t frames)
    {
        std::vector<T> actual = signal(frames);
        std::vector<T> expected = actual;
        std::size_t expectedFrames = frames;
        const std::size_t held = m_remover.flush(actual.data(), m_rate, m_channels, frames);
        m_differences.compare("frames held after the flush", held,
                              m_model.flush(expected.data(), m_rate, m_channels, expectedFrames));
        m_differences.compare("frames flushed", frames, expectedFrames);
        m_differences.compare("what was flushed, and what lies behind", actual, expected);
    }

    // Noise and silence in turns, which go on from block to block; a frame may be silent in part.
    std::vector<T> signal(std::size_t frames)
    {
        std::vector<T> samples(frames * m_channels);
        for (T& sample : samples) {
            if (m_samplesLeft == 0) {
                m_loud = !m_loud;
                m_samplesLeft = 1 + m_choices.upTo(m_choices.oneIn(2) ? 10'000 : 1'000);
            }
            --m_samplesLeft;
            sample =
                m_loud ? static_cast<T>(static_cast<double>(m_content() % 60'001) - 30'000) : T{0};
        }
        return samples;
    }

    testSupport::Choices& m_choices;
    std::size_t m_channels;
    int m_rate;
    ClickRemover<T> m_model;
    audioUtils::ClickRemover<T> m_remover;
    std::minstd_rand m_content;
    bool m_loud = true;
    std::size_t m_samplesLeft = 0;
    testSupport::Differences m_differences;
};

} // namespace clickRemoverModel
