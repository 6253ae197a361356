// Formats whose pixels are indices into a colour table.

#include "pixel/special/gfx_image_pixelformat_indexed.h"

#include <algorithm>
#include <cstring>

#include "pixel/gfx_image_pixelformat_fixed.h"
#include "pixel/special/gfx_image_pixelformat_planes.h"

namespace orvik {
namespace pixel {
namespace {

template <int Width>
void ReadIndicesOf(const uint8_t* data, Int bit, Int stride, Int count, uint16_t* indices) {
    if constexpr (Width == 16) {
        for (Int i = 0; i < count; ++i)
            std::memcpy(&indices[i], data + ((bit + i * stride) >> 3), sizeof(uint16_t));
    } else if (8 % Width == 0 && bit % Width == 0 && stride % Width == 0) {
        for (Int i = 0; i < count; ++i) {
            const Int at = bit + i * stride;
            indices[i] = static_cast<uint16_t>(data[at >> 3] >> (8 - Width - (at & 7)) & ((1 << Width) - 1));
        }
    } else {  // an index may span two bytes; otherwise the same byte is read twice
        for (Int i = 0; i < count; ++i) {
            const Int at = bit + i * stride;
            const int bytes = data[at >> 3] << 8 | data[(at + Width - 1) >> 3];
            indices[i] = static_cast<uint16_t>(bytes >> (16 - Width - (at & 7)) & ((1 << Width) - 1));
        }
    }
}

using CopyColorsFunction = void (*)(const std::byte* colors, Int colorBytes, const uint16_t* indices, std::byte* dst,
                                    Int dstStride, Int count);

template <size_t Bytes>
void CopyColors(const std::byte* colors, Int colorBytes, const uint16_t* indices, std::byte* dst, Int dstStride,
                Int count) {
    for (Int i = 0; i < count; ++i)
        std::memcpy(dst + i * dstStride, colors + indices[i] * colorBytes, Bytes);
}

/// Pixels have 1 to 4 channels of 1, 2, 4 or 8 bytes.
CopyColorsFunction GetCopyColors(Int bytes) {
    switch (bytes) {
        case 1:
            return &CopyColors<1>;
        case 2:
            return &CopyColors<2>;
        case 3:
            return &CopyColors<3>;
        case 4:
            return &CopyColors<4>;
        case 6:
            return &CopyColors<6>;
        case 8:
            return &CopyColors<8>;
        case 12:
            return &CopyColors<12>;
        case 16:
            return &CopyColors<16>;
        case 24:
            return &CopyColors<24>;
        case 32:
            return &CopyColors<32>;
        default:
            return nullptr;
    }
}

/// Immutable once made; one copy for all delegates.
class ColorLookup final : public Object {
public:
    Result<void> Init(BaseArray<std::byte> colors, Int width, ChannelOffsets offsets, ChannelOffsets dstOffsets) {
        _colors = std::move(colors);
        _width = width;
        _colorBytes = offsets.back().GetBytes();
        if (dstOffsets.size() + 1 < offsets.size())
            return IllegalArgumentError("A pixel conversion needs an offset for each channel.");
        if (std::ranges::equal(offsets, dstOffsets))
            return AppendPart(0, 0, _colorBytes);
        for (size_t i = 0; i + 1 < offsets.size(); ++i) {
            const Int start = offsets[i].GetBytes();
            TRY(AppendPart(start, dstOffsets[i].GetBytes(), offsets[i + 1].GetBytes() - start));
        }
        return {};
    }

    void Run(const PixelLine& dst, Int count, const PixelLineConst& src) const {
        uint16_t indices[kIndexBlock];
        for (Int done = 0; done < count; done += kIndexBlock) {
            const Int block = std::min(kIndexBlock, count - done);
            ReadIndices(src, done, block, _width, indices);
            for (const Part& part : _parts)
                part.copy(_colors.GetFirst() + part.colorOffset, _colorBytes, indices,
                          PixelAt(dst, done) + part.dstOffset, dst.stride.GetBytes(), block);
        }
    }

private:
    /// Bytes of a colour that stay together.
    struct Part {
        Int colorOffset, dstOffset;
        CopyColorsFunction copy;
    };

