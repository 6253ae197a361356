#pragma once
/// @file
/// Which part of a picture a command works on: an image of several, nodes below it, layers composited.

#include <optional>
#include <string>
#include <vector>

#include "noderows.h"
#include "picture.h"

namespace orvik::cli {

struct SelectionOptions {
    std::optional<int> image = {};        ///< from 1; the first by default
    std::vector<std::string> paths = {};  ///< names below the image, joined by slashes or backslashes
    bool composite = false;  ///< what the paths name, or without paths all visible layers, laid over each other

    bool IsWholePicture() const { return !image && paths.empty() && !composite; }
};

/// A node and what is wanted of it.
struct Selection {
    ImageBaseRef node;
    LayerSet layers;  ///< null for the node's own pixels
};

/// One path names a node whose own pixels are meant; several, or the wish to composite, name layers of the image.
/// Errors: illegal arguments that name what is not there.
Result<Selection> Select(const Picture& picture, const SelectionOptions& options);

/// A picture of one image that holds what was selected, with the metadata of its node. Without layers to composite the
/// image keeps its pixel format; composited it has one with alpha.
Result<ImageTextureRef> Flatten(const Selection& selection);

}  // namespace orvik::cli
