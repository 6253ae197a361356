#include <algorithm>

#include "commands.h"
#include "description.h"
#include "report.h"

namespace orvik::cli {

namespace {

/// "multiply 50 %", "hidden": what a layer does to those below it.
std::string LookText(const Json& node) {
    const LayerLook look = GetLayerLook(node);
    std::string text;
    const auto add = [&text](const std::string& word) { text += (text.empty() ? "  " : ", ") + word; };
    if (!look.blendMode.empty())
        add(look.blendMode);
    if (look.opacity != 1.0)
        add(ValueText(look.opacity * 100) + " %");
    if (look.hidden)
        add("hidden");
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
    out += "  " + SizeText(node) + "  " + FormatText(node);
    if (const auto profile = node["colorprofile"].get<std::string>(); !profile.empty())
        out += "  " + Printable(profile);
    out += Printable(LookText(node)) + "\n";
    if (const std::string metadata = MetadataText(node); !metadata.empty())
        out += inner + (children.empty() ? "   " : "│  ") + Printable(metadata) + "\n";
    for (size_t i = 0; i < children.size(); ++i)
        DrawNode(out, children[i], inner, i + 1 == children.size());
}

std::string Draw(const Json& picture, const FileFormat& format) {
    std::string out = Printable(picture["url"].get<std::string>()) + "  " + std::string(format->GetName().GetText()) +
                      "  " + SizeText(picture) + "\n";
    const auto& images = picture["images"];
    for (size_t i = 0; i < images.size(); ++i)
        DrawNode(out, images[i], "", i + 1 == images.size());
    return out;
}

/// Collects what the files hold and says it in the form that was asked for.
class InfoOutput {
public:
    InfoOutput(const Console& console, const InfoOptions& options) : _console(console), _options(options) {}

    Result<int> Add(const std::string& file, const Picture& picture) {
        Json description = TRY(Describe(file, picture));
        if (!_options.report.empty()) {
            TRY(_report.Add(description, picture));
            return kDone;
        }
        if (!_options.json)
            return _console.Write(Draw(description, picture.format));
        _list.push_back(std::move(description));
        return kDone;
    }

    int Finish() {
        if (!_options.report.empty()) {
            const Result<void> written = _report.Write(_options.report);
            return written ? kDone : _console.Fail(_options.report, written.GetError());
        }
        if (!_options.json || _list.empty())
            return kDone;
        return _console.Write(Serialize(_options.files.size() == 1 ? _list.front() : _list));
    }

private:
    const Console& _console;
    const InfoOptions& _options;
    Json _list = Json::array();
    Report _report;
};

}  // namespace

int RunInfo(const Console& console, const InfoOptions& options) {
    const auto flags = options.headersOnly ? MEDIASESSIONFLAGS::RUNONLYANALYZE : MEDIASESSIONFLAGS::NONE;
    InfoOutput output(console, options);
    int status = kDone;
    for (const std::string& file : options.files) {
        const Result<Picture> picture = LoadPicture(file, flags);
        const Result<int> added = picture ? output.Add(file, *picture) : Result<int>(picture.GetError());
        status = std::max(status, added ? *added : console.Fail(file, added.GetError()));
        if (status > kWrongUsage)
            return status;
    }
    return std::max(status, output.Finish());
}

}  // namespace orvik::cli
