#include "miscUtils/Variant.h"

#include <iomanip>
#include <ostream>
#include <type_traits>

namespace miscUtils {

void VariantArray::append(Variant value)
{
    m_values.push_back(std::move(value));
}

VariantArray::const_iterator VariantArray::begin() const
{
    return m_values.begin();
}

VariantArray::const_iterator VariantArray::end() const
{
    return m_values.end();
}

std::size_t VariantArray::size() const
{
    return m_values.size();
}

bool VariantArray::empty() const
{
    return m_values.empty();
}

bool operator==(const VariantArray& a, const VariantArray& b)
{
    return a.m_values == b.m_values;
}

VariantHash::VariantHash(std::initializer_list<std::pair<const std::string, Variant>> entries)
    : m_values(entries)
{
}

bool VariantHash::contains(const std::string& key) const
{
    return m_values.contains(key);
}

const Variant& VariantHash::get(const std::string& key) const
{
    static const Variant missing;
    const auto entry = m_values.find(key);
    return entry == m_values.end() ? missing : entry->second;
}

Variant& VariantHash::operator[](const std::string& key)
{
    return m_values[key];
}

VariantHash::const_iterator VariantHash::begin() const
{
    return m_values.begin();
}

VariantHash::const_iterator VariantHash::end() const
{
    return m_values.end();
}

std::size_t VariantHash::size() const
{
    return m_values.size();
}

bool VariantHash::empty() const
{
    return m_values.empty();
}

bool operator==(const VariantHash& a, const VariantHash& b)
{
    return a.m_values == b.m_values;
}

Variant::Variant(long value) : m_value(value) {}

Variant::Variant(const char* value)
{
    if (value != nullptr) {
        m_value = std::string(value);
    }
}

Variant::Variant(std::string value) : m_value(std::move(value)) {}

Variant::Variant(VariantArray value) : m_value(std::move(value)) {}

Variant::Variant(VariantHash value) : m_value(std::move(value)) {}

VariantType Variant::getType() const
{
    // In the order of the alternatives.
    static constexpr VariantType types[] = {VariantType::Invalid, VariantType::Integer,
                                            VariantType::String, VariantType::Array,
                                            VariantType::Hash};
    static_assert(std::size(types) == std::variant_size_v<decltype(m_value)>);
    return types[m_value.index()];
}

bool Variant::isValid() const
{
    return getType() != VariantType::Invalid;
}

std::optional<long> Variant::asInteger() const
{
    const auto* value = std::get_if<long>(&m_value);
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

std::optional<std::string> Variant::asString() const
{
    const auto* value = std::get_if<std::string>(&m_value);
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

const VariantArray& Variant::asArray() const
{
    static const VariantArray none;
    const auto* value = std::get_if<VariantArray>(&m_value);
    return value != nullptr ? *value : none;
}

const VariantHash& Variant::asHash() const
{
    static const VariantHash none;
    const auto* value = std::get_if<VariantHash>(&m_value);
    return value != nullptr ? *value : none;
}

bool operator==(const Variant& a, const Variant& b)
{
    return a.m_value == b.m_value;
}

std::ostream& operator<<(std::ostream& out, VariantType type)
{
    switch (type) {
    case VariantType::Invalid:
        return out << "invalid";
    case VariantType::Integer:
        return out << "integer";
    case VariantType::String:
        return out << "string";
    case VariantType::Array:
        return out << "array";
    case VariantType::Hash:
        return out << "hash";
    }
    return out << "unknown kind " << static_cast<int>(type);
}

std::ostream& operator<<(std::ostream& out, const Variant& value)
{
    const char* separator = "";
    switch (value.getType()) {
    case VariantType::Invalid:
        return out << "invalid";
    case VariantType::Integer:
        return out << *value.asInteger();
    case VariantType::String:
        return out << std::quoted(*value.asString());
    case VariantType::Array:
        out << '[';
        for (const Variant& element : value.asArray()) {
            out << std::exchange(separator, ", ") << element;
        }
        return out << ']';
    case VariantType::Hash:
        out << '{';
        for (const auto& [key, element] : value.asHash()) {
            out << std::exchange(separator, ", ") << std::quoted(key) << ": " << element;
        }
        return out << '}';
    }
    return out;
}

} // namespace miscUtils
