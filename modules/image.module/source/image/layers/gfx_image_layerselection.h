#pragma once
/// @file
/// Resolves layer sets: to streams of a file, and to nodes below an image.

#include "orvik/gfx_image.h"

namespace orvik {

/// Does the set name any path at all?
bool HasSelectedLayers(const LayerSet& layers);
/// Is this path one of the set's? Paths compare case-sensitively.
bool IsLayerSelected(const LayerSet& layers, const String& path);

/// True for a node with an area and a storage that holds pixels.
bool HasOwnPixels(const ImageBaseRef& node);
/// "net.orvik.image.layer.enabled", true when it is absent.
bool IsLayerEnabled(const ImageBaseRef& node);

/// The nodes that a layer set picks below an image.
struct LayerSelection {
    enum class Kind : uint8_t {
        OwnPixels,   ///< the image's own: nothing is picked, or without paths only layers that have no pixels
        SingleNode,  ///< one alpha or mask, to be read as it is
        Layers,      ///< layers to be composited
    };
    Kind kind = Kind::OwnPixels;
    /// For `Layers` the bottom comes first, and nodes without pixels are left out; there may be none.
    BaseArray<ImageBaseRef> nodes;
};

/// Resolves a set against the tree below `owner`.
/// Errors: illegal argument when an alpha or mask is asked for and not found, illegal state for a tree deeper than 256
/// levels.
Result<LayerSelection> SelectLayers(const ImageBaseRef& owner, const LayerSet& layers);

}  // namespace orvik
