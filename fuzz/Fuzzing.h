#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include "support/Choices.h"

namespace fuzzing {

/// Ends the program, and tells where, when what must hold does not.
inline void check(bool condition, const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!condition) {
        std::cerr << file << ':' << line << ": this does not hold\n";
        std::abort();
    }
}

/// Ends the program where two things differ that should agree; tells in what.
inline void checkSame(const std::string& differences)
{
    if (!differences.empty()) {
        std::cerr << differences;
        std::abort();
    }
}

/// Takes its choices from the fuzzer's input.
class FuzzedChoices : public testSupport::Choices
{
public:
    FuzzedChoices(const std::uint8_t* bytes, std::size_t size) : m_data(bytes, size) {}

    [[nodiscard]] std::uint64_t upTo(std::uint64_t most) override
    {
        return m_data.ConsumeIntegralInRange<std::uint64_t>(0, most);
    }

    [[nodiscard]] bool areLeft() { return m_data.remaining_bytes() > 0; }

private:
    FuzzedDataProvider m_data;
};

/// Goes on as long as there is input and both agree, for so many calls.
template<typename ThingAndModel>
void follow(ThingAndModel& both, FuzzedChoices& choices, int mostCalls)
{
    for (int i = 0; i < mostCalls && choices.areLeft(); ++i) {
        checkSame(both.call());
    }
}

} // namespace fuzzing
