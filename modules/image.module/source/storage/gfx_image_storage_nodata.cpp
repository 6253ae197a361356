#include "storage/gfx_image_storage_nodata.h"

namespace orvik {

Result<void> ImagePixelStorageNoData::Init(Int width, Int height, const PixelFormat& format, Block<const std::byte>) {
    return InitRaster(width, height, format, PixelRaster::Create, false);
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
