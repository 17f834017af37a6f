#include "miscUtils/Json.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace miscUtils {

namespace {

using Json = nlohmann::json;

constexpr std::size_t deepest = 100;

Json jsonOf(const Variant& value)
{
    switch (value.getType()) {
    case VariantType::Invalid:
        return nullptr;
    case VariantType::Integer:
        return *value.asInteger();
    case VariantType::String:
        return *value.asString();
    case VariantType::Array: {
        Json array = Json::array();
        for (const Variant& element : value.asArray()) {
            array.push_back(jsonOf(element));
        }
        return array;
    }
    case VariantType::Hash: {
        Json object = Json::object();
        for (const auto& [key, element] : value.asHash()) {
            object[key] = jsonOf(element);
        }
        return object;
    }
    }
    return nullptr;
}

/// A text that knows how much of it the parser has read.
class Reader
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Reader(const char* at, const char** furthest) : m_at(at), m_furthest(furthest) {}

    reference operator*() const { return *m_at; }
    Reader& operator++()
    {
        *m_furthest = std::max(*m_furthest, ++m_at);
        return *this;
    }
    Reader operator++(int) { return std::exchange(*this, ++Reader(*this)); }
    bool operator==(const Reader& other) const { return m_at == other.m_at; }

private:
    const char* m_at;
    const char** m_furthest;
};

/// Builds a Variant from what the parser finds; false stops the parser.
class Builder : public nlohmann::json_sax<Json>
{
public:
    [[nodiscard]] Variant takeResult() { return std::move(m_result); }
    [[nodiscard]] const std::string& error() const { return m_error; }

    bool null() override { return add(Variant()); }
    bool boolean(bool /*value*/) override { return fail("truth values are not supported"); }
    bool number_integer(number_integer_t value) override { return add(Variant(value)); }
    bool number_unsigned(number_unsigned_t value) override
    {
        return value <= static_cast<number_unsigned_t>(std::numeric_limits<long>::max())
                   ? add(Variant(static_cast<long>(value)))
                   : fail("the integer does not fit into 64 bits");
    }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override
    {
        return fail("only 64-bit integers are supported, no other numbers");
    }
    bool string(string_t& value) override { return add(Variant(std::move(value))); }
    bool binary(binary_t& /*value*/) override { return fail("binary values are not supported"); }

    bool start_object(std::size_t /*size*/) override { return open(false); }
    bool start_array(std::size_t /*size*/) override { return open(true); }
    bool key(string_t& name) override
    {
        if (m_open.back().hash.contains(name)) {
            return fail("the key \"" + name + "\" occurs twice");
        }
        m_open.back().key = std::move(name);
        return true;
    }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const Json::exception& error) override
    {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ..."
        std::string text = error.what();
        for (const std::string_view introduction : {"] ", ": "}) {
            if (const std::size_t at = text.find(introduction); at != text.npos) {
                text.erase(0, at + introduction.size());
            }
        }
        return fail(std::move(text));
    }

private:
    struct Level
    {
        bool isArray = false;
        VariantArray array;
        VariantHash hash;
        std::string key;
    };

    bool fail(std::string message)
    {
        m_error = std::move(message);
        return false;
    }

    bool add(Variant value)
    {
        if (m_open.empty()) {
            m_result = std::move(value);
        } else if (Level& level = m_open.back(); level.isArray) {
            level.array.append(std::move(value));
        } else {
            level.hash[level.key] = std::move(value);
        }
        return true;
    }

    bool open(bool isArray)
    {
        if (m_open.size() == deepest) {
            return fail("nested too deeply");
        }
        m_open.emplace_back().isArray = isArray;
        return true;
    }

    bool close()
    {
        Level level = std::move(m_open.back());
        m_open.pop_back();
        return add(level.isArray ? Variant(std::move(level.array))
                                 : Variant(std::move(level.hash)));
    }

    std::vector<Level> m_open;
    Variant m_result;
    std::string m_error;
};

} // namespace

std::string toJson(const Variant& value, int indent)
{
    return jsonOf(value).dump(indent, ' ', false, Json::error_handler_t::replace);
}

bool fromJson(Variant& out, JsonError& error, std::string_view json)
{
    const char* const begin = json.data();
    const char* const end = begin + json.size();
    const char* furthest = begin;
    Builder builder;
    if (Json::sax_parse(Reader(begin, &furthest), Reader(end, &furthest), &builder)) {
        out = builder.takeResult();
        return true;
    }
    // The last byte that was read is the one that is wrong, or the end of what is.
    const std::size_t position =
        furthest == begin ? 0 : static_cast<std::size_t>(furthest - begin) - 1;
    const std::string_view before = json.substr(0, position);
    const std::size_t lineStart = before.rfind('\n') + 1; // 0 where there is no line break
    error.message = builder.error();
    error.line = 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    error.column = 1 + position - lineStart;
    return false;
}

} // namespace miscUtils
