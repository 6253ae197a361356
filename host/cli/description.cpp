#include "description.h"

#include <algorithm>
#include <charconv>

#include "formats.h"

#include "orvik/exif.h"

namespace orvik::cli {

namespace {

constexpr int kMaxDepth = 256;

/// The value under an image key, or null.
Json FindKey(const Json& node, std::string_view key) {
    const auto& metadata = node["metadata"];
    const auto found = metadata.find(std::string(kImageKeyPrefix) + std::string(key));
    return found == metadata.end() ? Json() : *found;
}

/// The Exif data of the file by name of the tag; null without any.
Result<Json> DescribeExif(const ImageTextureRef& texture) {
    const ExifRef exif = texture->Get(image::kExifData, ExifRef());
    if (!exif)
        return Json();
    const DataDictionary dictionary = TRY(exif->GetExifDictionary());
    return ToJson(dictionary);
}

/// The end of an id: "multiply" of "net.orvik.render.blendmode.multiply".
std::string LastWord(const std::string& id) { return id.substr(id.rfind('.') + 1); }

}  // namespace

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
    json["metadata"] = ToJson(node->GetDictionary(), kImageKeyPrefix);
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
        json["images"].push_back(TRY(DescribeNode(image)));
    Json exif = TRY(DescribeExif(picture.texture));
    if (!exif.is_null())
        json["exif"] = std::move(exif);
    return json;
}

bool HasPixels(const Json& node) { return node["width"].get<Int>() > 0 && node["height"].get<Int>() > 0; }

bool IsHidden(const Json& node) {
    const Json enabled = FindKey(node, "layer.enabled");
    return enabled.is_boolean() && !enabled.get<bool>();
}

std::vector<std::string> LookWords(const Json& node) {
    std::vector<std::string> words;
    if (const Json blendMode = FindKey(node, "layer.blendmode"); blendMode.is_string())
        words.push_back(LastWord(blendMode.get<std::string>()));
    if (const Json opacity = FindKey(node, "layer.opacity"); opacity.is_number() && opacity.get<double>() != 1.0)
        words.push_back(ValueText(opacity.get<double>() * 100) + " %");
    if (IsHidden(node))
        words.emplace_back("hidden");
    return words;
}

std::string TypeText(const Json& node) { return ToLower(node["type"].get<std::string>()); }

std::string SizeText(const Json& node) {
    return std::to_string(node["width"].get<Int>()) + " x " + std::to_string(node["height"].get<Int>());
}

std::string FormatText(const Json& node) {
    const auto format = node["pixelformat"].get<std::string>();
    return format.starts_with(kPixelFormatPrefix) ? format.substr(kPixelFormatPrefix.size()) : format;
}

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

std::vector<std::pair<std::string, std::string>> OtherMetadata(const Json& node) {
    static constexpr std::string_view kShownElsewhere[] = {
        "type", "name", "alphaname", "colorprofile", "layer.opacity", "layer.blendmode", "layer.enabled"};
    std::vector<std::pair<std::string, std::string>> rows;
    for (const auto& [id, value] : node["metadata"].items()) {
        const std::string key = id.substr(kImageKeyPrefix.size());
        if (std::ranges::find(kShownElsewhere, key) != std::end(kShownElsewhere))
            continue;
        if (!value.is_object()) {
            rows.emplace_back(key, ValueText(value));
            continue;
        }
        for (const auto& [inner, setting] : value.items())
            rows.emplace_back(LastWord(inner), ValueText(setting));
    }
    return rows;
}

}  // namespace orvik::cli
