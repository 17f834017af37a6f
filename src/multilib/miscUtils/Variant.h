#pragma once

#include <cstddef>
#include <initializer_list>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "miscUtils/Export.h"

namespace miscUtils {

class Variant;

/// The kind of value that a Variant holds. The numbers are part of the interface.
enum class VariantType : int {
    Invalid = 0, ///< no value, e.g. what VariantHash::get returns for a missing key
    Integer = 1, ///< 64-bit signed
    String = 2,  ///< of any bytes; UTF-8 where it is to become JSON
    Array = 6,   ///< a VariantArray
    Hash = 7,    ///< a VariantHash
};

/// Prints "invalid", "integer", "string", "array" or "hash".
KELDA_EXPORT std::ostream& operator<<(std::ostream& out, VariantType type);

/// An ordered sequence of Variants.
class KELDA_EXPORT VariantArray
{
public:
    using value_type = Variant;                                  ///< What it holds.
    using const_iterator = std::vector<Variant>::const_iterator; ///< Points to a Variant.

    /// Adds a value behind the last one.
    void append(Variant value);

    [[nodiscard]] const_iterator begin() const; ///< The first value.
    [[nodiscard]] const_iterator end() const;   ///< Behind the last one.
    [[nodiscard]] std::size_t size() const;     ///< How many values it holds.
    [[nodiscard]] bool empty() const;           ///< Whether it holds none.

    /// Equal values in the same order.
    KELDA_EXPORT friend bool operator==(const VariantArray& a, const VariantArray& b);
    friend bool operator!=(const VariantArray& a, const VariantArray& b) { return !(a == b); }

private:
    std::vector<Variant> m_values;
};

/// A map from keys to Variants, ordered by key.
class KELDA_EXPORT VariantHash
{
public:
    /// Points to a pair of key and Variant.
    using const_iterator = std::map<std::string, Variant>::const_iterator;

    /// Empty.
    VariantHash() = default;
    /// Of a key that occurs twice the first value is kept.
    VariantHash(std::initializer_list<std::pair<const std::string, Variant>> entries);

    /// Whether there is such a key.
    [[nodiscard]] bool contains(const std::string& key) const;

    /// The value of a key, or an invalid Variant where there is none. Never inserts or throws.
    [[nodiscard]] const Variant& get(const std::string& key) const;

    /// The value of a key, for changing it; an absent key is inserted with an invalid Variant.
    Variant& operator[](const std::string& key);

    [[nodiscard]] const_iterator begin() const; ///< The smallest key's entry.
    [[nodiscard]] const_iterator end() const;   ///< Behind the last one.
    [[nodiscard]] std::size_t size() const;     ///< How many keys it holds.
    [[nodiscard]] bool empty() const;           ///< Whether it holds none.

    /// The same keys with equal values.
    KELDA_EXPORT friend bool operator==(const VariantHash& a, const VariantHash& b);
    friend bool operator!=(const VariantHash& a, const VariantHash& b) { return !(a == b); }

private:
    std::map<std::string, Variant> m_values;
};

/// A dynamic value: nothing, an integer, a string, an array or a hash. The serialised form of
/// descriptions and configurations.
///
/// A plain value: copies are deep, and one object belongs to one thread at a time.
class KELDA_EXPORT Variant
{
public:
    /// An invalid value.
    Variant() = default;
    /// An integer.
    Variant(long value);
    /// Every other integer that fits into 64 signed bits without loss.
    template<typename Integer, typename = std::enable_if_t<
                                   std::is_integral_v<Integer> && !std::is_same_v<Integer, bool> &&
                                   (std::is_signed_v<Integer> || sizeof(Integer) < sizeof(long))>>
    Variant(Integer value) : Variant(static_cast<long>(value))
    {
    }
    /// A string; a null pointer gives an invalid value.
    Variant(const char* value);
    /// A string, of any bytes.
    Variant(std::string value);
    /// An array.
    Variant(VariantArray value);
    /// A hash.
    Variant(VariantHash value);
    /// Neither truth values nor null have a kind of their own here.
    Variant(bool) = delete;
    Variant(std::nullptr_t) = delete;

    /// Which kind of value it holds.
    [[nodiscard]] VariantType getType() const;
    /// False for a value of kind Invalid only.
    [[nodiscard]] bool isValid() const;

    /// The integer; empty for every other kind (strings of digits are not converted).
    [[nodiscard]] std::optional<long> asInteger() const;
    /// The string; empty for every other kind.
    [[nodiscard]] std::optional<std::string> asString() const;
    /// The array; an empty one for every other kind.
    [[nodiscard]] const VariantArray& asArray() const;
    /// The hash; an empty one for every other kind.
    [[nodiscard]] const VariantHash& asHash() const;

    /// Equal in kind and value, containers element by element.
    KELDA_EXPORT friend bool operator==(const Variant& a, const Variant& b);
    friend bool operator!=(const Variant& a, const Variant& b) { return !(a == b); }

private:
    std::variant<std::monostate, long, std::string, VariantArray, VariantHash> m_value;
};

/// Prints the value on one line, e.g. {"max": 8, "names": ["a", "b"]}.
KELDA_EXPORT std::ostream& operator<<(std::ostream& out, const Variant& value);

} // namespace miscUtils
