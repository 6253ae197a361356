// Formats whose pixels are indices into a colour table.

#include <cstring>

#include "gfx_image_pixelformat_fixed.h"

namespace orvik {
namespace {

/// The instance that is registered has no table and never gets one; who needs a table creates an instance of the class.
class PixelFormatIndexedImpl final : public PixelFormatFixed, public virtual PixelFormatIndexedColorInterface {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        const ImageChannel index = TRY(CreatePackedChannel(channeltypes::kUnknown, _row.packing));
        return AppendChannel(index);
    }
    ColorSpace GetColorSpace() const override { return _entryFormat->GetColorSpace(); }
    ColorProfile GetDefaultColorProfile() const override { return _entryFormat->GetDefaultColorProfile(); }
    /// Compares indices.
    Bool IsIdenticalPixel(const void* a, const void* b, Int) const override { return ReadIndex(a) == ReadIndex(b); }
    String PixToString(const void* pixel) const override { return FormatString(_family.text, ReadIndex(pixel)); }

    Result<void> InitColorTable(const PixelFormat& entryFormat, Int count) override {
        if (!entryFormat || count < 1 || count > Int(1) << _row.packing)
            return IllegalArgumentError("No colour table of @ entries for @ bits.", count, _row.packing);
        if (FindPublishedObject(_id).GetPointer() == this)
            return IllegalStateError("@ is shared and has no colour table of its own.", _id);
        BaseArray<std::byte> table = TRY(entryFormat->CreatePix(1, count, 1));
        _entryFormat = entryFormat;
        _table = std::move(table);
        _count = count;
        return {};
    }
    PixelFormat GetColorTablePixelFormat() const override { return _entryFormat; }
    Int GetColorTableSize() const override { return _count; }
    Result<void> SetIndex(Int index, const PixelFormat& format, const void* pixel) override {
        if (index < 0 || index >= _count)
            return IllegalArgumentError("Index @ is outside the colour table of @ entries.", index, _count);
        const PixelLine entry{_table.GetFirst() + index * GetEntryBytes(), _entryFormat->GetBitsPerPixel(), 0};
        return _entryFormat->ConvertPixelFromSlow(entry, 1, {pixel, format->GetBitsPerPixel(), 0}, format, nullptr,
                                                  nullptr, CONVERTPIXELFLAGS::NONE);
    }
    Result<void> GetIndex(Int index, const PixelFormat& format, void* pixel) const override {
        if (index < 0 || index >= _count)
            return IllegalArgumentError("Index @ is outside the colour table of @ entries.", index, _count);
        const PixelLineConst entry{_table.GetFirst() + index * GetEntryBytes(), _entryFormat->GetBitsPerPixel(), 0};
        return format->ConvertPixelFromSlow({pixel, format->GetBitsPerPixel(), 0}, 1, entry, _entryFormat, nullptr,
                                            nullptr, CONVERTPIXELFLAGS::NONE);
    }

private:
    Int GetEntryBytes() const { return _table.GetCount() / _count; }
    /// Pixels below a byte lie in its highest bits.
    uint32_t ReadIndex(const void* pixel) const {
        const Int bits = _row.packing;
        return bits < 8 ? ReadPackedBits(pixel, bits, 8 - bits, bits) : ReadPackedBits(pixel, bits, 0, bits);
    }

    PixelFormat _entryFormat;
    BaseArray<std::byte> _table;
    Int _count = 0;
};

}  // namespace

Result<ObjectRef> CreateIndexedPixelFormat(const FormatRow& row) {
    return ObjectRef(TRY(NewObj<PixelFormatIndexedImpl>(row)));
}

}  // namespace orvik
