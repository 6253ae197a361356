#include "orvik/string.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <new>
#include <stdexcept>
#include <utf8.h>

#include "orvik/errortypes.h"
#include "orvik/memory.h"

namespace orvik {

/// The counted text; the bytes and a terminating zero follow it. The empty text has no body.
struct String::Body {
    std::atomic<int32_t> count{1};
    size_t size = 0;
    size_t capacity;

    explicit Body(size_t bytes) : capacity(bytes) {}
    char* Text() noexcept { return reinterpret_cast<char*>(this + 1); }
    void SetSize(size_t bytes) noexcept {
        size = bytes;
        Text()[bytes] = 0;
    }
    /// @return null when memory is short
    static Body* Make(size_t capacity) noexcept {
        size_t bytes = 0;
        if (__builtin_add_overflow(capacity, sizeof(Body) + 1, &bytes))
            return nullptr;
        void* memory = Allocate(bytes);
        return memory ? new (memory) Body(capacity) : nullptr;
    }
    void Release() noexcept {
        if (count.fetch_sub(1, std::memory_order_acq_rel) == 1)
            Free(this);
    }
};

namespace {

constexpr char32_t kReplacement = 0xFFFD;

char LowerAscii(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// Runs a conversion that collects in a standard string; lack of memory becomes the error.
template <class Text, class Convert>
Result<Text> Collect(Convert&& convert) {
    try {
        Text text;
        convert(text);
        return text;
    } catch (const std::bad_alloc&) {
        return OutOfMemoryError();
    } catch (const std::length_error&) {
        return OutOfMemoryError();
    }
}

}  // namespace

String::String(const char* utf8) : String(utf8 ? std::string_view(utf8) : std::string_view()) {}

String::String(std::string_view utf8) {
    if (Result<String> text = Create(utf8))
        *this = std::move(text).TakeValue();
}

String::String(const String& other) noexcept : _body(other._body) {
    if (_body)
        _body->count.fetch_add(1, std::memory_order_relaxed);
}

String::~String() {
    if (_body)
        _body->Release();
}

Result<String> String::Create(std::string_view utf8) {
    if (!utf8::is_valid(utf8.begin(), utf8.end())) {
        const std::string valid = TRY(Collect<std::string>([&](std::string& out) {
            utf8::replace_invalid(utf8.begin(), utf8.end(), std::back_inserter(out), kReplacement);
        }));
        return Create(valid);
    }
    String text;
    if (utf8.empty())
        return text;
    text._body = Body::Make(utf8.size());
    if (!text._body)
        return OutOfMemoryError();
    std::memcpy(text._body->Text(), utf8.data(), utf8.size());
    text._body->SetSize(utf8.size());
    return text;
}

Result<String> String::FromUtf16(std::u16string_view text) {
    return Create(TRY(Collect<std::string>([&](std::string& out) {
        for (size_t i = 0; i < text.size(); ++i) {
            char32_t character = text[i];
            if (character >= 0xD800 && character < 0xE000) {
                const bool pair = character < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
                character = pair ? 0x10000 + ((character & 0x3FF) << 10) + (text[++i] & 0x3FFu) : kReplacement;
            }
            utf8::unchecked::append(character, std::back_inserter(out));
        }
    })));
}

Result<String> String::FromUtf32(std::u32string_view text) {
    return Create(TRY(Collect<std::string>([&](std::string& out) {
        for (const char32_t character : text) {
            const bool valid = character < 0xD800 || (character >= 0xE000 && character < 0x110000);
            utf8::unchecked::append(valid ? character : kReplacement, std::back_inserter(out));
        }
    })));
}

Result<String> String::FromLatin1(std::string_view text) {
    String result;
    if (text.empty())
        return result;
    size_t bytes = text.size();
    for (const char c : text)
        bytes += static_cast<unsigned char>(c) >> 7;
    result._body = Body::Make(bytes);
    if (!result._body)
        return OutOfMemoryError();
    char* out = result._body->Text();
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            *out++ = c;
        } else {
            *out++ = static_cast<char>(0xC0 | (byte >> 6));
            *out++ = static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    result._body->SetSize(bytes);
    return result;
}

Result<String> String::FromSystemText(std::string_view bytes) {
    return utf8::is_valid(bytes.begin(), bytes.end()) ? Create(bytes) : FromLatin1(bytes);
}

Int String::GetLength() const {
    Int length = 0;
    for (const char c : GetText())
        length += (c & 0xC0) != 0x80;  // the text is valid: count what does not continue a character
    return length;
}

std::string_view String::GetText() const noexcept {
    return _body ? std::string_view(_body->Text(), _body->size) : std::string_view();
}

const char* String::GetCString() const noexcept { return _body ? _body->Text() : ""; }

Result<void> String::Append(const String& other) {
    if (!other._body)
        return {};
    if (!_body) {
        *this = other;
        return {};
    }
    const size_t size = _body->size;
    const size_t added = other._body->size;
    size_t needed = 0;
    if (__builtin_add_overflow(size, added, &needed))
        return OutOfMemoryError();
    if (_body->count.load(std::memory_order_acquire) == 1 && needed <= _body->capacity) {
        std::memcpy(_body->Text() + size, other._body->Text(), added);
        _body->SetSize(needed);
        return {};
    }
    Body* grown = Body::Make(std::max(needed, needed + needed / 2));
    if (!grown)
        return OutOfMemoryError();
    std::memcpy(grown->Text(), _body->Text(), size);
    std::memcpy(grown->Text() + size, other._body->Text(), added);
    grown->SetSize(needed);
    std::exchange(_body, grown)->Release();
    return {};
}

Result<std::u16string> String::ToUtf16() const {
    return Collect<std::u16string>([text = GetText()](std::u16string& out) {
        utf8::unchecked::utf8to16(text.begin(), text.end(), std::back_inserter(out));
    });
}

Result<std::u32string> String::ToUtf32() const {
    return Collect<std::u32string>([text = GetText()](std::u32string& out) {
        utf8::unchecked::utf8to32(text.begin(), text.end(), std::back_inserter(out));
    });
}

Result<std::string> String::ToLatin1() const {
    return Collect<std::string>([text = GetText()](std::string& out) {
        for (auto at = text.begin(); at != text.end();) {
            const uint32_t character = utf8::unchecked::next(at);
            out.push_back(character < 0x100 ? static_cast<char>(character) : '?');
        }
    });
}

String String::ToLower() const {
    String lower(GetText());
    if (lower._body) {
        char* text = lower._body->Text();
        for (size_t i = 0; i < lower._body->size; ++i)
            text[i] = LowerAscii(text[i]);
    }
    return lower;
}

bool String::ContainsIgnoringCase(std::string_view asciiPart) const {
    const std::string_view text = GetText();
    const auto same = [](char a, char b) { return LowerAscii(a) == LowerAscii(b); };
    return std::search(text.begin(), text.end(), asciiPart.begin(), asciiPart.end(), same) != text.end() ||
           asciiPart.empty();
}

uint64_t String::GetHashCode() const noexcept {
    uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
    for (const char c : GetText())
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return hash;
}

}  // namespace orvik
