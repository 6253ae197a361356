#include "treetext.h"

#include "console.h"

namespace orvik::cli {

namespace {

/// "multiply, 50 %".
std::string LookText(const Json& node) {
    std::string text;
    for (const std::string& word : LookWords(node)) {
        text += text.empty() ? "  " : ", ";
        text += word;
    }
    return text;
}

/// "dpi 72, subimageindex 0".
std::string MetadataText(const Json& node) {
    std::string text;
    for (const auto& [key, value] : OtherMetadata(node))
        text += (text.empty() ? "" : ", ") + key + " " + value;
    return text;
}

void DrawNode(std::string& out, const Json& node, const std::string& indent, bool last) {
    const std::string inner = indent + (last ? "   " : "│  ");
    const auto& children = node["children"];

    out += indent + (last ? "└─ " : "├─ ") + TypeText(node);
    if (const auto name = node["name"].get<std::string>(); !name.empty())
        out += " \"" + Printable(name) + "\"";
    if (HasPixels(node))
        out += "  " + SizeText(node) + "  " + FormatText(node);
    if (const auto profile = node["colorprofile"].get<std::string>(); !profile.empty())
        out += "  " + Printable(profile);
    out += Printable(LookText(node)) + "\n";
    if (const std::string metadata = MetadataText(node); !metadata.empty())
        out += inner + (children.empty() ? "   " : "│  ") + Printable(metadata) + "\n";
    for (size_t i = 0; i < children.size(); ++i)
        DrawNode(out, children[i], inner, i + 1 == children.size());
}

void DrawExif(std::string& out, const Json& exif) {
    out += "exif\n";
    for (const auto& [name, value] : exif.items())
        out += "   " + Printable(name) + "  " + Printable(ValueText(value)) + "\n";
}

}  // namespace

std::string Draw(const Json& picture, const FileFormat& format) {
    std::string out = Printable(picture["url"].get<std::string>()) + "  " + std::string(format->GetName().GetText()) +
                      (HasPixels(picture) ? "  " + SizeText(picture) : "") + "\n";
    const auto& images = picture["images"];
    for (size_t i = 0; i < images.size(); ++i)
        DrawNode(out, images[i], "", i + 1 == images.size());
    if (picture.contains("exif"))
        DrawExif(out, picture["exif"]);
    return out;
}

}  // namespace orvik::cli
