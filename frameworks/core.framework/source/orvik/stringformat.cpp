#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <new>

#include "orvik/string.h"

namespace orvik {

namespace {

template <class T>
void AppendInteger(std::string& out, T value, int base) {
    char digits[24];  // the longest, a negative decimal, has 20 characters
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value, base);
    out.append(digits, end.ptr);
}

void AppendReal(std::string& out, double value) {
    if (std::isnan(value))
        out += "nan";  // the sign of a NaN says nothing to anybody
    else
        fmt::format_to(std::back_inserter(out), "{}", value);  // the shortest text that reads back as the same value
}

}  // namespace

void FormatArgument::AppendTo(std::string& out, std::string_view spec) const {
    const bool hexadecimal = spec == "x";
    switch (_kind) {
        case Kind::Default:
            out += "<value>";
            break;
        case Kind::Signed:
            if (hexadecimal)
                AppendInteger(out, static_cast<uint64_t>(_signed), 16);
            else
                AppendInteger(out, _signed, 10);
            break;
        case Kind::Unsigned:
            AppendInteger(out, _unsigned, hexadecimal ? 16 : 10);
            break;
        case Kind::Real:
            AppendReal(out, _real);
            break;
        case Kind::Boolean:
            out += _unsigned ? "true" : "false";
            break;
        case Kind::Text:
            out += _text;
            break;
        case Kind::Rendered:
            out += _string.GetText();
            break;
    }
}

String FormatStringArguments(std::string_view text, Block<const FormatArgument> arguments) noexcept {
    try {
        std::string out;
        size_t next = 0;
        size_t from = 0;
        while (next < arguments.size()) {
            const size_t at = text.find('@', from);
            if (at == std::string_view::npos)
                break;
            out += text.substr(from, at - from);
            from = at + 1;
            std::string_view spec;
            if (text.substr(from, 1) == "{") {
                const size_t close = text.find('}', from);
                if (close != std::string_view::npos) {
                    spec = text.substr(from + 1, close - from - 1);
                    from = close + 1;
                }
            }
            arguments[next++].AppendTo(out, spec);
        }
        out += text.substr(from);
        return String(out);
    } catch (const std::bad_alloc&) {
        return String();
    }
}

}  // namespace orvik
