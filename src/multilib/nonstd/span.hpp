#pragma once
// #include_next is an extension, but the one way to ask whether the package is installed.
#pragma GCC system_header

// The view type of the buffer interfaces. Where the span-lite package is installed its own header
// serves; elsewhere this alias of std::span stands in for it.
#if __has_include_next(<nonstd/span.hpp>)
#include_next <nonstd/span.hpp>
#else

#include <span>

namespace nonstd {
namespace span_lite {

using std::dynamic_extent;
using std::span;

} // namespace span_lite

using span_lite::dynamic_extent;
using span_lite::span;

} // namespace nonstd

#endif
