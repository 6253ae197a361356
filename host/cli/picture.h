#pragma once
/// @file
/// Pictures as the commands see them: loaded with progress, with nodes that have names and paths.

#include "orvik/mediasession_output.h"

namespace orvik::cli {

struct Picture {
    ImageTextureRef texture;
    MediaSessionRef session;  ///< keeps the importer's data alive
    FileFormat format;
};

/// Loads a file; shows progress on a terminal. Cancellation by signal comes back as the thread-cancelled error.
/// @param name  a path, a file URL, or "-" for standard input; pipes and devices are read into memory first
Result<Picture> LoadPicture(const std::string& name, MEDIASESSIONFLAGS flags);

/// The children of a node in one branch; nodes that are no images are left out.
Result<BaseArray<ImageBaseRef>> GetImages(const ImageBaseRef& node, IMAGEHIERARCHY branch);
/// The first alpha of an image, or null.
ImageBaseRef FindAlpha(const ImageBaseRef& image);
/// Masks and alphas have no colours: where colours are wanted, their values stand in all three.
bool IsMask(const ImageBaseRef& node);
/// "IMAGE", "ALPHA" and so on.
std::string_view GetTypeName(ITYPE type);
std::string_view GetTypeName(const ImageBaseRef& node);
/// The name that stands in paths; an alpha without a name is "Alpha".
String GetNodeName(const ImageBaseRef& node);
/// The description of the node's colour profile; empty without one.
String GetProfileName(const ImageBaseRef& node);

}  // namespace orvik::cli
