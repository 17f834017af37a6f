#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

namespace testSupport {

/// What decides the course of a random test: random numbers, or the input of a fuzzer.
class Choices
{
public:
    Choices() = default;
    virtual ~Choices() = default;
    Choices(const Choices&) = delete;
    Choices& operator=(const Choices&) = delete;

    /// @return 0 … most; a fuzzer that has no input left chooses 0
    [[nodiscard]] virtual std::uint64_t upTo(std::uint64_t most) = 0;

    [[nodiscard]] std::uint64_t below(std::uint64_t limit) { return upTo(limit - 1); }
    [[nodiscard]] bool oneIn(std::uint64_t count) { return upTo(count - 1) == count - 1; }

    template<typename Values>
    [[nodiscard]] const auto& anyOf(const Values& values)
    {
        return *std::next(std::begin(values),
                          static_cast<std::ptrdiff_t>(below(std::size(values))));
    }
};

class RandomChoices : public Choices
{
public:
    explicit RandomChoices(unsigned int seed) : m_random(seed) {}

    [[nodiscard]] std::uint64_t upTo(std::uint64_t most) override
    {
        return std::uniform_int_distribution<std::uint64_t>(0, most)(m_random);
    }

private:
    std::mt19937_64 m_random;
};

} // namespace testSupport
