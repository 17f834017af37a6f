#pragma once

#include <rapidcheck.h>

#include "miscUtils/Variant.h"

namespace testSupport {

/// Any Variant, up to some levels deep. Strings are ASCII, so that they survive as JSON.
inline rc::Gen<miscUtils::Variant> anyVariant(int levels = 3)
{
    using namespace miscUtils;
    const auto text = rc::gen::container<std::string>(rc::gen::inRange<char>(1, 127));
    const auto invalid = rc::gen::construct<Variant>();
    const auto integer = rc::gen::construct<Variant>(rc::gen::arbitrary<long>());
    const auto string = rc::gen::construct<Variant>(text);
    if (levels == 0) {
        return rc::gen::oneOf(invalid, integer, string);
    }
    const auto inside = rc::gen::lazy([levels] { return anyVariant(levels - 1); });
    const auto array = rc::gen::map(rc::gen::container<std::vector<Variant>>(inside),
                                    [](const std::vector<Variant>& elements) {
                                        VariantArray values;
                                        for (const Variant& element : elements) {
                                            values.append(element);
                                        }
                                        return Variant(values);
                                    });
    const auto hash = rc::gen::map(rc::gen::container<std::map<std::string, Variant>>(text, inside),
                                   [](const std::map<std::string, Variant>& elements) {
                                       VariantHash values;
                                       for (const auto& [key, value] : elements) {
                                           values[key] = value;
                                       }
                                       return Variant(values);
                                   });
    return rc::gen::oneOf(invalid, integer, string, array, hash);
}

} // namespace testSupport
