#include <bit>
#include <charconv>

#include "imexport/hdr/media_io_hdr.h"

namespace orvik {

using namespace hdr;

namespace {

/// Darker values become black.
constexpr float kDarkest = 1e-10f;
/// Largest float whose exponent fits the byte.
constexpr float kBrightest = 0x1.fffffep126f;

/// NaN becomes 0.
constexpr float Limit(float value) { return value >= kDarkest ? std::min(value, kBrightest) : 0.0f; }

/// Uses the exponent of the largest component v = m * 2^x, 0.5 <= m < 1. The mantissas are scaled by m * 256 / v = 2^(8
/// - x), a power of two that is built from its bits.
/// @param rgb     three floats per pixel
/// @param planes  red, green, blue and exponent bytes, `width` of each
void EncodePixels(const float* rgb, uint8_t* planes, Int width) {
    uint8_t* const red = planes;
    uint8_t* const green = planes + width;
    uint8_t* const blue = planes + 2 * width;
    uint8_t* const exponent = planes + 3 * width;
    for (Int i = 0; i < width; ++i) {
        const float r = Limit(rgb[3 * i]), g = Limit(rgb[3 * i + 1]), b = Limit(rgb[3 * i + 2]);
        const float v = std::max(std::max(r, g), b);
        constexpr uint32_t kBias = 127;
        const uint32_t biased = std::bit_cast<uint32_t>(v) >> 23;  // x + 126
        const float scale = std::bit_cast<float>((8 + 126 + kBias - biased) << 23);
        red[i] = uint8_t(int32_t(r * scale));
        green[i] = uint8_t(int32_t(g * scale));
        blue[i] = uint8_t(int32_t(b * scale));
        exponent[i] = uint8_t(biased == 0 ? 0 : biased + 2);  // x + 128; black is all zeros
    }
}

constexpr size_t kMinRun = 4;

/// Number of bytes from `from` on that equal the first, at most `kMaxRun`.
size_t CountEqual(const uint8_t* from, const uint8_t* end) {
    const uint8_t* const limit = from + std::min(end - from, kMaxRun);
    const uint8_t* at = from + 1;
    while (at < limit && *at == *from)
        ++at;
    return size_t(at - from);
}

/// Start of the first run of `kMinRun` equal bytes, or the end.
const uint8_t* FindRun(const uint8_t* from, const uint8_t* end) {
    // Eight comparisons at a time: the high bit of a byte is set if it equals the next one.
    constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7F;
    constexpr Int kAhead = 9, kStarts = 6;
    for (; end - from >= kAhead; from += kStarts) {
        uint64_t bytes, next;
        std::memcpy(&bytes, from, sizeof(bytes));
        std::memcpy(&next, from + 1, sizeof(next));
        const uint64_t differ = bytes ^ next;
        const uint64_t equal = ~(((differ & kLow7) + kLow7) | differ | kLow7);
        if (const uint64_t threefold = equal & equal >> 8 & equal >> 16)
            return from + std::countr_zero(threefold) / 8;
    }
    for (; end - from >= Int(kMinRun); ++from) {
        if (CountEqual(from, from + kMinRun) == kMinRun)
            return from;
    }
    return end;
}

/// Encodes one plane: runs of four and more, runs of two and three if nothing else precedes such a run, otherwise
/// literals.
/// @param to  room for `GetEncodedBound` bytes
/// @return end of the output
uint8_t* EncodePlane(const uint8_t* plane, Int width, uint8_t* to) {
    const auto putRun = [&to](size_t count, uint8_t value) {
        *to++ = uint8_t(kMaxLiterals + count);
        *to++ = value;
    };
    const uint8_t* const end = plane + width;
    for (const uint8_t* from = plane; from != end;) {
        const uint8_t* const run = FindRun(from, end);
        const size_t before = size_t(run - from);
        if (before > 1 && before < kMinRun && CountEqual(from, run) == before) {
            putRun(before, *from);
            from = run;
        }
        while (from != run) {
            const size_t count = std::min(size_t(run - from), size_t(kMaxLiterals));
            *to++ = uint8_t(count);
            std::memcpy(to, from, count);
            to += count;
            from += count;
        }
        if (run != end) {
            const size_t count = CountEqual(run, end);
            putRun(count, *run);
            from += count;
        }
    }
    return to;
}

/// Most bytes of an encoded plane: all as literals with one count per 128. The extra count before a run is offset by
/// the run, which saves two bytes.
constexpr Int GetEncodedBound(Int width) { return width + width / kMaxLiterals + 2; }

Result<void> WriteText(const OutputStreamRef& output, std::string_view text) {
    return output->Write(std::as_bytes(Block<const char>(text)));
}
Result<void> WriteNumber(const OutputStreamRef& output, Int number) {
    char digits[20];
    const char* const end = std::to_chars(digits, std::end(digits), number).ptr;
    return WriteText(output, {digits, end});
}

class HdrExporter : public ImageExporter {
public:
    HdrExporter() : ImageExporter(kFormat) {}

protected:
    Result<void> OpenRows() override;
    Result<void> WriteFile(const OutputStreamRef& output) override;

private:
    Result<void> WriteHeader(const OutputStreamRef& output) const;
    Result<void> WriteRows(const OutputStreamRef& output) const;
    uint8_t* EncodeRow(const uint8_t* planes, uint8_t* to) const;

