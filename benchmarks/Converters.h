#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A sample rate converter, ours or a peer's.
class Converter
{
public:
    virtual ~Converter() = default;

    /// Takes a block of interleaved samples whole.
    /// @return frames written to `out`
    virtual std::size_t process(const float* in, std::size_t frames, float* out,
                                std::size_t room) = 0;
};

struct ConverterKind
{
    std::string name;
    bool isFixed = false; ///< its ratio can't change, and must be one of small numbers
    std::function<std::unique_ptr<Converter>(double inRate, double outRate, unsigned int channels)>
        create;
};

/// All that are compared; ours first.
[[nodiscard]] const std::vector<ConverterKind>& converterKinds();
