#include "imexport/hdr/media_io_hdr.h"

#include <charconv>
#include <optional>

namespace orvik {

using namespace hdr;

namespace {

/// Contents of the header lines. Gamma and exposure are display hints; they do not change the pixels.
struct HdrHeader {
    std::optional<std::string> program;  ///< the word after "#?", at most 15 characters
    std::optional<double> gamma, exposure;
    bool hasFormat = false;
    Int width = 0, height = 0;
};

/// Reads header lines with their line feed. The rest of a line longer than the buffer counts as the next line.
class LineReader {
public:
    explicit LineReader(const InputStreamRef& stream) : _stream(stream) {}

    /// @return the line up to a zero byte; empty at the end of the file
    Result<std::string_view> Read() {
        size_t length = 0;
        while (length < sizeof(_line)) {
            char c;
            if (TRY(_stream->ReadEOS(std::as_writable_bytes(Block<char>(&c, 1)))) == 0)
                break;
            _line[length++] = c;
            if (c == '\n')
                break;
        }
        const std::string_view line(_line, length);
        return line.substr(0, line.find('\0'));
    }

private:
    const InputStreamRef& _stream;
    char _line[127];
};

constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Scans a line as scanf does, but independently of the locale.
class Scanner {
public:
    explicit Scanner(std::string_view text) : _text(text) {}

    void SkipSpace() {
        while (!_text.empty() && IsSpace(_text.front()))
            _text.remove_prefix(1);
    }
    bool Take(std::string_view word) {
        if (!_text.starts_with(word))
            return false;
        _text.remove_prefix(word.size());
        return true;
    }
    /// A number after optional white space; 0 if out of range.
    template <class T>
    std::optional<T> TakeNumber() {
        SkipSpace();
        if (_text.starts_with('+') && !_text.starts_with("+-"))
            _text.remove_prefix(1);
        T value{};
        const auto [end, error] = std::from_chars(_text.data(), _text.data() + _text.size(), value);
        if (error == std::errc::invalid_argument)
            return {};
        _text.remove_prefix(size_t(end - _text.data()));
        return value;
    }

private:
    std::string_view _text;
};

/// "NAME=number"
bool ScanVariable(std::string_view line, std::string_view name, std::optional<double>& value) {
    Scanner scanner(line);
    if (!scanner.Take(name))
        return false;
    const std::optional<double> number = scanner.TakeNumber<double>();
    if (number)
        value = number;
    return number.has_value();
}

struct Resolution {
    Int height = 0, width = 0;
};

/// The size, in any of the eight forms of row and column order. All are read as height, then width, whatever their
/// letters say, and no picture is rotated.
std::optional<Resolution> ScanResolution(std::string_view line) {
    constexpr std::string_view kForms[][2] = {{"-Y", "+X"}, {"+Y", "+X"}, {"-Y", "-X"}, {"+Y", "-X"},
                                              {"-X", "+Y"}, {"+X", "+Y"}, {"-X", "-Y"}, {"+X", "-Y"}};
    for (const auto& [first, second] : kForms) {
        Scanner scanner(line);
        if (!scanner.Take(first))
            continue;
        const std::optional<int32_t> height = scanner.TakeNumber<int32_t>();
        scanner.SkipSpace();
        if (!height || !scanner.Take(second))
            continue;
        if (const std::optional<int32_t> width = scanner.TakeNumber<int32_t>())
            return Resolution{*height, *width};
    }
    return {};
}

/// The word after the "#?" of a program line, up to a blank or a zero byte.
std::string ScanProgram(std::string_view line) {
    constexpr size_t kMaxLength = 15;
    line.remove_prefix(kProgramMark.size());
    size_t length = 0;
    while (length < std::min(line.size(), kMaxLength) && (line[length] & ~0x20) != 0)
        ++length;
    return std::string(line.substr(0, length));
}

Result<HdrHeader> ReadHdrHeader(const InputStreamRef& stream) {
    HdrHeader header;
    LineReader lines(stream);
    std::string_view line = TRY(lines.Read());
    if (line.starts_with(kProgramMark)) {
        header.program = ScanProgram(line);
        line = TRY(lines.Read());
    }
    for (;; line = TRY(lines.Read())) {
        const std::string_view words = line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
        if (words.empty())
            return MediaSessionWrongTypeError();
        if (words.starts_with(kFormatLine)) {
            header.hasFormat = true;
            continue;
        }
        if (ScanVariable(words, "GAMMA=", header.gamma) || ScanVariable(words, "EXPOSURE=", header.exposure))
            continue;
        if (const std::optional<Resolution> resolution = ScanResolution(line)) {
            header.height = resolution->height;
            header.width = resolution->width;
            break;
        }
    }
    if (!header.hasFormat || header.width < 1 || header.height < 1)
        return MediaSessionWrongTypeError();
    return header;
}

/// Reads one plane of a row in runs; fills it completely or fails.
Result<void> ReadPlane(const InputStreamRef& stream, Block<uint8_t> plane) {
    while (!plane.empty()) {
        uint8_t code[2];
        TRY(stream->Read(code, sizeof(code)));
        const auto [count, value] = code;
        size_t done = count;
        if (count <= kMaxLiterals) {
            if (count == 0 || count > plane.size())
                return MediaSessionWrongTypeError();
            plane[0] = value;
            TRY(stream->Read(plane.data() + 1, size_t(count) - 1));
        } else {
            done = std::min(size_t(count & 0x7F), plane.size());  // an overlong run is cut
            std::memset(plane.data(), value, done);
        }
        plane = plane.subspan(done);
    }
    return {};
}

void InterleavePlanes(const uint8_t* planes, uint8_t* pixels, Int width) {
    const uint8_t* const red = planes;
    const uint8_t* const green = planes + width;
    const uint8_t* const blue = planes + 2 * width;
    const uint8_t* const exponent = planes + 3 * width;
    for (Int x = 0; x < width; ++x) {
        pixels[kPixelBytes * x] = red[x];
        pixels[kPixelBytes * x + 1] = green[x];
        pixels[kPixelBytes * x + 2] = blue[x];
        pixels[kPixelBytes * x + 3] = exponent[x];
    }
}

class HdrImporter : public ImageImporter {
public:
    HdrImporter() : ImageImporter(kFormat, "HDR image") {}

protected:
    void ResetHeader() override;
    Result<void> ReadHeader(const InputStreamRef& stream) override;
    Result<void> DecodePixels(const InputStreamRef& stream) override;

private:
    Result<void> CheckSize(const InputStreamRef& stream) const;
    Result<void> DecodeFlat(const InputStreamRef& stream, RowSink& sink) const;
    Result<void> ReadRunsRow(const InputStreamRef& stream, std::byte* pixels);

