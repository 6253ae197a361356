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

/// A node, and which layers of it to composite.
struct Selection {
    ImageBaseRef node;
    LayerSet layers;  ///< null for the node's own pixels
};

/// A single path selects the pixels of that node; several, or `composite`, select layers of the image.
/// Errors: illegal arguments that name what is missing.
Result<Selection> Select(const Picture& picture, const SelectionOptions& options);

/// A picture of one image with the selected pixels and the metadata of their node. Without layers to composite the
/// image keeps its pixel format; composited it has one with alpha.
Result<ImageTextureRef> Flatten(const Selection& selection);

}  // namespace orvik::cli
