#pragma once
/// @file
/// Pixel storages and the handlers by which lines are read and written.

#include <algorithm>
#include <limits>

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

/// Reads one span into a line of the format that the handler was made for.
using ReadLineFunc = Delegate<Result<void>(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags)>;
/// Writes one span from a line of the format that the handler was made for.
using WriteLineFunc = Delegate<Result<void>(const PixelSpan& span, const PixelLineConst& src, SETPIXELFLAGS flags)>;
/// Where a span stands in memory, one pixel directly behind the other as the handler takes them; null outside of the
/// picture.
using LocateLineFunc = Delegate<std::byte*(const PixelSpan& span)>;
/// Where a span stands in memory as a read would deliver it, pixel behind pixel. Errors are those of the read.
using FindLineFunc = Delegate<Result<const std::byte*>(const PixelSpan& span)>;
/// Called once, when a set handler is freed, with the rectangle that was written.
using RegionDelegate = Delegate<Result<void>(const UpdateRegion& region)>;

/// Line read closure of an image. Belongs to the thread that asked for it; goes back through `FreePixelHandler`.
struct GetPixelHandlerStruct {
    ReadLineFunc read;
    /// Set by storages whose pixels are wanted as they are. Pixels found there need no `read`.
    FindLineFunc find;
    Delegate<void()> release;
    explicit operator bool() const { return static_cast<bool>(read); }
    /// Gives the handler back; it is empty afterwards. `FreePixelHandler` of every image and storage ends here, and who
    /// holds a handler without its image (an importer, an exporter) calls it directly.
    void Free() {
        const Delegate<void()> end = std::move(release);
        read = {};
        find = {};
        if (end)
            end();
    }
};

/// Line write closure of an image. Its caller calls `Widen` after each successful write.
struct SetPixelHandlerStruct {
    WriteLineFunc write;
    /// Set by storages that keep the caller's pixels as they are. Pixels written there need no `write`.
    LocateLineFunc locate;
    Delegate<void()> release;
    RegionDelegate region;
    Int minX = std::numeric_limits<Int>::max(), minY = std::numeric_limits<Int>::max();
    Int maxX = std::numeric_limits<Int>::min(), maxY = std::numeric_limits<Int>::min();  ///< inclusive

    explicit operator bool() const { return static_cast<bool>(write); }
    Bool IsDirty() const { return minX <= maxX && minY <= maxY; }
    void Widen(const PixelSpan& span) {
        if (span.count <= 0)
            return;
        minX = std::min(minX, span.x);
        minY = std::min(minY, span.y);
        maxX = std::max(maxX, span.x + span.count - 1);
        maxY = std::max(maxY, span.y);
    }
    /// Calls the region delegate with what was written, if anything was, and gives the handler back. It is empty
    /// afterwards, so that a second call does nothing. See `GetPixelHandlerStruct::Free`.
    /// @return the error of the region delegate; the handler is free all the same
    Result<void> Free() {
        SetPixelHandlerStruct gone = std::move(*this);
        *this = {};
        Result<void> notified;
        if (gone.region && gone.IsDirty())
            notified = gone.region({gone.minX, gone.minY, gone.maxX - gone.minX + 1, gone.maxY - gone.minY + 1});
        if (gone.release)
            gone.release();
        return notified;
    }
};

inline constexpr Id kPixelStorageClassRegistry{"net.orvik.image.registry.imagepixelstorageclasses"};
namespace storageclasses {
inline constexpr Id kNormal{"net.orvik.image.imagepixelstorageclass.normal"};
inline constexpr Id kPlanes{"net.orvik.image.imagepixelstorageclass.planes"};
inline constexpr Id kNoData{"net.orvik.image.imagepixelstorageclass.nodata"};
inline constexpr Id kVoxel{"net.orvik.image.imagepixelstorageclass.voxel"};
inline constexpr Id kDeepImage{"net.orvik.image.imagepixelstorageclass.deepimage"};
}  // namespace storageclasses

/// Owns the memory of one raster, knows its format, and gives line access that converts.
class ImagePixelStorageInterface : public virtual Object {
    ORVIK_INTERFACE(ImagePixelStorageInterface, "net.orvik.image.interface.imagepixelstorage");

public:
    /// May be called again. Illegal argument for a null format; after out of memory the storage is as new.
    /// @param defaultColor  one pixel for storages that fill, else ignored; may be empty
    virtual Result<void> Init(Int width, Int height, const PixelFormat& format, Block<const std::byte> defaultColor) {
        (void)width, (void)height, (void)format, (void)defaultColor;
        return Unbound();
    }
    virtual Int GetWidth() const { return Unbound(); }
    virtual Int GetHeight() const { return Unbound(); }
    virtual Int GetChannelCount() const { return Unbound(); }
    virtual PixelFormat GetPixelFormat() const { return Unbound(); }
    /// Reads in the caller's format. `storedProfile` describes the pixels here, `profile` what the caller wants; either
    /// may be empty.
    virtual Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                          const ColorProfile& storedProfile,
                                                          const ColorProfile& profile, GETPIXELHANDLERFLAGS flags) {
        (void)format, (void)offsets, (void)storedProfile, (void)profile, (void)flags;
        return Unbound();
    }
    virtual Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                          const ColorProfile& storedProfile,
                                                          const ColorProfile& profile, SETPIXELHANDLERFLAGS flags,
                                                          const RegionDelegate& region) {
        (void)format, (void)offsets, (void)storedProfile, (void)profile, (void)flags, (void)region;
        return Unbound();
    }
    virtual void FreePixelHandler(GetPixelHandlerStruct& handler) { (void)handler; }
    /// Calls the region delegate if the handler is dirty.
    virtual void FreePixelHandler(SetPixelHandlerStruct& handler) { (void)handler; }
    /// Copies one channel of a span. @param stride  bytes between the values at `destination`
    virtual Result<void> GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                                      GETPIXELFLAGS flags) {
        (void)channel, (void)span, (void)destination, (void)stride, (void)flags;
        return Unbound();
    }
    virtual Result<void> SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                                      SETPIXELFLAGS flags) {
        (void)channel, (void)span, (void)source, (void)stride, (void)flags;
        return Unbound();
    }
    /// Equal size, format and pixels for storages that are data, which the normal one is; any other equals itself only.
    virtual Bool IsEqual(const ImagePixelStorageInterface& other) const {
        return static_cast<const Object*>(this) == static_cast<const Object*>(&other);
    }
    /// Equal for equal storages.
    virtual uint64_t GetHashCode() const {
        return IsAbsent() ? 0 : HashPointerBits(reinterpret_cast<uintptr_t>(static_cast<const Object*>(this)));
    }
};
using ImagePixelStorageRef = Ref<ImagePixelStorageInterface>;
template <>
inline constexpr const char* kDataTypeName<ImagePixelStorageRef> = "orvik::ImagePixelStorageRef";

}  // namespace orvik
