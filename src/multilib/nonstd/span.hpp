#pragma once
// #include_next is an extension, but the one way to ask whether the package is installed.
#pragma GCC system_header

/// @file
/// The view type of the buffer interfaces, nonstd::span: a pointer and a length, owning nothing.
///
/// Where the span-lite package is installed its own header serves, with its own type. Elsewhere
/// this small one stands in for it, by the same names. Either is one and the same type at every
/// language level from C++17 on, so that a program may be compiled at another level than the
/// libraries; std::span, which C++17 lacks, converts to it and back.
#if __has_include_next(<nonstd/span.hpp>)
#ifndef span_CONFIG_SELECT_SPAN
#define span_CONFIG_SELECT_SPAN 1 // its own type: never std::span by that name
#endif
#include_next <nonstd/span.hpp>
#else

#include <array>
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <vector>
#if __cplusplus > 201703L
#include <span>
#endif

namespace nonstd {
namespace span_lite {

/// The extent of a span whose length is known only when the program runs.
inline constexpr std::size_t dynamic_extent = static_cast<std::size_t>(-1);

template<typename T, std::size_t Extent = dynamic_extent>
class span;

/// What the constructors take.
namespace detail {

template<typename From, typename To>
inline constexpr bool adds_const_at_most = std::is_convertible_v<From (*)[], To (*)[]>;

template<typename T>
inline constexpr bool has_own_constructor = std::is_array_v<T>;
template<typename T, std::size_t N>
inline constexpr bool has_own_constructor<std::array<T, N>> = true;
template<typename T, std::size_t N>
inline constexpr bool has_own_constructor<span<T, N>> = true;

template<typename Container>
using element = std::remove_pointer_t<decltype(std::data(std::declval<Container&>()))>;

// Whether a view of it may outlive it: where const does not reach the elements it is a view itself.
template<typename Container, typename = void>
inline constexpr bool is_view = false;
template<typename Container>
inline constexpr bool
    is_view<Container, std::void_t<element<const std::remove_reference_t<Container>>>> =
        std::is_same_v<element<Container>, element<const std::remove_reference_t<Container>>>;

template<typename Container, typename T, typename U = element<Container>>
using holds =
    std::enable_if_t<!has_own_constructor<std::remove_cv_t<std::remove_reference_t<Container>>> &&
                         adds_const_at_most<U, T> &&
                         (std::is_lvalue_reference_v<Container> || std::is_const_v<T> ||
                          is_view<Container>),
                     decltype(std::size(std::declval<Container&>()))>;

// Whether what an iterator goes over lies side by side. C++17 can't tell but of these.
#ifdef __cpp_lib_span
template<typename It>
inline constexpr bool is_contiguous = std::contiguous_iterator<It>;
#else
template<typename It, typename Vector = std::vector<typename std::iterator_traits<It>::value_type>>
inline constexpr bool is_contiguous =
    std::is_pointer_v<It> || std::is_same_v<It, typename Vector::iterator> ||
    std::is_same_v<It, typename Vector::const_iterator>;
#endif

template<typename It>
using pointed = std::remove_reference_t<decltype(*std::declval<It&>())>;

template<typename It, typename T>
using goes_over = std::enable_if_t<is_contiguous<It> && adds_const_at_most<pointed<It>, T>>;

// Of what may be an end: nothing is looked at.
template<typename It>
constexpr pointed<It>* address(It it)
{
    if constexpr (std::is_pointer_v<It>)
        return it;
    else
        return it.operator->();
}

template<typename End>
using is_end = std::enable_if_t<!std::is_convertible_v<End, std::size_t>>;

template<bool Condition>
using only_if = std::enable_if_t<Condition, int>;

constexpr std::size_t extent_of_rest(std::size_t extent, std::size_t offset, std::size_t count)
{
    return count != dynamic_extent || extent == dynamic_extent ? count : extent - offset;
}

constexpr std::size_t extent_in_bytes(std::size_t extent, std::size_t size)
{
    return extent == dynamic_extent ? dynamic_extent : extent * size;
}

} // namespace detail

/// Elements side by side that belong to someone else. It is copied and handed over by value; what
/// std::span asks of its caller and does, it asks and does.
///
/// @tparam T      of an element; const where they are not to be changed
/// @tparam Extent how many there are, where the type is to tell
template<typename T, std::size_t Extent>
class span
{
    template<std::size_t N>
    static constexpr bool fits = Extent == dynamic_extent || N == dynamic_extent || N == Extent;

public:
    using element_type = T;
    using value_type = std::remove_cv_t<T>;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using const_pointer = const T*;
    using reference = T&;
    using const_reference = const T&;
    using iterator = T*;
    using const_iterator = const T*;
    using reverse_iterator = std::reverse_iterator<iterator>;
    static constexpr size_type extent = Extent;

    /// Of nothing.
    template<std::size_t N = Extent, detail::only_if<N == 0 || N == dynamic_extent> = 0>
    constexpr span() noexcept
    {
    }

    /// So many from a pointer, or an iterator of a contiguous container, on.
    template<typename It, typename = detail::goes_over<It, T>>
    constexpr span(It first, size_type count) : m_data(detail::address(first)), m_size(count)
    {
    }
    /// From one to before another.
    template<typename It, typename End, typename = detail::goes_over<It, T>,
             typename = detail::is_end<End>>
    constexpr span(It first, End last) : span(first, static_cast<size_type>(last - first))
    {
    }

