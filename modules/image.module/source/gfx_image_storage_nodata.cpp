#include "gfx_image_storage_nodata.h"

namespace orvik {

Result<void> ImagePixelStorageNoData::Init(Int width, Int height, const PixelFormat& format, Block<const std::byte>) {
    if (width < 0 || height < 0)
        return IllegalArgumentError();
    _width = width;
    _height = height;
    if (!format)
        return IllegalArgumentError();
    _raster = nullptr;
    Result<Ref<PixelRaster>> made = PixelRaster::Create(width, height, format);
    if (!made) {
        _width = _height = 0;
        return std::move(made).TakeError();
    }
    _raster = std::move(made).TakeValue();
    return {};
}

Result<GetPixelHandlerStruct> ImagePixelStorageNoData::GetPixelHandler(const PixelFormat& format,
                                                                       ChannelOffsets offsets,
                                                                       const ColorProfile& storedProfile,
                                                                       const ColorProfile& profile,
                                                                       GETPIXELHANDLERFLAGS flags) {
    TRY(MakeReadConversion(format, offsets, storedProfile, profile, ToConvertFlags(flags)));
    GetPixelHandlerStruct handler;
    handler.read = [](const PixelSpan&, const PixelLine&, GETPIXELFLAGS) -> Result<void> {
        return FunctionNotImplementedError();
    };
    return handler;
}

Result<SetPixelHandlerStruct> ImagePixelStorageNoData::SetPixelHandler(
    const PixelFormat& format, ChannelOffsets offsets, const ColorProfile& storedProfile, const ColorProfile& profile,
    SETPIXELHANDLERFLAGS flags, const RegionDelegate& region) {
    TRY(MakeWriteConversion(format, offsets, storedProfile, profile, ToConvertFlags(flags)));
    SetPixelHandlerStruct handler;
    handler.write = [](const PixelSpan&, const PixelLineConst&, SETPIXELFLAGS) -> Result<void> {
        return FunctionNotImplementedError();
    };
    handler.region = region;
    return handler;
}

Result<Ref<Object>> ImagePixelStorageNoData::Clone() const {
    Ref<ImagePixelStorageNoData> copy = TRY(NewObj<ImagePixelStorageNoData>());
    copy->_width = _width;
    copy->_height = _height;
    copy->_raster = _raster;  // never changes without pixels
    return Ref<Object>(copy);
}

}  // namespace orvik