    Result<void> AppendPart(Int colorOffset, Int dstOffset, Int bytes) {
        const CopyColorsFunction copy = GetCopyColors(bytes);
        if (!copy)
            return UnsupportedArgumentError("No colours of @ bytes can be copied.", bytes);
        return _parts.Append(Part{colorOffset, dstOffset, copy});
    }

    BaseArray<std::byte> _colors;
    BaseArray<Part> _parts;
    Int _width = 0, _colorBytes = 0;
};

}  // namespace

void ReadIndices(const PixelLineConst& line, Int first, Int count, Int width, uint16_t* indices) {
    const auto* data = static_cast<const uint8_t*>(line.data);
    const Int stride = line.stride.GetBits(), bit = line.phase + first * stride;
    switch (width) {
        case 1:
            return ReadIndicesOf<1>(data, bit, stride, count, indices);
        case 2:
            return ReadIndicesOf<2>(data, bit, stride, count, indices);
        case 3:
            return ReadIndicesOf<3>(data, bit, stride, count, indices);
        case 4:
            return ReadIndicesOf<4>(data, bit, stride, count, indices);
        case 5:
            return ReadIndicesOf<5>(data, bit, stride, count, indices);
        case 6:
            return ReadIndicesOf<6>(data, bit, stride, count, indices);
        case 7:
            return ReadIndicesOf<7>(data, bit, stride, count, indices);
        case 8:
            return ReadIndicesOf<8>(data, bit, stride, count, indices);
        default:
            return ReadIndicesOf<16>(data, bit, stride, count, indices);
    }
}

Result<ConvertPixelFunc> MakeColorLookup(BaseArray<std::byte> colors, Int width, ChannelOffsets offsets,
                                         ChannelOffsets dstOffsets) {
    Ref<ColorLookup> lookup = TRY(NewObj<ColorLookup>());
    TRY(lookup.GetObject()->Init(std::move(colors), width, offsets, dstOffsets));
    return ConvertPixelFunc(
        [lookup](const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) -> Result<void> {
            lookup.GetObject()->Run(dst, count, src);
            return {};
        });
}

}  // namespace pixel

namespace {

/// The registered instance never has a table; a format with a table is a new instance of the class.
class PixelFormatIndexedImpl final : public PixelFormatFixed, public virtual PixelFormatIndexedColorInterface {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        // Registration sets group and name, and instances with a table are never registered.
        _group = FindPublished<PixelFormatGroupInterface>(TRY(MakeGroupId(_family)));
        _shortName = TRY(MakeFormatShortName(_row));
        const ImageChannel index = TRY(CreatePackedChannel(channeltypes::kUnknown, _row.packing));
        return AppendChannel(index);
    }
    ColorSpace GetColorSpace() const override { return _entryFormat->GetColorSpace(); }
    ColorProfile GetDefaultColorProfile() const override { return _entryFormat->GetDefaultColorProfile(); }
    /// Compares indices.
    Bool IsIdenticalPixel(const void* a, const void* b, Int) const override { return ReadIndex(a) == ReadIndex(b); }
    String PixToString(const void* pixel) const override { return FormatString(_family.text, ReadIndex(pixel)); }

