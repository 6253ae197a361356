#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <new>

#include "orvik/string.h"

namespace orvik {

namespace {

/// How an integer is written: the meaning of a spec such as "04d".
struct IntegerForm {
    bool plus = false;
    char filling = ' ';
    size_t width = 0;
    char letter = 'd';

    /// @return the plain form for anything that is no spec
    static IntegerForm Parse(std::string_view spec) noexcept {
        constexpr size_t kMostDigits = 2;  // of the width
        IntegerForm form;
        const auto take = [&](char c) {
            const bool found = spec.starts_with(c);
            spec.remove_prefix(found ? 1 : 0);
            return found;
        };
        form.plus = take('+');
        if (take('0'))
            form.filling = '0';
        for (size_t i = 0; i < kMostDigits && !spec.empty() && spec[0] >= '0' && spec[0] <= '9'; ++i) {
            form.width = form.width * 10 + static_cast<size_t>(spec[0] - '0');
            spec.remove_prefix(1);
        }
        for (const char letter : {'d', 'x', 'X'}) {
            if (take(letter)) {
                form.letter = letter;
                break;
            }
        }
        return spec.empty() ? form : IntegerForm();
    }

    void Append(std::string& out, uint64_t bits, bool isSigned) const {
        const bool decimal = letter == 'd';
        const bool negative = decimal && isSigned && static_cast<int64_t>(bits) < 0;
        char digits[20];  // the longest has 20: 2^64 - 1
        char* const end =
            std::to_chars(digits, digits + sizeof(digits), negative ? 0 - bits : bits, decimal ? 10 : 16).ptr;
        if (letter == 'X')
            std::transform(digits, end, digits, [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
        const std::string_view sign = negative ? "-" : plus ? "+" : "";
        const size_t count = sign.size() + static_cast<size_t>(end - digits);
        const size_t missing = width > count ? width - count : 0;
        out.append(filling == ' ' ? missing : 0, ' ').append(sign);
        out.append(filling == '0' ? missing : 0, '0').append(digits, end);
    }
};

void AppendReal(std::string& out, double value) {
    if (std::isnan(value))
        out += "nan";  // the sign of a NaN has no meaning
    else
        fmt::format_to(std::back_inserter(out), "{}", value);  // the shortest text that reads back as the same value
}

}  // namespace

void FormatArgument::AppendTo(std::string& out, std::string_view spec) const {
    switch (_kind) {
        case Kind::Default:
            out += "<value>";
            break;
        case Kind::Signed:
            IntegerForm::Parse(spec).Append(out, static_cast<uint64_t>(_signed), true);
            break;
        case Kind::Unsigned:
            IntegerForm::Parse(spec).Append(out, _unsigned, false);
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
