#pragma once
/// @file
/// The rows of one node of a picture, in the pixel format that the user asked for.

#include "orvik/gfx_image.h"

namespace orvik::cli {

/// The form in which pixels of a node are read.
struct RowsWish {
    PixelFormat format;
    ColorProfile profile;  ///< empty: the node's own
    LayerSet layers;       ///< null: the node's own pixels; otherwise what the set selects, composited
};

/// Owns read handlers of a node and the row that they fill.
class NodeRows {
public:
    /// Joins an alpha child in if the format has alpha and there is no layer set. Colours and alpha are joined in a
    /// format in which alpha starts at a whole byte: the wanted one, or float if that packs its channels.
    /// Errors: an illegal state for an alpha of another size, those of conversion and memory.
    static Result<NodeRows> Create(const ImageBaseRef& node, const RowsWish& wish);

    NodeRows(NodeRows&&) noexcept = default;
    NodeRows& operator=(NodeRows&&) = delete;

    Int GetWidth() const { return _width; }
    Int GetHeight() const { return _height; }
    /// @return the bytes of row `y`, valid until the next call
    Result<Block<const std::byte>> Read(Int y);

private:
    /// Owns one handler.
    class Reader {
    public:
        Reader() = default;
        static Result<Reader> Create(const ImageBaseRef& image, const RowsWish& wish);
        Reader(Reader&& other) noexcept
            : _image(std::move(other._image)), _handler(std::exchange(other._handler, {})) {}
        Reader& operator=(Reader&& other) noexcept;
        ~Reader();

        explicit operator bool() const { return static_cast<bool>(_handler); }
        Result<void> Read(Int y, Int width, const PixelLine& line) const {
            return _handler.read({0, y, width}, line, GETPIXELFLAGS::NONE);
        }

    private:
        ImageBaseRef _image;
        GetPixelHandlerStruct _handler;
    };

    NodeRows() = default;
    Result<void> OpenAlpha(const ImageBaseRef& node, const ImageBaseRef& alpha);

    Int _width = 0;
    Int _height = 0;
    PixelFormat _format;   ///< of the rows handed out
    PixelFormat _meeting;  ///< of what the handlers fill; mostly the same
    Int _alphaStart = 0;   ///< bytes from a pixel's first to its alpha
    Reader _colours;
    Reader _alpha;
    BaseArray<std::byte> _row;
    BaseArray<std::byte> _packed;  ///< in use where the two formats differ
};

}  // namespace orvik::cli
