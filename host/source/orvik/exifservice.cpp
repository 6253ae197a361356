#include "orvik/exifservice.h"

#include <charconv>
#include <libexif/exif-data.h>
#include <libexif/exif-utils.h>
#include <limits>
#include <memory>
#include <string>

#include "orvik/iostreams.h"

namespace orvik {

namespace {

constexpr std::string_view kSignature("Exif\0\0", 6);

// --- Values ----------------------------------------------------------------------------------------------------------

/// One component of an entry, or nothing for a fraction over 0.
struct Number {
    enum class Kind : uint8_t { None, Whole, Fraction } kind = Kind::None;
    Int whole = 0;
    Float fraction = 0;

    static Number FromWhole(Int value) { return {Kind::Whole, value, 0}; }
    static Number FromFraction(Float value) { return {Kind::Fraction, 0, value}; }
    static Number FromRatio(Float numerator, Float denominator) {
        return denominator == 0 ? Number() : FromFraction(numerator / denominator);
    }
};

Number ReadNumber(const ExifEntry& entry, ExifByteOrder order, size_t index) {
    const unsigned char* at = entry.data + index * exif_format_get_size(entry.format);
    switch (entry.format) {
        case EXIF_FORMAT_BYTE:
        case EXIF_FORMAT_UNDEFINED:
            return Number::FromWhole(*at);
        case EXIF_FORMAT_SBYTE:
            return Number::FromWhole(static_cast<int8_t>(*at));
        case EXIF_FORMAT_SHORT:
            return Number::FromWhole(exif_get_short(at, order));
        case EXIF_FORMAT_SSHORT:
            return Number::FromWhole(exif_get_sshort(at, order));
        case EXIF_FORMAT_LONG:
            return Number::FromWhole(exif_get_long(at, order));
        case EXIF_FORMAT_SLONG:
            return Number::FromWhole(exif_get_slong(at, order));
        case EXIF_FORMAT_RATIONAL: {
            const ExifRational ratio = exif_get_rational(at, order);
            return Number::FromRatio(ratio.numerator, ratio.denominator);
        }
        case EXIF_FORMAT_SRATIONAL: {
            const ExifSRational ratio = exif_get_srational(at, order);
            return Number::FromRatio(ratio.numerator, ratio.denominator);
        }
        default:
            return {};
    }
}

bool Append(std::string& text, const Number& number) {
    char digits[32];
    std::to_chars_result end{};
    if (number.kind == Number::Kind::Whole)
        end = std::to_chars(std::begin(digits), std::end(digits), number.whole);
    else if (number.kind == Number::Kind::Fraction)
        end = std::to_chars(std::begin(digits), std::end(digits), number.fraction);
    else
        return false;
    if (!text.empty())
        text += ' ';
    text.append(digits, end.ptr);
    return true;
}

/// Up to the first zero, without blanks at its end.
std::string_view TrimText(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

bool IsPrintable(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

/// The first eight bytes of a comment name its encoding. Only the plain one is read.
std::string_view ReadComment(std::string_view bytes) {
    constexpr std::string_view kAscii("ASCII\0\0\0", 8), kUnknown("\0\0\0\0\0\0\0\0", 8);
    const std::string_view code = bytes.substr(0, kAscii.size());
    return code == kAscii || code == kUnknown ? bytes.substr(kAscii.size()) : std::string_view();
}

/// @return empty for an entry that has no value to show
Result<Data> ReadValue(const ExifEntry& entry, ExifByteOrder order) {
    constexpr size_t kMostNumbers = 64, kMostBytes = 16;  // longer ones are tables of no use to a reader
    const std::string_view bytes(reinterpret_cast<const char*>(entry.data), entry.size);
    const size_t unit = exif_format_get_size(entry.format);
    if (!entry.data || unit == 0)
        return Data();
    const size_t count = std::min<size_t>(entry.components, entry.size / unit);

    std::string_view text;
    if (entry.format == EXIF_FORMAT_ASCII)
        text = TrimText(bytes);
    else if (entry.tag == EXIF_TAG_USER_COMMENT)
        text = TrimText(ReadComment(bytes));
    else if (entry.format == EXIF_FORMAT_UNDEFINED && count > 1 && IsPrintable(TrimText(bytes)))
        text = TrimText(bytes);
    if (!text.empty())
        return Data(TRY(String::FromSystemText(text)));
    if (entry.format == EXIF_FORMAT_ASCII || entry.tag == EXIF_TAG_USER_COMMENT || count == 0 ||
        count > (entry.format == EXIF_FORMAT_UNDEFINED ? kMostBytes : kMostNumbers))
        return Data();

    if (count == 1) {
        const Number number = ReadNumber(entry, order, 0);
        if (number.kind == Number::Kind::Whole)
            return Data(number.whole);
        return number.kind == Number::Kind::Fraction ? Data(number.fraction) : Data();
    }
    std::string numbers;
    for (size_t i = 0; i < count; ++i) {
        if (!Append(numbers, ReadNumber(entry, order, i)))
            return Data();
    }
    return Data(String(numbers));
}

// --- The service -----------------------------------------------------------------------------------------------------

class ExifImpl : public ExifInterface {
public:
    explicit ExifImpl(ExifData* data) : _data(data, exif_data_unref) {}

    Result<DataDictionary> GetExifDictionary() const override {
        try {
            return ReadDictionary();
        } catch (const std::bad_alloc&) {
            return OutOfMemoryError();
        }
    }

private:
    Result<DataDictionary> ReadDictionary() const {
        constexpr ExifIfd kDirectories[] = {EXIF_IFD_0, EXIF_IFD_EXIF, EXIF_IFD_GPS, EXIF_IFD_INTEROPERABILITY};
        const ExifByteOrder order = exif_data_get_byte_order(_data.get());
        DataDictionary dictionary;
        for (const ExifIfd directory : kDirectories) {
            const ExifContent* content = _data->ifd[directory];
            for (unsigned i = 0; content && i < content->count; ++i) {
                const ExifEntry& entry = *content->entries[i];
                const char* name = exif_tag_get_name_in_ifd(entry.tag, directory);
                Data value = TRY(ReadValue(entry, order));
                if (!name || value.IsEmpty())
                    continue;
                const Id id = TRY(Id::Create(name));
                if (!dictionary.Contains(id))
                    TRY(dictionary.SetData(id, std::move(value)));
            }
        }
        return dictionary;
    }

    std::unique_ptr<ExifData, decltype(&exif_data_unref)> _data;
};

Result<ExifRef> Open(Block<const std::byte> block) {
    if (block.empty())
        return IllegalArgumentError();
    // The library looks for the signature, and takes data without it for a whole file.
    BaseArray<std::byte> signedBlock;
    if (block.size() < kSignature.size() || std::memcmp(block.data(), kSignature.data(), kSignature.size()) != 0) {
        TRY(signedBlock.AppendBlock(std::as_bytes(Block<const char>(kSignature))));
        TRY(signedBlock.AppendBlock(block));
        block = signedBlock.ToBlock();
    }
    if (block.size() > std::numeric_limits<unsigned>::max())
        return IllegalArgumentError();
    std::unique_ptr<ExifData, decltype(&exif_data_unref)> data(exif_data_new(), exif_data_unref);
    if (!data)
        return OutOfMemoryError();
    exif_data_unset_option(data.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);  // which would add entries
    exif_data_set_option(data.get(), EXIF_DATA_OPTION_DONT_CHANGE_MAKER_NOTE);
    exif_data_load_data(data.get(), reinterpret_cast<const unsigned char*>(block.data()),
                        static_cast<unsigned>(block.size()));
    Ref<ExifImpl> exif = TRY(NewObj<ExifImpl>(data.get()));
    (void)data.release();  // the object owns it now
    return ExifRef(std::move(exif));
}

/// Finds the first segment with Exif data in front of the picture.
Result<ExifRef> OpenFromJpeg(const Url& url) {
    constexpr uint8_t kMark = 0xFF, kStartOfImage = 0xD8, kStartOfScan = 0xDA, kEndOfImage = 0xD9, kApp1 = 0xE1;
    constexpr Int kLengthBytes = 2;
    const InputStreamRef stream = TRY(url.OpenInputStream());
    uint8_t start[2];
    TRY(stream->Read(start, sizeof(start)));
    if (start[0] != kMark || start[1] != kStartOfImage)
        return FileFormatError("@ is no JPEG file", url);
    for (;;) {
        uint8_t head[2];
        TRY(stream->Read(head, sizeof(head)));
        while (head[0] == kMark && head[1] == kMark)  // fill bytes before a marker
            TRY(stream->Read(head + 1, 1));
        if (head[0] != kMark || head[1] == kStartOfScan || head[1] == kEndOfImage)
            return FileFormatError("Exif chunk not found");
        uint8_t size[2];
        TRY(stream->Read(size, sizeof(size)));
        const Int length = (Int(size[0]) << 8 | size[1]) - kLengthBytes;
        if (length < 0)
            return FileFormatError("Exif chunk not found");
        BaseArray<std::byte> payload;
        TRY(payload.Resize(length));
        TRY(stream->Read(payload.ToBlock()));
        if (head[1] == kApp1 && length > Int(kSignature.size()) &&
            std::memcmp(payload.GetFirst(), kSignature.data(), kSignature.size()) == 0)
            return Open(payload.ToBlock());
    }
}

class ExifStaticImpl : public ExifStaticInterface {
public:
    Result<ExifRef> OpenFromMemory(Block<const std::byte> block) const override { return Open(block); }
    Result<ExifRef> OpenJpgFromUrl(const Url& url) const override { return OpenFromJpeg(url); }
};

}  // namespace

Result<void> PublishExif(Publisher& publisher) {
    return publisher.PublishObject(ExifStaticInterface::kInterfaceId, ObjectRef(TRY(NewObj<ExifStaticImpl>())));
}

}  // namespace orvik
