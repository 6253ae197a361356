#include <algorithm>
#include <cctype>

#include "commands.h"
#include "exportsettings.h"
#include "formats.h"
#include "json.h"

namespace orvik::cli {

namespace {

Json DescribeSettings(std::string_view formatName) {
    Json list = Json::array();
    for (const ExportSetting& setting : GetExportSettings()) {
        if (!setting.AppliesTo(formatName))
            continue;
        Json json;
        json["key"] = ToJson(setting.key);
        json["name"] = std::string(setting.GetName());
        json["type"] = std::string(setting.GetTypeName());
        json["default"] = setting.fallback.empty() ? Json() : Json(std::string(setting.fallback));
        json["values"] = Json::array();
        for (const std::string_view choice : setting.choices)
            json["values"].push_back(std::string(choice));
        json["description"] = std::string(setting.description);
        list.push_back(std::move(json));
    }
    return list;
}

/// A number that stands for "no limit" becomes null.
Json Limit(Int value) { return value >= 0x7FFFFFFF ? Json() : Json(value); }

Json DescribeReading(const MediaSessionFileFormatHandler& handler) {
    const auto importer = ClassRef(handler->GetImporterClass()).Create<MediaInputInterface>();
    if (!importer)
        return nullptr;
    Json json;
    json["image"] = (*importer)->Get(mediacapability::kInputSupportsImage, false);
    json["video"] = (*importer)->Get(mediacapability::kInputSupportsVideo, false);
    json["audio"] = (*importer)->Get(mediacapability::kInputSupportsAudio, false);
    return json;
}

Json DescribeWriting(const MediaSessionFileFormatHandler& handler, std::string_view formatName) {
    const auto exporter = ClassRef(handler->GetExporterClass()).Create<MediaOutputUrlInterface>();
    if (!exporter)
        return nullptr;
    const auto& output = *exporter;
    Json json;
    json["image"] = output->Get(mediacapability::kOutputSupportsImage, false);
    json["video"] = output->Get(mediacapability::kOutputSupportsVideo, false);
    json["audio"] = output->Get(mediacapability::kOutputSupportsAudio, false);
    json["bitdepths"] = Json::array();
    for (const Int depth : output->Get(mediacapability::kOutputBitDepthsImage, Block<const Int>()))
        json["bitdepths"].push_back(depth);
    json["alphas"] = Limit(output->Get(mediacapability::kOutputMaximalAlphaChannels, 0));
    json["layers"] = output->Get(mediacapability::kOutputMaximalLayerResolution, 0) > 0;
    json["colorprofile"] = output->Get(mediacapability::kOutputEmbedColorProfile, false);
    json["maximalresolution"] = Limit(output->Get(mediacapability::kOutputMaximalImageResolution, 0));
    json["settings"] = DescribeSettings(formatName);
    return json;
}

Json DescribeFormats() {
    Json list = Json::array();
    for (const Registry::Entry& entry : Registry::GetEntries(kFileFormatHandlerRegistry)) {
        const auto handler = Cast<MediaSessionFileFormatHandlerInterface>(entry.object);
        const FileFormat format = handler->GetFileFormat();
        if (!format)
            continue;
        const String name = format->GetName();
        Json json;
        json["id"] = ToJson(format->GetFormatId());
        json["name"] = ToJson(name);
        json["suffixes"] = Json::array();
        for (const std::string_view suffix : format->GetSuffixes())
            json["suffixes"].push_back(std::string(suffix));
        json["read"] = DescribeReading(handler);
        json["write"] = DescribeWriting(handler, name.GetText());
        list.push_back(std::move(json));
    }
    return list;
}

std::string Kinds(const Json& capabilities) {
    if (capabilities.is_null())
        return "-";
    std::string text;
    for (const char* kind : {"image", "video", "audio"}) {
        if (capabilities[kind].get<bool>())
            text += (text.empty() ? "" : ", ") + std::string(kind);
    }
    return text.empty() ? "-" : text;
}

/// What a written file can hold, as "8, 16 bit; 1 alpha; colour profile".
std::string Holds(const Json& write) {
    std::string text;
    const auto add = [&text](const std::string& item) { text += (text.empty() ? "" : "; ") + item; };
    std::string depths;
    for (const Json& depth : write["bitdepths"])
        depths += (depths.empty() ? "" : ", ") + depth.dump();
    if (!depths.empty())
        add(depths + " bit");
    if (write["alphas"].is_null())
        add("any number of alphas");
    else if (const Int alphas = write["alphas"].get<Int>(); alphas > 0)
        add(std::to_string(alphas) + (alphas == 1 ? " alpha" : " alphas"));
    if (write["layers"].get<bool>())
        add("layers");
    if (write["colorprofile"].get<bool>())
        add("colour profile");
    if (!write["maximalresolution"].is_null())
        add("up to " + write["maximalresolution"].dump() + " pixels a side");
    return text;
}

std::string Table(const Json& formats) {
    std::string out;
    for (const Json& format : formats) {
        std::string suffixes;
        for (const Json& suffix : format["suffixes"])
            suffixes += (suffixes.empty() ? "." : " .") + suffix.get<std::string>();
        out += format["name"].get<std::string>() + "  (" + suffixes + ")\n  reads   " + Kinds(format["read"]) +
               "\n  writes  " + Kinds(format["write"]);
        if (format["write"].is_null()) {
            out += '\n';
            continue;
        }
        out += ": " + Holds(format["write"]) + "\n";
        for (const Json& setting : format["write"]["settings"]) {
            std::string values;
            for (const Json& value : setting["values"])
                values += (values.empty() ? "" : "|") + value.get<std::string>();
            out += "  --set " + setting["name"].get<std::string>() + "=" +
                   (values.empty() ? setting["type"].get<std::string>() : values) + "  " +
                   setting["description"].get<std::string>() +
                   (setting["default"].is_null() ? "" : "; default " + setting["default"].get<std::string>()) + "\n";
        }
    }
    return out;
}

}  // namespace

std::string ToLower(std::string_view asciiText) {
    std::string lower(asciiText);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

MediaSessionFileFormatHandler FindFormat(std::string_view name) {
    static constexpr std::pair<std::string_view, std::string_view> kSecondSuffixes[] = {
        {"tiff", "tif"}, {"pct", "pict"}, {"aif", "aiff"}, {"cur", "ico"}};
    const std::string lower = ToLower(name.starts_with('.') ? name.substr(1) : name);
    if (lower.empty())
        return {};
    if (auto handler = FindHandlerBySuffix(lower))
        return handler;
    for (const Registry::Entry& entry : Registry::GetEntries(kFileFormatHandlerRegistry)) {
        auto handler = Cast<MediaSessionFileFormatHandlerInterface>(entry.object);
        const FileFormat format = handler->GetFileFormat();
        if (format->GetName().GetText() == lower || format->GetFormatId().GetText() == lower)
            return handler;
    }
    for (const auto& [second, first] : kSecondSuffixes) {
        if (second == lower)
            return FindHandlerBySuffix(first);
    }
    return {};
}

int RunFormats(const Console& console, bool json) {
    const Json formats = DescribeFormats();
    if (formats.empty())
        return console.Fail("formats", UnresolvedError("no file formats are registered"));
    return console.Write(json ? Serialize(formats) : Table(formats));
}

}  // namespace orvik::cli
