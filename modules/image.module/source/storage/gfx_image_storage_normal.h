#pragma once
/// @file
/// The normal storage: one contiguous block, pixels packed and interleaved.

#include "storage/gfx_image_storage_raster.h"

#include "orvik/datadescriptionobject.h"

namespace orvik {

/// Lines follow each other without padding; a pixel that is no whole byte starts inside a byte. No lock: different
/// lines may be read and written at the same time.
class ImagePixelStorageNormal : public ImagePixelStorageRasterBase, public virtual DataDescriptionObjectInterface {
public:
    Result<void> Init(Int width, Int height, const PixelFormat& format, Block<const std::byte> defaultColor) override;
    Result<void> GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                              GETPIXELFLAGS flags) override;
    Result<void> SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                              SETPIXELFLAGS flags) override;
    /// The block of pixels; null before `Init`.
    const Ref<PixelRaster>& GetRaster() const { return _raster; }
    /// Copies the whole block.
    Result<Ref<Object>> Clone() const override;
    /// Size, format and pixels; for indices also the colours that they stand for. Reading finds the format by its id:
    /// illegal argument "Illegal pixel format: @." when none has it, and when the numbers contradict the format.
    Result<void> DescribeIO(DataSerialize& io) override;

    /// Equal size, format and pixels. Formats with colour tables are equal when their ids and colours are.
    Bool IsEqual(const ImagePixelStorageInterface& other) const override;
    uint64_t GetHashCode() const override;

private:
    struct Description;
    Result<void> Restore(Description& description, const PixelFormat& format);
    struct Components;
    Result<Components> FindComponents(Int channel, const PixelSpan& span) const;
};

}  // namespace orvik