    bool IsInRuns() const { return GetPicture().width >= kMinRunsWidth && GetPicture().width <= kMaxRunsWidth; }
};

Result<void> HdrExporter::OpenRows() {
    const PixelFormat rowFormat = PixelFormats::Get(pixelformats::kRgbF32);
    const bool keepsColors = GetPicture().settings.Get(mediaexport::kDisableSrgbConversion, false);
    return OpenImageRows(rowFormat,
                         keepsColors ? ChooseProfile(rowFormat) : colorprofiles::Get(colorprofiles::kLinearRgb));
}

Result<void> HdrExporter::WriteFile(const OutputStreamRef& output) {
    TRY(WriteHeader(output));
    return WriteRows(output);
}

Result<void> HdrExporter::WriteHeader(const OutputStreamRef& output) const {
    TRY(WriteText(output, "#?RADIANCE\nGAMMA=1\nEXPOSURE=1\nSOFTWARE=HALDEN_3X\n"));
    TRY(WriteText(output, kFormatLine));
    TRY(WriteText(output, "\n\n-Y "));
    TRY(WriteNumber(output, GetPicture().height));
    TRY(WriteText(output, " +X "));
    TRY(WriteNumber(output, GetPicture().width));
    return WriteText(output, "\n");
}

Result<void> HdrExporter::WriteRows(const OutputStreamRef& output) const {
    const Picture& picture = GetPicture();
    CodecBuffer planes, encoded;
    TRY(planes.Allocate(picture.width * kPlanes));
    TRY(encoded.Allocate(kRowHeadBytes + kPlanes * GetEncodedBound(picture.width)));
    for (Int y = 0; y < picture.height; ++y) {
        const std::byte* const row = TRY(_image->GetRow(y));
        EncodePixels(reinterpret_cast<const float*>(row), planes.As<uint8_t>(), picture.width);
        const uint8_t* const end = EncodeRow(planes.As<uint8_t>(), encoded.As<uint8_t>());
        TRY(output->Write(encoded.GetFirst(), size_t(end - encoded.As<uint8_t>())));
    }
    return {};
}

uint8_t* HdrExporter::EncodeRow(const uint8_t* planes, uint8_t* to) const {
    const Int width = GetPicture().width;
    if (!IsInRuns()) {
        for (Int x = 0; x < width; ++x) {
            for (Int plane = 0; plane < kPlanes; ++plane)
                *to++ = planes[plane * width + x];
        }
        return to;
    }
    *to++ = kRunsMark;
    *to++ = kRunsMark;
    *to++ = uint8_t(width >> 8);
    *to++ = uint8_t(width);
    for (Int plane = 0; plane < kPlanes; ++plane)
        to = EncodePlane(planes + plane * width, width, to);
    return to;
}

}  // namespace

Result<ObjectRef> MakeHdrExporter() { return ObjectRef(TRY(NewObj<HdrExporter>())); }

}  // namespace orvik
