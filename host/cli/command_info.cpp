#include <algorithm>
#include <cctype>
#include <charconv>

#include "commands.h"
#include "json.h"
#include "picture.h"

namespace orvik::cli {

namespace {

constexpr int kMaxDepth = 256;
constexpr std::string_view kMetadataPrefix = "net.orvik.image.";

/// All branches in their order.
Result<BaseArray<ImageBaseRef>> GetAllChildren(const ImageBaseRef& node) {
    BaseArray<ImageBaseRef> all;
    for (int branch = 0; branch < static_cast<int>(IMAGEHIERARCHY::MAX_ELEMENTS); ++branch) {
        for (const ImageBaseRef& child : TRY(GetImages(node, static_cast<IMAGEHIERARCHY>(branch))))
            TRY(all.Append(child));
    }
    return all;
}

Result<Json> DescribeNode(const ImageBaseRef& node, int depth) {
    if (depth > kMaxDepth)
        return IllegalStateError("the picture's tree is deeper than @ levels", kMaxDepth);
    Json json;
    json["type"] = std::string(GetTypeName(node));
    json["name"] = ToJson(GetNodeName(node));
    json["width"] = node->GetWidth();
    json["height"] = node->GetHeight();
    json["pixelformat"] = ToJson(node->GetPixelFormat()->GetId());
    json["colorprofile"] = ToJson(GetProfileName(node));
    json["metadata"] = ToJson(node->GetDictionary(), kMetadataPrefix);
    json["children"] = Json::array();
    for (const ImageBaseRef& child : TRY(GetAllChildren(node)))
        json["children"].push_back(TRY(DescribeNode(child, depth + 1)));
    return json;
}

Result<Json> Describe(const std::string& file, const Picture& picture) {
    Json json;
    json["url"] = file;
    json["format"] = ToJson(picture.format->GetFormatId());
    json["width"] = picture.texture->GetWidth();
    json["height"] = picture.texture->GetHeight();
    json["images"] = Json::array();
    for (const ImageBaseRef& image : TRY(GetImages(picture.texture, IMAGEHIERARCHY::IMAGE)))
        json["images"].push_back(TRY(DescribeNode(image, 1)));
    return json;
}

std::string Size(const Json& node) {
    return std::to_string(node["width"].get<Int>()) + " x " + std::to_string(node["height"].get<Int>());
}

/// Six digits are enough for a person.
std::string ValueText(const Json& value) {
    if (value.is_string())
        return value.get<std::string>();
    if (!value.is_number_float())
        return value.dump();
    char text[32];
    const auto end =
        std::to_chars(std::begin(text), std::end(text), value.get<double>(), std::chars_format::general, 6);
    return {text, end.ptr};
}

/// Metadata that the line of a node does not say already, as "dpi 72, subimageindex 0".
std::string MetadataText(const Json& metadata) {
    static constexpr std::string_view kShownElsewhere[] = {"type", "name", "alphaname", "colorprofile"};
    std::string text;
    const auto add = [&text](std::string_view key, const Json& value) {
        text += (text.empty() ? "" : ", ") + std::string(key) + " " + ValueText(value);
    };
    for (const auto& [id, value] : metadata.items()) {
        const std::string_view key = std::string_view(id).substr(kMetadataPrefix.size());
        if (std::ranges::find(kShownElsewhere, key) != std::end(kShownElsewhere))
            continue;
        if (!value.is_object()) {
            add(key, value);
            continue;
        }
        for (const auto& [inner, setting] : value.items())
            add(std::string_view(inner).substr(inner.rfind('.') + 1), setting);
    }
    return text;
}

void DrawNode(std::string& out, const Json& node, const std::string& indent, bool last) {
    std::string type = node["type"].get<std::string>();
    std::ranges::transform(type, type.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
    const std::string inner = indent + (last ? "   " : "│  ");
    const auto& children = node["children"];

    out += indent + (last ? "└─ " : "├─ ") + type;
    if (const auto name = node["name"].get<std::string>(); !name.empty())
        out += " \"" + Printable(name) + "\"";
    out += "  " + Size(node);
    const auto format = node["pixelformat"].get<std::string>();
    constexpr std::string_view kFormatPrefix = "net.orvik.image.pixelformat.";
    out += "  " + (format.starts_with(kFormatPrefix) ? format.substr(kFormatPrefix.size()) : format);
    if (const auto profile = node["colorprofile"].get<std::string>(); !profile.empty())
        out += "  " + Printable(profile);
    out += '\n';
    if (const std::string metadata = MetadataText(node["metadata"]); !metadata.empty())
        out += inner + (children.empty() ? "   " : "│  ") + Printable(metadata) + "\n";
    for (size_t i = 0; i < children.size(); ++i)
        DrawNode(out, children[i], inner, i + 1 == children.size());
}

std::string Draw(const Json& picture, const FileFormat& format) {
    std::string out = Printable(picture["url"].get<std::string>()) + "  " + std::string(format->GetName().GetText()) +
                      "  " + Size(picture) + "\n";
    const auto& images = picture["images"];
    for (size_t i = 0; i < images.size(); ++i)
        DrawNode(out, images[i], "", i + 1 == images.size());
    return out;
}

}  // namespace

int RunInfo(const Console& console, const InfoOptions& options) {
    const auto flags = options.headersOnly ? MEDIASESSIONFLAGS::RUNONLYANALYZE : MEDIASESSIONFLAGS::NONE;
    int status = kDone;
    Json list = Json::array();
    for (const std::string& file : options.files) {
        Result<Picture> picture = LoadPicture(file, flags);
        Result<Json> description = picture ? Describe(file, *picture) : Result<Json>(picture.GetError());
        if (!description) {
            status = std::max(status, console.Fail(file, description.GetError()));
            if (status > kWrongUsage)
                return status;
        } else if (options.json) {
            list.push_back(std::move(*description));
        } else {
            status = std::max(status, console.Write(Draw(*description, picture->format)));
        }
    }
    if (!options.json || list.empty())
        return status;
    return std::max(status, console.Write(Serialize(options.files.size() == 1 ? list.front() : list)));
}

}  // namespace orvik::cli
