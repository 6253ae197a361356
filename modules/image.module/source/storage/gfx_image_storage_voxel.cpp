#include "storage/gfx_image_storage_voxel.h"

namespace orvik {
namespace {

struct VoxelReader {
    Ref<VoxelTiles> tiles;
    ConvertPixelFunc convert;
    CONVERTPIXELFLAGS flags;

    Result<void> operator()(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS) const {
        return tiles->Read(span, dst, convert, flags);
    }
};

struct VoxelWriter {
    Ref<VoxelTiles> tiles;
    ConvertPixelFunc convert;
    CONVERTPIXELFLAGS flags;

    Result<void> operator()(const PixelSpan& span, const PixelLineConst& src, SETPIXELFLAGS) const {
        return tiles->Write(span, src, convert, flags);
    }
};

}  // namespace

Result<void> ImagePixelStorageVoxel::Init(Int width, Int height, const PixelFormat& format,
                                          Block<const std::byte> defaultColor) {
    _tiles = nullptr;
    _raster = nullptr;
    // The size is not one of memory, so no line is counted.
    TRY(InitRaster(
        width, height, format, [](Int, Int, const PixelFormat& of) { return PixelRaster::Create(0, 0, of); }, false));
    Ref<VoxelTiles> tiles;
    const auto make = [&]() -> Result<void> {
        if (!defaultColor.empty() && static_cast<Int>(defaultColor.size()) != format->GetBitsPerPixel().GetBytes())
            return IllegalArgumentError(
                "Illegal argument: Condition defaultColor->GetCount() == _bitsPerPixel.GetBytes() not fulfilled. ");
        tiles = TRY(NewObj<VoxelTiles>());
        return tiles->Init(format->GetBitsPerPixel(), defaultColor);
    };
    Result<void> made = make();
    if (!made) {
        _raster = nullptr;
        return made;
    }
    _tiles = std::move(tiles);
    return {};
}

Result<GetPixelHandlerStruct> ImagePixelStorageVoxel::GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                                      const ColorProfile& storedProfile,
                                                                      const ColorProfile& profile,
                                                                      GETPIXELHANDLERFLAGS flags) {
    const CONVERTPIXELFLAGS convertFlags = ToConvertFlags(flags);
    ConvertPixelFunc convert = TRY(MakeReadConversion(format, offsets, storedProfile, profile, convertFlags));
    GetPixelHandlerStruct handler;
    handler.read = TRY(ReadLineFunc::Create(VoxelReader{_tiles, std::move(convert), convertFlags}));
    return handler;
}

Result<SetPixelHandlerStruct> ImagePixelStorageVoxel::SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                                      const ColorProfile& storedProfile,
                                                                      const ColorProfile& profile,
                                                                      SETPIXELHANDLERFLAGS flags,
                                                                      const RegionDelegate& region) {
    const CONVERTPIXELFLAGS convertFlags = ToConvertFlags(flags);
    ConvertPixelFunc convert = TRY(MakeWriteConversion(format, offsets, storedProfile, profile, convertFlags));
    SetPixelHandlerStruct handler;
    handler.write = TRY(WriteLineFunc::Create(VoxelWriter{_tiles, std::move(convert), convertFlags}));
    handler.region = region;
    return handler;
}

Result<Ref<Object>> ImagePixelStorageVoxel::Clone() const {
    Ref<ImagePixelStorageVoxel> copy = TRY(NewObj<ImagePixelStorageVoxel>());
    copy->_width = _width;
    copy->_height = _height;
    copy->_raster = _raster;  // a description only, which never changes
    if (_tiles) {
        Ref<VoxelTiles> tiles = TRY(NewObj<VoxelTiles>());
        TRY(tiles->CopyFrom(*_tiles));
        copy->_tiles = std::move(tiles);
    }
    return Ref<Object>(copy);
}

}  // namespace orvik
