#include "storage/gfx_image_storage_normal.h"

#include <cstring>

#include "orvik/crc32c.h"

namespace orvik {
Result<void> ImagePixelStorageNormal::Init(Int width, Int height, const PixelFormat& format, Block<const std::byte>) {
    return InitRaster(width, height, format, PixelRaster::Create, true);
}

/// A run of single components inside the block.
struct ImagePixelStorageNormal::Components {
    std::byte* first = nullptr;  ///< the first pixel's component
    Int bytes = 0;               ///< copied for each pixel
    Int step = 0;                ///< bytes from one pixel to the next
    Int count = 0;               ///< pixels whose component lies in the block as a whole
};

/// The width is that of the channel in front, so that nothing is copied for channel 0; callers rely on this. A wide
/// channel in front of a narrow one would reach beyond the last pixel: such a pixel is left out.
Result<ImagePixelStorageNormal::Components> ImagePixelStorageNormal::FindComponents(Int channel,
                                                                                    const PixelSpan& span) const {
    if (!_raster)
        return IllegalStateError();
    const ChannelOffsets offsets = _raster->GetChannelOffsets();
    if (channel < 0 || channel >= _raster->GetChannelCount() || channel >= static_cast<Int>(offsets.size()))
        return IllegalArgumentError();
    if (span.count <= 0)
        return Components{};
    TRY(_raster->CheckSpan(span));
    constexpr Int kNarrow = 8;
    const Int before = channel > 0 ? (offsets[channel] - offsets[channel - 1]).GetBits() : 0;
    const Int own =
        channel + 1 < static_cast<Int>(offsets.size()) ? (offsets[channel + 1] - offsets[channel]).GetBits() : before;
    if (before < kNarrow || own < kNarrow)
        return Components{};

    const Block<std::byte> pixels = _raster->GetPixels();
    Components run;
    run.bytes = BITS(before).GetBytes();
    run.step = _raster->GetPixelDistance().GetBytes();
    const Int start = span.y * _raster->GetBytesPerLine() + ((span.x * _raster->GetPixelDistance().GetBits()) >> 3) +
                      offsets[channel].GetBytes();
    const Int room = static_cast<Int>(pixels.size()) - start - run.bytes;
    if (room >= 0) {
        run.first = pixels.data() + start;
        run.count = std::min(span.count, room / run.step + 1);
    }
    return run;
}

Result<void> ImagePixelStorageNormal::GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                                                   GETPIXELFLAGS) {
    const Components run = TRY(FindComponents(channel, span));
    auto* to = static_cast<std::byte*>(destination);
    for (Int i = 0; i < run.count; ++i)
        std::memcpy(to + i * stride, run.first + i * run.step, static_cast<size_t>(run.bytes));
    return {};
}

Result<void> ImagePixelStorageNormal::SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                                                   SETPIXELFLAGS) {
    const Components run = TRY(FindComponents(channel, span));
    const auto* from = static_cast<const std::byte*>(source);
    for (Int i = 0; i < run.count; ++i)
        std::memcpy(run.first + i * run.step, from + i * stride, static_cast<size_t>(run.bytes));
    return {};
}

Result<Ref<Object>> ImagePixelStorageNormal::Clone() const {
    Ref<ImagePixelStorageNormal> copy = TRY(NewObj<ImagePixelStorageNormal>());
    if (_raster) {
        TRY(copy->Init(_raster->GetWidth(), _raster->GetHeight(), _raster->GetFormat(), {}));
        const Block<std::byte> pixels = _raster->GetPixels();
        if (!pixels.empty())
            std::memcpy(copy->_raster->GetPixels().data(), pixels.data(), pixels.size());
    }
    copy->_width = _width;
    copy->_height = _height;
    return Ref<Object>(copy);
}

namespace {

/// The palette; empty for a format that is not indexed or has no table.
struct Palette {
    PixelFormat entryFormat;
    BaseArray<std::byte> entries;

    static Result<Palette> Read(const PixelFormat& format) {
        Palette palette;
        const auto indexed = Cast<PixelFormatIndexedColorInterface>(format);
        if (!indexed || indexed->GetColorTableSize() == 0)
            return palette;
        palette.entryFormat = indexed->GetColorTablePixelFormat();
        const Int bytes = palette.entryFormat->GetBitsPerPixel().GetBytes();
        TRY(palette.entries.Resize(indexed->GetColorTableSize() * bytes));
        for (Int i = 0; i < indexed->GetColorTableSize(); ++i)
            TRY(indexed->GetIndex(i, palette.entryFormat, palette.entries.GetFirst() + i * bytes));
        return palette;
    }
    /// An instance of `published`, a format of indices, with these colours.
    Result<PixelFormat> Apply(const PixelFormat& published) const {
        const Int bytes = entryFormat->GetBitsPerPixel().GetBytes();
        if (bytes == 0 || entries.GetCount() % bytes != 0)
            return IllegalArgumentError("A colour table of @ bytes does not hold whole pixels of @.",
                                        entries.GetCount(), entryFormat);
        const Int count = entries.GetCount() / bytes;
        PixelFormatIndexedColor format =
            TRY(PixelFormats::CreateIndexed(published->GetBitsPerPixel().GetBits(), entryFormat, count));
        for (Int i = 0; i < count; ++i)
            TRY(format->SetIndex(i, entryFormat, entries.GetFirst() + i * bytes));
        return PixelFormat(format);
    }
};

/// Illegal argument "Illegal pixel format: @." for an id that is none.
Result<PixelFormat> FindFormat(const String& text) {
    const Id id = TRY(Id::Create(text.GetText()));
    if (PixelFormat format = FindPublished<PixelFormatInterface>(id))
        return format;
    // Not by `PixelFormats::Get`, which does not distinguish an unknown id from out of memory.
    return FindPublished<PixelFormatsInterface>(PixelFormatsInterface::kInterfaceId)->FindOrCreatePixelFormatById(id);
}

bool AreEqualFormats(const PixelFormat& a, const PixelFormat& b) {
    if (a == b || !a || !b)
        return a == b;
    if (a->GetId() != b->GetId())
        return false;
    const Result<Palette> first = Palette::Read(a), second = Palette::Read(b);
    return first && second && first->entryFormat->GetId() == second->entryFormat->GetId() &&
           std::ranges::equal(first->entries, second->entries);
}

}  // namespace

