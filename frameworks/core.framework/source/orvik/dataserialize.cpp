#include "orvik/dataserialize.h"

namespace orvik {
namespace {

constexpr size_t kMaxNameBytes = 255;
/// What is read at a time from a stream that does not say how much it holds.
constexpr Int kUnsureBytes = Int(1) << 16;

}  // namespace

/// Writes name and kind of a field, or reads them and compares.
Result<void> DataSerialize::Begin(std::string_view name, Kind kind) {
    if (name.size() > kMaxNameBytes)
        return IllegalArgumentError("Field name @ is too long.", name);
    auto length = static_cast<uint8_t>(name.size());
    if (!_isReading) {
        TRY(_out->Write(&length, 1));
        TRY(_out->Write(name.data(), name.size()));
        return _out->Write(&kind, 1);
    }
    char found[kMaxNameBytes];
    TRY(_in->Read(&length, 1));
    TRY(_in->Read(found, length));
    if (std::string_view(found, length) != name)
        return IllegalArgumentError("Field @ expected, @ found.", name, String(std::string_view(found, length)));
    Kind foundKind{};
    TRY(_in->Read(&foundKind, 1));
    if (foundKind != kind)
        return IllegalArgumentError("Field @ holds another type.", name);
    return {};
}

Result<void> DataSerialize::Number(Int& value) {
    uint8_t bytes[8];
    auto bits = static_cast<uint64_t>(value);
    if (!_isReading) {
        for (int i = 0; i < 8; ++i)
            bytes[i] = static_cast<uint8_t>(bits >> (8 * i));
        return _out->Write(bytes, sizeof(bytes));
    }
    TRY(_in->Read(bytes, sizeof(bytes)));
    bits = 0;
    for (int i = 0; i < 8; ++i)
        bits |= uint64_t(bytes[i]) << (8 * i);
    value = static_cast<Int>(bits);
    return {};
}

Result<void> DataSerialize::Bytes(BaseArray<std::byte>& value) {
    Int count = value.GetCount();
    TRY(Number(count));
    if (!_isReading)
        return _out->Write(std::as_const(value).ToBlock());
    if (count < 0)
        return IllegalArgumentError("A field has a negative count.");
    // In steps unless the stream is known to hold it all: a count that is not true ends with the stream.
    const Int step = count <= _in->BytesAvailable() ? count : kUnsureBytes;
    BaseArray<std::byte> read;
    while (read.GetCount() < count) {
        const Int done = read.GetCount(), part = std::min(step, count - done);
        TRY(read.Resize(done + part, RESIZEFLAGS::UNINITIALIZED));
        TRY(_in->Read(read.ToBlock().subspan(static_cast<size_t>(done))));
    }
    value = std::move(read);
    return {};
}

Result<void> DataSerialize::Text(String& value) {
    BaseArray<std::byte> bytes;
    if (!_isReading)
        TRY(bytes.AppendBlock(std::as_bytes(std::span(value.GetText()))));
    TRY(Bytes(bytes));
    if (_isReading)
        value = TRY(
            String::Create({reinterpret_cast<const char*>(bytes.GetFirst()), static_cast<size_t>(bytes.GetCount())}));
    return {};
}

Result<void> DataSerialize::Field(std::string_view name, Int& value) {
    TRY(Begin(name, Kind::Number));
    return Number(value);
}

Result<void> DataSerialize::Field(std::string_view name, Bool& value) {
    TRY(Begin(name, Kind::Bool));
    uint8_t byte = value ? 1 : 0;
    if (!_isReading)
        return _out->Write(&byte, 1);
    TRY(_in->Read(&byte, 1));
    value = byte != 0;
    return {};
}

Result<void> DataSerialize::Field(std::string_view name, String& value) {
    TRY(Begin(name, Kind::Text));
    return Text(value);
}

Result<void> DataSerialize::Field(std::string_view name, BaseArray<std::byte>& value) {
    TRY(Begin(name, Kind::Bytes));
    return Bytes(value);
}

Result<void> DataSerialize::Field(std::string_view name, BaseArray<Int>& value) {
    TRY(Begin(name, Kind::Numbers));
    Int count = value.GetCount();
    TRY(Number(count));
    BaseArray<Int> read;
    for (Int i = 0; i < count; ++i) {
        Int number = _isReading ? 0 : value[i];
        TRY(Number(number));
        if (_isReading)
            TRY(read.Append(number));
    }
    if (_isReading)
        value = std::move(read);
    return {};
}

Result<void> DataSerialize::Field(std::string_view name, BaseArray<String>& value) {
    TRY(Begin(name, Kind::Texts));
    Int count = value.GetCount();
    TRY(Number(count));
    BaseArray<String> read;
    for (Int i = 0; i < count; ++i) {
        String text = _isReading ? String() : value[i];
        TRY(Text(text));
        if (_isReading)
            TRY(read.Append(std::move(text)));
    }
    if (_isReading)
        value = std::move(read);
    return {};
}

}  // namespace orvik
