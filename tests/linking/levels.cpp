// What a program sees of the libraries, whatever language level it is compiled at: the types of the
// operations with views, the sizes of all public types; and it hands views to them as programs do.
#include <array>
#include <cassert>
#include <cstddef>
#include <iostream>
#include <numeric>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>
#if __cplusplus > 201703L
#include <algorithm>
#include <initializer_list>
#include <ranges>
#include <span>
#endif

#include "audioUtils/AudioDataStructures.h"
#include "audioUtils/DsdDataStructures.h"
#include "audioUtils/Logging.h"
#include "audioUtils/LowPassFilter.h"
#include "audioUtils/PcmDataStructures.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/clickRemover/ClickRemover.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include "audioUtils/pid/Pid.h"
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "miscUtils/Json.h"
#include "miscUtils/TimestampFilter.h"
#include "miscUtils/Variant.h"
#include "nonstd/span.hpp"
#include "resampleKit/FloatBlockFilter.h"
#include "resampleKit/ShortBlockFilter.h"

using namespace audioUtils;
using Bytes = nonstd::span<unsigned char>;
using ConstBytes = nonstd::span<const unsigned char>;

namespace {

template<typename T>
void print()
{
    std::cout << typeid(T).name() << ' ' << sizeof(T) << ' ' << alignof(T) << '\n';
}

void printTypes()
{
    print<ConstBytes>();
    print<IntegerRange>();
    print<PcmAudioInfo>();
    print<PcmAudioCapabilities>();
    print<DsdAudioInfo>();
    print<DsdAudioCapabilities>();
    print<PcmQueue>();
    print<PcmQueueCounters>();
    print<PllDriftCompensator>();
    print<LowPassFilter>();
    print<PID>();
    print<ClickRemover<float>>();
    print<RenderingDelay>();
    print<FakeOutputDevice>();
    print<AlsaOutputDevice>();
    print<HighQualityResampler>();
    print<HighQualityResamplerShort>();
    print<GStreamerResampler>();
    print<miscUtils::Variant>();
    print<miscUtils::VariantArray>();
    print<miscUtils::VariantHash>();
    print<miscUtils::JsonError>();
    print<miscUtils::TimestampFilter>();
    print<resampleKit::FloatBlockFilter>();
    print<resampleKit::ShortBlockFilter>();
    print<decltype(&PcmQueue::write)>();
    print<std::size_t (PcmQueue::*)(TimeValue, const Bytes&)>();
}

int failures = 0;

void expect(bool holds, const char* what)
{
    if (!holds) {
        std::cout << "not so: " << what << '\n';
        ++failures;
    }
}
#define EXPECT(condition) expect(condition, #condition)

// Each kind of buffer that a program may have goes through the queue.
template<typename Out, typename In>
bool passes(Out&& out, const In& in)
{
    PcmQueue queue;
    queue.configure(false, 100, 48000, 1, 1, "levels", false, 20'000'000, 10'000'000);
    if (!queue.write(miscUtils::NoTimeValue, in)) {
        return false;
    }
    return queue.read(miscUtils::NoTimeValue, out) == 4 && out[0] == 1 && out[3] == 4;
}

void handOver()
{
    const std::vector<unsigned char> vector{1, 2, 3, 4};
    const std::array<unsigned char, 4> array{1, 2, 3, 4};
    const unsigned char plain[] = {1, 2, 3, 4};
    std::vector<unsigned char> toVector(4);
    std::array<unsigned char, 4> toArray{};
    unsigned char toPlain[4] = {};
    EXPECT(passes(toVector, vector));
    EXPECT(passes(toArray, array));
    EXPECT(passes(toPlain, plain));
    EXPECT(passes(Bytes(toVector), ConstBytes(vector)));
    EXPECT(passes(Bytes(toPlain, 4), ConstBytes(vector.data(), vector.data() + 4)));
    EXPECT(passes(Bytes(toVector.begin(), toVector.end()), Bytes(toVector.begin(), 4)));
    EXPECT(passes(nonstd::span<unsigned char, 4>(toArray), nonstd::span(array)));

    PcmQueue queue;
    queue.configure(false, 100, 48000, 1, 1, "levels", false, 20'000'000, 10'000'000);
    EXPECT(queue.write(miscUtils::NoTimeValue, {plain, sizeof plain}));
    EXPECT(queue.write(miscUtils::NoTimeValue, std::vector<unsigned char>{5, 6}));
    EXPECT(queue.read(miscUtils::NoTimeValue, {toPlain, 3}) == 3);
    EXPECT(queue.read(miscUtils::NoTimeValue, Bytes(toVector).first(3)) == 3 && toVector[2] == 6);
    EXPECT(queue.write(miscUtils::NoTimeValue, {}));

    std::vector<int> rates{44100, 48000};
    EXPECT(IntegerRange(rates).getAllowedIntegers() == rates);
    EXPECT(IntegerRange(std::vector<int>{8000}) != IntegerRange(rates));
    EXPECT(miscUtils::Variant(7U) != miscUtils::Variant("7"));
    EXPECT(PcmAudioInfo(48000, 2, S16LE) != PcmAudioInfo());
#if __cplusplus > 201703L
    std::span<unsigned char> standard(toVector);
    EXPECT(passes(standard, std::span<const unsigned char>(vector)));
    EXPECT(passes(standard, std::span(array)));
    EXPECT(queue.write(miscUtils::NoTimeValue, standard.first(2)));
    EXPECT(queue.read(miscUtils::NoTimeValue, standard.last(2)) == 2);
    const auto list = {1, 2, 3};
    EXPECT(nonstd::span<const int>(list).size() == 3);
#endif
}

// A view by itself, as std::span is used.
void view()
{
    std::vector<int> numbers(10);
    std::iota(numbers.begin(), numbers.end(), 0);
    const nonstd::span<int> all = numbers;
    EXPECT(all.size() == 10 && all.size_bytes() == 40 && !all.empty() && all.data() == &numbers[0]);
    EXPECT(all.front() == 0 && all.back() == 9 && all[4] == 4);
    EXPECT(std::accumulate(all.begin(), all.end(), 0) == 45 && *all.rbegin() == 9);
    EXPECT(all.first(3).back() == 2 && all.last(3).front() == 7);
    EXPECT(all.subspan(4).size() == 6 && all.subspan(4, 2).back() == 5);
    EXPECT(all.first<3>().back() == 2 && all.last<3>().front() == 7);
    EXPECT((all.subspan<4>().size() == 6 && all.subspan<4, 2>().back() == 5));
    EXPECT(nonstd::span(numbers).size() == 10 && nonstd::span<int>().empty());
    EXPECT(all.extent == nonstd::dynamic_extent && all.first<3>().extent == 3);
    const nonstd::span<const int> unchanging = all;
    EXPECT(unchanging.data() == all.data());
    for (int& number : all) {
        number = 0x01010101;
    }
    const auto bytes = as_bytes(all);
    EXPECT(bytes.size() == 40 && bytes[7] == std::byte{1});
    as_writable_bytes(all)[0] = std::byte{2};
    EXPECT(numbers[0] == 0x01010102);
    static_assert(std::is_same_v<nonstd::span<int>, nonstd::span_lite::span<int>>);
    // What would dangle, or write to what is const, is refused.
    static_assert(!std::is_constructible_v<nonstd::span<int>, std::vector<int>>);
    static_assert(!std::is_constructible_v<nonstd::span<int>, const std::vector<int>&>);
    static_assert(!std::is_constructible_v<nonstd::span<int>, nonstd::span<const int>>);
    static_assert(!std::is_constructible_v<nonstd::span<int>, std::vector<long>&>);
    static_assert(!std::is_constructible_v<nonstd::span<const int>, std::string>);
    static_assert(!std::is_convertible_v<IntegerRange, nonstd::span<int>>);
#if __cplusplus > 201703L
    static_assert(std::ranges::contiguous_range<nonstd::span<int>> &&
                  std::ranges::borrowed_range<nonstd::span<int>> &&
                  std::ranges::view<nonstd::span<int>>);
    const std::span<int> standard = all;
    const std::span<const int> unchangingStandard = nonstd::span<const int>(numbers);
    EXPECT(standard.data() == all.data() && unchangingStandard.size() == 10);
    EXPECT(std::ranges::max(all) == 0x01010102);
#endif
}

void filters()
{
    const std::vector<float> floats(4096 * 8, 0.1F);
    EXPECT(resampleKit::FloatBlockFilter(floats).bytes() > 0);
    const std::vector<short> shorts(256 * 8, 1);
    EXPECT(resampleKit::ShortBlockFilter(nonstd::span<const short>(shorts)).bytes() > 0);
}

} // namespace

int main()
{
    logToStandardError(LogErrors);
    printTypes();
    handOver();
    view();
    filters();
    return failures == 0 ? 0 : 1;
}
