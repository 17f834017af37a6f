#include "miscUtils/ScopedFunction.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace {

// The signature without the template arguments that compilers list behind it: " [with T = int]".
std::string_view withoutArgumentList(std::string_view signature)
{
    return signature.ends_with(']') ? signature.substr(0, signature.rfind(" [")) : signature;
}

// The position of the bracket that the last closing one belongs to, or npos.
std::size_t openingOf(std::string_view text, char opening, char closing)
{
    int depth = 0;
    for (std::size_t i = text.rfind(closing); i != std::string_view::npos && i-- > 0;) {
        if (text[i] == closing) {
            ++depth;
        } else if (text[i] == opening && depth-- == 0) {
            return i;
        }
    }
    return std::string_view::npos;
}

// Everything before the parameters: return type and qualified name. Behind a lambda's name
// ("<lambda(int)>") there are none.
std::string_view withoutParameters(std::string_view signature)
{
    const std::size_t parameters =
        signature.ends_with('>') ? std::string_view::npos : openingOf(signature, '(', ')');
    return parameters == std::string_view::npos ? signature : signature.substr(0, parameters);
}

// The qualified name at the end: behind the last blank outside of template brackets, where an
// operator's own characters are no brackets.
std::string_view qualifiedName(std::string_view declaration)
{
    const std::size_t operatorName = declaration.rfind("operator");
    const std::size_t end =
        operatorName == std::string_view::npos ? declaration.size() : operatorName;
    int depth = 0;
    for (std::size_t i = end; i-- > 0;) {
        const char c = declaration[i];
        depth += c == '>' || c == ')' ? 1 : c == '<' || c == '(' ? -1 : 0;
        if (depth == 0 && (c == ' ' || c == '*' || c == '&')) {
            return declaration.substr(i + 1);
        }
    }
    return declaration;
}

bool equalWithoutCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

} // namespace

std::string dbglog_scopedFunction(const std::string& function, const std::string& loggerName)
{
    std::string_view name = qualifiedName(withoutParameters(withoutArgumentList(function)));
    const std::size_t scope = name.find("::");
    if (scope != std::string_view::npos && equalWithoutCase(name.substr(0, scope), loggerName)) {
        name.remove_prefix(scope + 2);
    }
    return std::string(name);
}