    /// An array.
    template<std::size_t N, detail::only_if<fits<N>> = 0>
    constexpr span(T (&array)[N]) noexcept : m_data(array), m_size(N)
    {
    }
    template<typename U, std::size_t N,
             detail::only_if<fits<N> && detail::adds_const_at_most<U, T>> = 0>
    constexpr span(std::array<U, N>& array) noexcept : m_data(array.data()), m_size(N)
    {
    }
    template<typename U, std::size_t N,
             detail::only_if<fits<N> && detail::adds_const_at_most<const U, T>> = 0>
    constexpr span(const std::array<U, N>& array) noexcept : m_data(array.data()), m_size(N)
    {
    }

    /// A container, or another type's view, as std::span: whatever std::data and std::size take.
    template<typename Container, typename = detail::holds<Container, T>>
    constexpr span(Container&& container)
        : m_data(std::data(container)), m_size(static_cast<size_type>(std::size(container)))
    {
    }

    /// Another span.
    template<typename U, std::size_t N,
             detail::only_if<fits<N> && detail::adds_const_at_most<U, T>> = 0>
    constexpr span(const span<U, N>& other) noexcept : m_data(other.data()), m_size(other.size())
    {
    }
    constexpr span(const span&) noexcept = default;
    constexpr span& operator=(const span&) noexcept = default;
    ~span() noexcept = default;

    [[nodiscard]] constexpr size_type size() const noexcept { return m_size; }
    [[nodiscard]] constexpr size_type size_bytes() const noexcept { return m_size * sizeof(T); }
    [[nodiscard]] constexpr bool empty() const noexcept { return m_size == 0; }

    [[nodiscard]] constexpr pointer data() const noexcept { return m_data; }
    [[nodiscard]] constexpr reference operator[](size_type i) const { return m_data[i]; }
    [[nodiscard]] constexpr reference front() const { return m_data[0]; }
    [[nodiscard]] constexpr reference back() const { return m_data[m_size - 1]; }

    [[nodiscard]] constexpr iterator begin() const noexcept { return m_data; }
    [[nodiscard]] constexpr iterator end() const noexcept { return m_data + m_size; }
    [[nodiscard]] constexpr const_iterator cbegin() const noexcept { return begin(); }
    [[nodiscard]] constexpr const_iterator cend() const noexcept { return end(); }
    [[nodiscard]] constexpr reverse_iterator rbegin() const noexcept
    {
        return reverse_iterator(end());
    }
    [[nodiscard]] constexpr reverse_iterator rend() const noexcept
    {
        return reverse_iterator(begin());
    }

    [[nodiscard]] constexpr span<T> first(size_type count) const { return {m_data, count}; }
    [[nodiscard]] constexpr span<T> last(size_type count) const
    {
        return {m_data + (m_size - count), count};
    }
    [[nodiscard]] constexpr span<T> subspan(size_type offset,
                                            size_type count = dynamic_extent) const
    {
        return {m_data + offset, count == dynamic_extent ? m_size - offset : count};
    }

    template<std::size_t Count>
    [[nodiscard]] constexpr span<T, Count> first() const
    {
        return {m_data, Count};
    }
    template<std::size_t Count>
    [[nodiscard]] constexpr span<T, Count> last() const
    {
        return {m_data + (m_size - Count), Count};
    }
    template<std::size_t Offset, std::size_t Count = dynamic_extent>
    [[nodiscard]] constexpr span<T, detail::extent_of_rest(Extent, Offset, Count)> subspan() const
    {
        return {m_data + Offset, Count == dynamic_extent ? m_size - Offset : Count};
    }

private:
    T* m_data = nullptr;
    size_type m_size = 0;
};

template<typename T, std::size_t N>
span(T (&)[N]) -> span<T, N>;
template<typename T, std::size_t N>
span(std::array<T, N>&) -> span<T, N>;
template<typename T, std::size_t N>
span(const std::array<T, N>&) -> span<const T, N>;
template<typename It, typename End>
span(It, End) -> span<detail::pointed<It>>;
template<typename Container>
span(Container&&) -> span<detail::element<Container>>;

/// The same memory, byte by byte.
template<typename T, std::size_t N>
[[nodiscard]] span<const std::byte, detail::extent_in_bytes(N, sizeof(T))>
as_bytes(span<T, N> elements) noexcept
{
    return {reinterpret_cast<const std::byte*>(elements.data()), elements.size_bytes()};
}
/// The same, to be written to.
template<typename T, std::size_t N, detail::only_if<!std::is_const_v<T>> = 0>
[[nodiscard]] span<std::byte, detail::extent_in_bytes(N, sizeof(T))>
as_writable_bytes(span<T, N> elements) noexcept
{
    return {reinterpret_cast<std::byte*>(elements.data()), elements.size_bytes()};
}

} // namespace span_lite

using span_lite::as_bytes;
using span_lite::as_writable_bytes;
using span_lite::dynamic_extent;
using span_lite::span;

} // namespace nonstd

#ifdef __cpp_lib_span
template<typename T, std::size_t N>
inline constexpr bool std::ranges::enable_borrowed_range<nonstd::span_lite::span<T, N>> = true;
template<typename T, std::size_t N>
inline constexpr bool std::ranges::enable_view<nonstd::span_lite::span<T, N>> = true;
#endif

#endif
