#pragma once
/// @file
/// Formats of the fixed catalogue.

#include "pixel/gfx_image_pixelformat_catalogue.h"
#include "pixel/gfx_image_pixelformat_channels.h"

namespace orvik {

/// One format of the catalogue. This class serves the formats of whole components; the others derive from it.
class PixelFormatFixed : public PixelFormatChannels {
public:
    explicit PixelFormatFixed(const FormatRow& row) : _row(row), _family(GetFamilyRow(row.family)) {}
    /// Makes id, channels and offsets from the row.
    virtual Result<void> Construct();

    Id GetId() const override { return _id; }
    String PixToString(const void* pixel) const override;
    /// Knows all formats of the general families except alpha.f16, which goes channel by channel.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override;
    const FormatRow& GetRow() const { return _row; }
    /// @return the format's object when it is one of the catalogue, else null
    static const PixelFormatFixed* Get(const PixelFormat& format) {
        return dynamic_cast<const PixelFormatFixed*>(format.GetPointer());
    }

protected:
    Result<void> ConstructNames();

    const FormatRow& _row;
    const FamilyRow& _family;
    Id _id;
};

/// A channel of which only the meaning and the width is known: its values are no whole components.
Result<ImageChannel> CreatePackedChannel(const Id& type, Int bits);

// The formats that are more than whole components converted by the component table.
Result<ObjectRef> CreateInksPixelFormat(const FormatRow& row);
Result<ObjectRef> CreatePackedPixelFormat(const FormatRow& row);
Result<ObjectRef> CreateSharedExponentPixelFormat(const FormatRow& row);
Result<ObjectRef> CreateSharedChromaPixelFormat(const FormatRow& row);
Result<ObjectRef> CreateIndexedPixelFormat(const FormatRow& row);

}  // namespace orvik