    HdrHeader _header;
    Int _pixelPosition = 0;
    CodecBuffer _planes;  ///< red, green, blue and exponent of one row
    ImageImportStreamRef _imageStream;
};

void HdrImporter::ResetHeader() {
    _header = {};
    _pixelPosition = 0;
    _planes.Release();
    _imageStream = nullptr;
}

Result<void> HdrImporter::ReadHeader(const InputStreamRef& stream) {
    _header = TRY(ReadHdrHeader(stream));
    _pixelPosition = stream->GetPosition();
    TRY(CheckSize(stream));
    StreamDescription description;
    description.pixelFormat = PixelFormats::Get(kPixelFormat);
    description.colorProfile = colorprofiles::Get(colorprofiles::kLinearRgb);
    description.width = _header.width;
    description.height = _header.height;
    const MediaStreamFormat format = TRY(DescribeStream(description));
    _imageStream = TRY(AddImageStream(format));
    return {};
}

/// Checks that the file can contain the rows, flat or in the longest runs, before memory is allocated for them.
Result<void> HdrImporter::CheckSize(const InputStreamRef& stream) const {
    const Int runs = (_header.width + kMaxRun - 1) / kMaxRun;
    Int rowBytes = _header.width * kPixelBytes;
    if (_header.width <= kMaxRunsWidth)
        rowBytes = std::min(rowBytes, kRowHeadBytes + kPlanes * runs * 2);
    Int bytes = 0;
    if (__builtin_mul_overflow(rowBytes, _header.height, &bytes))
        return MediaSessionWrongTypeError();
    return RequireContent(stream, bytes);
}

Result<void> HdrImporter::DecodePixels(const InputStreamRef& stream) {
    const RowSinkRef sink = TRY(OpenSink(_imageStream, PixelFormats::Get(kPixelFormat)));
    TRY(stream->Seek(_pixelPosition));
    for (Int y = 0; y < _header.height; ++y) {
        const Int position = stream->GetPosition();
        uint8_t head[kRowHeadBytes];
        TRY(stream->Read(head, sizeof(head)));
        if (head[0] != kRunsMark || head[1] != kRunsMark || head[2] >= 0x80) {
            TRY(stream->Seek(position));
            return DecodeFlat(stream, *sink);
        }
        if ((head[2] << 8 | head[3]) != _header.width)
            return MediaSessionWrongTypeError();
        std::byte* const row = TRY(sink->BeginRow(y));
        TRY(ReadRunsRow(stream, row));
        TRY(sink->EndRow());
    }
    return {};
}

/// Decodes flat rows from y = 0, even if earlier rows were in runs: a file has rows of one kind.
Result<void> HdrImporter::DecodeFlat(const InputStreamRef& stream, RowSink& sink) const {
    for (Int y = 0; y < _header.height; ++y) {
        std::byte* const row = TRY(sink.BeginRow(y));
        TRY(stream->Read(row, size_t(sink.GetRowBytes())));
        TRY(sink.EndRow());
    }
    return {};
}

Result<void> HdrImporter::ReadRunsRow(const InputStreamRef& stream, std::byte* pixels) {
    const Int width = _header.width;
    if (_planes.IsEmpty())
        TRY(_planes.Allocate(width * kPlanes));
    auto* const planes = _planes.As<uint8_t>();
    for (Int i = 0; i < kPlanes; ++i)
        TRY(ReadPlane(stream, {planes + i * width, size_t(width)}));
    InterleavePlanes(planes, reinterpret_cast<uint8_t*>(pixels), width);
    return {};
}

}  // namespace

/// "#?" of a program line, or the mandatory format line.
Result<Bool> DetectHdr(const Url&, const InputStreamRef& stream) {
    char head[kFormatLine.size()];
    const Int count = TRY(stream->ReadEOS(std::as_writable_bytes(Block<char>(head))));
    const std::string_view start(head, size_t(count));
    return start.starts_with(kProgramMark) || start == kFormatLine;
}

Result<ObjectRef> MakeHdrImporter() { return ObjectRef(TRY(NewObj<HdrImporter>())); }

}  // namespace orvik
