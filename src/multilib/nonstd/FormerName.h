#pragma once

#include <type_traits>

#include "nonstd/span.hpp"

/// @file
/// In 1.0.0 nonstd::span was std::span, and so part of the names by which programs that were
/// compiled then ask for operations. Both spans lie in memory, and are handed over, alike: so the
/// operations have these names, too.

static_assert(std::is_trivially_copyable_v<nonstd::span<int>> &&
                  sizeof(nonstd::span<int>) == sizeof(int*) + sizeof(std::size_t),
              "a span is a pointer and a length, handed over in two registers");

/// Gives an operation that this file defines its former name, too: what stands before the span in
/// its mangled name, the mangled type of the span's elements, and what stands behind. None where
/// the libraries are built with the span-lite package, whose name has not changed.
#ifdef span_lite_VERSION
#define KELDA_FORMER_NAME(before, type, behind)
#else
#define KELDA_FORMER_NAME(before, type, behind)                                                    \
    __asm__(".globl " before "St4spanI" type "Lm18446744073709551615EE" behind "\n"                \
            ".set " before "St4spanI" type "Lm18446744073709551615EE" behind ", " before           \
            "N6nonstd9span_lite4spanI" type "Lm18446744073709551615EEE" behind)
#endif
