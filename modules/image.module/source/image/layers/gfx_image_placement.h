#pragma once
/// @file
/// Positions of layers, masks and alphas in their picture, and reading one of them extended to the picture's size.

#include "orvik/gfx_image.h"

namespace orvik {

/// A caller's wish for line access.
struct PixelRequest {
    const PixelFormat& format;
    ChannelOffsets offsets;  ///< of the caller's pixels; never empty
    const ColorProfile& profile;
    GETPIXELHANDLERFLAGS flags;
};

/// Line access to one node, given back with the reader.
class NodeReader {
public:
    NodeReader() = default;
    static Result<NodeReader> Create(const ImageBaseRef& node, const PixelRequest& request);
    NodeReader(NodeReader&& other) noexcept = default;
    NodeReader& operator=(NodeReader other) noexcept {
        std::swap(_node, other._node);
        std::swap(_handler, other._handler);
        return *this;
    }
    ~NodeReader() {
        if (_handler)
            _node->FreePixelHandler(_handler);
    }

    /// @param span  in coordinates of the node
    Result<void> Read(const PixelSpan& span, const PixelLine& dst, GETPIXELFLAGS flags) const {
        return _handler.read(span, dst, flags);
    }
    /// Hands the handler over to the caller.
    GetPixelHandlerStruct Detach() { return std::move(_handler); }

private:
    ImageBaseRef _node;
    GetPixelHandlerStruct _handler;
};

/// The rectangle of a node within its picture.
class Placement {
public:
    /// No picture reaches further than this, so that sums of a few coordinates stay within their 64 bits.
    static constexpr Int kFarthest = Int(1) << 60;

    Placement() = default;
    /// The node's position as its keys "boundingbox_x" and "_y" give it, 0 without them, and its own size.
    explicit Placement(const ImageBaseRef& node);

    Int GetX() const { return _x; }
    Int GetY() const { return _y; }

    /// The part of a span within the node.
    struct Overlap {
        Int skip = 0;     ///< pixels of the span in front of it
        Int count = 0;    ///< 0 where the span misses the node
        PixelSpan local;  ///< the same part, counted from the node's corner
    };
    /// @param span  in the picture, within a picture's reach
    Overlap Clip(const PixelSpan& span) const;

private:
    Int _x = 0, _y = 0, _width = 0, _height = 0;
};

/// The readable area: that of an image, or of a layer read in its place.
class Canvas {
public:
    Canvas() = default;
    explicit Canvas(const ImageBaseRef& owner);

    /// A span of the owner, in coordinates of the picture. Illegal argument, without text, outside of the owner.
    Result<PixelSpan> Locate(const PixelSpan& span) const;
    /// True when a node covers exactly the owner's area.
    bool IsCoveredBy(const ImageBaseRef& node) const;

private:
    Int _x = 0, _y = 0, _width = 0, _height = 0;
};

/// A handler that reads one node by coordinates of `owner`. What lies outside the node is transparent, or for a mask
/// its default colour; formats without alpha show black there.
Result<GetPixelHandlerStruct> GetPlacedPixelHandler(const ImageBaseRef& owner, const ImageBaseRef& node,
                                                    const PixelRequest& request);

/// "net.orvik.image.layer.maskdefcolor" as a byte of `GetMaskByteFormat`; 0 without it.
uint8_t GetMaskDefaultColor(const ImageBaseRef& mask);
/// The 8-bit format of a mask's default colour: that of alpha where the mask has such, else that of grey.
PixelFormat GetMaskByteFormat(const ImageBaseRef& mask);

}  // namespace orvik