/// The serialised fields. They say some things twice, as the storage's own description does.
struct ImagePixelStorageNormal::Description {
    Int width = 0, height = 0, bytesPerLine = 0, bitsPerPixel = 0, channels = 0;
    BaseArray<Int> channelOffsets;
    String pixelFormatId;
    BaseArray<std::byte> pixels;
    String paletteFormatId;
    Palette palette;
};

Result<void> ImagePixelStorageNormal::DescribeIO(DataSerialize& io) {
    Description fields;
    if (!io.IsReading() && _raster) {
        fields.width = _raster->GetWidth();
        fields.height = _raster->GetHeight();
        fields.bytesPerLine = _raster->GetBytesPerLine();
        fields.bitsPerPixel = _raster->GetPixelDistance().GetBits();
        fields.channels = _raster->GetChannelCount();
        for (const BITS offset : _raster->GetChannelOffsets())
            TRY(fields.channelOffsets.Append(offset.GetBits()));
        fields.pixelFormatId = TRY(String::Create(_raster->GetFormat()->GetId().GetText()));
    }
    TRY(io.Field("_width", fields.width));
    TRY(io.Field("_height", fields.height));
    TRY(io.Field("_bytesPerLine", fields.bytesPerLine));
    TRY(io.Field("_bitsPerPixel", fields.bitsPerPixel));
    TRY(io.Field("_channels", fields.channels));
    TRY(io.Field("_channelOffsets", fields.channelOffsets));
    TRY(io.Field("_pixelFormatId", fields.pixelFormatId));
    if (!io.IsReading())
        TRY(io.Field("_data", _raster ? _raster->GetData() : fields.pixels));
    else
        TRY(io.Field("_data", fields.pixels));
    PixelFormat format = io.IsReading() || !_raster ? PixelFormat() : _raster->GetFormat();
    if (io.IsReading() && (!fields.pixelFormatId.IsEmpty() || fields.width != 0 || fields.height != 0))
        format = TRY(FindFormat(fields.pixelFormatId));
    // Only formats of indices have two more fields, which are empty without a table.
    if (Cast<PixelFormatIndexedColorInterface>(format)) {
        if (!io.IsReading()) {
            fields.palette = TRY(Palette::Read(format));
            fields.paletteFormatId = TRY(String::Create(fields.palette.entryFormat->GetId().GetText()));
        }
        TRY(io.Field("_paletteFormatId", fields.paletteFormatId));
        TRY(io.Field("_palette", fields.palette.entries));
        if (io.IsReading() && !fields.paletteFormatId.IsEmpty()) {
            fields.palette.entryFormat = TRY(FindFormat(fields.paletteFormatId));
            format = TRY(fields.palette.Apply(format));
        }
    }
    return io.IsReading() ? Restore(fields, format) : Result<void>();
}

/// The fields must agree with the format.
Result<void> ImagePixelStorageNormal::Restore(Description& fields, const PixelFormat& format) {
    Ref<PixelRaster> raster;
    if (format) {
        raster = TRY(PixelRaster::Create(fields.width, fields.height, format));
        const auto isOffset = [](Int bits, BITS offset) { return bits == offset.GetBits(); };
        if (fields.bytesPerLine != raster->GetBytesPerLine() ||
            fields.bitsPerPixel != raster->GetPixelDistance().GetBits() ||
            fields.channels != raster->GetChannelCount() ||
            !std::ranges::equal(fields.channelOffsets, raster->GetChannelOffsets(), isOffset))
            return IllegalArgumentError("The pixels do not have the layout of @.", format);
        TRY(raster->AdoptPixels(std::move(fields.pixels)));
    }
    _width = fields.width;
    _height = fields.height;
    _raster = std::move(raster);
    return {};
}

Bool ImagePixelStorageNormal::IsEqual(const ImagePixelStorageInterface& other) const {
    const auto* normal = dynamic_cast<const ImagePixelStorageNormal*>(&other);
    if (!normal || _width != normal->_width || _height != normal->_height)
        return false;
    if (!_raster || !normal->_raster)
        return !_raster && !normal->_raster;
    return AreEqualFormats(_raster->GetFormat(), normal->_raster->GetFormat()) &&
           std::ranges::equal(_raster->GetPixels(), normal->_raster->GetPixels());
}

uint64_t ImagePixelStorageNormal::GetHashCode() const {
    uint64_t hash =
        HashPointerBits(static_cast<uint64_t>(_width)) * 31 + HashPointerBits(static_cast<uint64_t>(_height));
    if (_raster) {
        // By the id of the format: formats with equal colours are different objects.
        const uint64_t format = _raster->GetFormat()->GetId().GetValue();
        hash = (hash * 31 + HashPointerBits(format)) * 31 + ComputeCrc32c(_raster->GetPixels());
    }
    return hash;
}

}  // namespace orvik