    Result<void> InitColorTable(const PixelFormat& entryFormat, Int count) override {
        if (!entryFormat || count < 1 || count > GetIndexCount())
            return IllegalArgumentError("No colour table of @ entries for @ bits.", count, _row.packing);
        if (entryFormat->GetBitsPerPixel().GetBits() % 8 != 0 || entryFormat->GetPackedPixelCount() != 1 ||
            Cast<PixelFormatIndexedColorInterface>(entryFormat))
            return IllegalArgumentError("Pixels of @ cannot be the entries of a colour table.", entryFormat);
        if (FindPublishedObject(_id).GetPointer() == this)
            return IllegalStateError("@ is shared and has no colour table of its own.", _id);
        // One entry for each possible index, so that no file can read outside the table.
        BaseArray<std::byte> table = TRY(entryFormat->CreatePix(1, GetIndexCount(), 1));
        _entryFormat = entryFormat;
        _table = std::move(table);
        _count = count;
        return {};
    }
    /// A new instance with a copy of the table.
    Result<ObjectRef> Clone() const override {
        const Id classId = TRY(MakeFormatClassId(_row));
        ObjectRef copy = TRY(ClassRef(classId).Create());
        auto* format = dynamic_cast<PixelFormatIndexedImpl*>(copy.GetPointer());
        if (!format)
            return UnexpectedError("Class @ makes no indexed formats.", classId);
        TRY(format->_table.AppendBlock(_table.ToBlock()));
        format->_entryFormat = _entryFormat;
        format->_count = _count;
        return copy;
    }
    PixelFormat GetColorTablePixelFormat() const override { return _entryFormat; }
    Int GetColorTableSize() const override { return _count; }
    Result<void> SetIndex(Int index, const PixelFormat& format, const void* pixel) override {
        TRY(CheckIndex(index));
        return _entryFormat->ConvertPixelFromSlow({_table.GetFirst() + index * GetEntryBytes(), GetEntryBits(), 0}, 1,
                                                  {pixel, format->GetBitsPerPixel(), 0}, format, nullptr, nullptr,
                                                  CONVERTPIXELFLAGS::NONE);
    }
    Result<void> GetIndex(Int index, const PixelFormat& format, void* pixel) const override {
        TRY(CheckIndex(index));
        return format->ConvertPixelFromSlow({pixel, format->GetBitsPerPixel(), 0}, 1,
                                            {_table.GetFirst() + index * GetEntryBytes(), GetEntryBits(), 0},
                                            _entryFormat, nullptr, nullptr, CONVERTPIXELFLAGS::NONE);
    }

    /// Knows the formats of whole components outside the inks. The conversion has the colours of the moment when it was
    /// asked for. Nothing finds indices for colours, so that from another format there is no conversion.
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                   ChannelOffsets dstOffsets, Bool) const override {
        const PixelFormatFixed* dst = Get(dstFormat);
        if (_count == 0 || !dst || dst->GetRow().kind != FormatKind::Components ||
            !std::ranges::equal(srcOffsets, GetChannelOffsets()))
            return ConvertPixelFunc();
        BaseArray<std::byte> colors = TRY(dst->CreatePix(GetIndexCount(), 1, 1));
        TRY(dst->ConvertPixelFromSlow({colors.GetFirst(), dst->GetBitsPerPixel(), 0}, GetIndexCount(),
                                      {_table.GetFirst(), GetEntryBits(), 0}, _entryFormat, nullptr, nullptr,
                                      CONVERTPIXELFLAGS::NONE));
        return pixel::MakeColorLookup(std::move(colors), _row.packing, dst->GetChannelOffsets(), dstOffsets);
    }

private:
    Int GetIndexCount() const { return Int(1) << _row.packing; }
    BITS GetEntryBits() const { return _entryFormat->GetBitsPerPixel(); }
    Int GetEntryBytes() const { return GetEntryBits().GetBytes(); }
    Result<void> CheckIndex(Int index) const {
        if (index < 0 || index >= _count)
            return IllegalArgumentError("Index @ is outside the colour table of @ entries.", index, _count);
        return {};
    }
    uint32_t ReadIndex(const void* pixel) const {
        uint16_t index = 0;
        pixel::ReadIndices({pixel, BITS(_row.packing), 0}, 0, 1, _row.packing, &index);
        return index;
    }

    PixelFormat _entryFormat;
    BaseArray<std::byte> _table;  ///< one entry for each possible index, zero from `_count` on
    Int _count = 0;               ///< 0 without a table
};

}  // namespace

Result<ObjectRef> CreateIndexedPixelFormat(const FormatRow& row) {
    return ObjectRef(TRY(NewObj<PixelFormatIndexedImpl>(row)));
}

}  // namespace orvik
