#pragma once
/// @file
/// The root of an image tree, and the road to files.

#include "image/gfx_imagebaseimpl.h"

#include "orvik/mediasession_output.h"

namespace orvik {

/// Has no pixels; reads return those of its first image. It cannot be written to; its images can.
class ImageTextureImpl : public virtual ImageTextureInterface, public ImageBaseImpl {
public:
    Result<MediaSessionRef> Load(const Url& url, TimeValue targetTime, MEDIASESSIONFLAGS flags, const ClassRef& storage,
                                 const LayerSet& layers) override;
    Result<void> Save(const MediaOutputUrlRef& output, MEDIASESSIONFLAGS flags, MediaSessionRef* session) override;

    /// Takes images in branch IMAGE only.
    Result<void> AddChildren(IMAGEHIERARCHY branch, const ImageBaseRef& child,
                             const ImageBaseRef& predecessor) override;
    Int GetWidth() const override { return GetFirstImage()->GetWidth(); }
    Int GetHeight() const override { return GetFirstImage()->GetHeight(); }
    Int GetChannelCount() const override { return GetFirstImage()->GetChannelCount(); }
    PixelFormat GetPixelFormat() const override { return GetFirstImage()->GetPixelFormat(); }
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& profile, GETPIXELHANDLERFLAGS flags,
                                                  const LayerSet& layers) override;

private:
    /// Null without an image: calls then answer 0, empty, or the null pointer error.
    ImageBaseRef GetFirstImage() const;
};

}  // namespace orvik
