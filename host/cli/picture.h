#pragma once
/// @file
/// Pictures for the commands: loading with progress, names and kinds of nodes.

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

/// The children of a node in one branch, without nodes that are no images.
Result<BaseArray<ImageBaseRef>> GetImages(const ImageBaseRef& node, IMAGEHIERARCHY branch);
/// The first alpha of an image, or null.
ImageBaseRef FindAlpha(const ImageBaseRef& image);
/// Masks and alphas have no colours: as a picture in colours they are grey.
bool IsMask(const ImageBaseRef& node);
/// "IMAGE", "ALPHA" and so on.
std::string_view GetTypeName(ITYPE type);
std::string_view GetTypeName(const ImageBaseRef& node);
/// The name used in paths; an alpha without a name is "Alpha".
String GetNodeName(const ImageBaseRef& node);
/// The description of the node's colour profile; empty without one.
String GetProfileName(const ImageBaseRef& node);

}  // namespace orvik::cli
