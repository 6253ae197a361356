#include "report.h"

#include <utf8.h>

#include "console.h"
#include "outputtarget.h"
#include "thumbnail.h"

namespace orvik::cli {

namespace {

constexpr std::string_view kHead = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>@TITLE@</title>
<style>
:root { color-scheme: light dark; --line: #8884; --soft: #8882; --check: #bbb; --ground: #fff; }
@media (prefers-color-scheme: dark) { :root { --check: #555; --ground: #333; } }
body { font: 15px/1.45 system-ui, sans-serif; max-width: 68rem; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.3rem; margin: 2rem 0 0.2rem; overflow-wrap: anywhere; }
p.about { margin: 0 0 1rem; opacity: 0.75; }
ul { list-style: none; margin: 0; padding: 0; }
ul ul { margin-left: 1.2rem; padding-left: 1.2rem; border-left: 2px solid var(--line); }
.node { display: flex; flex-wrap: wrap; gap: 1rem; padding: 0.7rem 0; }
.thumb { flex: 0 0 192px; min-height: 2.5rem; display: flex; align-items: flex-start; }
.thumb img { max-width: 192px; outline: 1px solid var(--line); background:
  repeating-conic-gradient(var(--check) 0 25%, var(--ground) 0 50%) 0 0 / 16px 16px; }
.thumb.hidden img { opacity: 0.45; }
.thumb p { margin: 0; font-size: 0.85rem; opacity: 0.75; overflow-wrap: anywhere; }
.text { flex: 1 1 20rem; min-width: 0; }
.name { font-weight: 600; overflow-wrap: anywhere; }
.type, .look { font-size: 0.8rem; border-radius: 3px; padding: 0.05rem 0.4rem; background: var(--soft); }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 0 1rem; margin: 0.3rem 0 0; font-size: 0.9rem; }
dt { opacity: 0.7; }
dd { margin: 0; overflow-wrap: anywhere; }
summary { cursor: pointer; margin-top: 0.3rem; font-size: 0.9rem; opacity: 0.75; }
</style>
</head>
<body>
)html";
constexpr std::string_view kTail = "</body>\n</html>\n";

/// Names come from files and may hold mark-up, broken UTF-8 and control characters.
std::string Escape(const std::string& text) {
    std::string out;
    for (const char c : Printable(utf8::replace_invalid(text))) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

/// RFC 4648, with padding.
std::string ToBase64(Block<const std::byte> bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? std::to_integer<uint32_t>(bytes[i + k]) : 0);
        for (size_t k = 0; k < 4; ++k)
            out += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

std::string Row(std::string_view term, const std::string& value) {
    return "<dt>" + Escape(std::string(term)) + "</dt><dd>" + Escape(value) + "</dd>";
}

std::string LookMarks(const Json& node) {
    std::string marks;
    for (const std::string& word : LookWords(node))
        marks += " <span class=\"look\">" + Escape(word) + "</span>";
    return marks;
}

std::string TextPart(const Json& node) {
    std::string html = "<div class=\"text\"><span class=\"name\">" + Escape(node["name"].get<std::string>()) +
                       "</span> <span class=\"type\">" + Escape(TypeText(node)) + "</span>" + LookMarks(node) + "<dl>";
    if (HasPixels(node))
        html += Row("size", SizeText(node)) + Row("pixel format", FormatText(node));
    if (const auto profile = node["colorprofile"].get<std::string>(); !profile.empty())
        html += Row("colour profile", profile);
    html += "</dl>";
    if (const auto rows = OtherMetadata(node); !rows.empty()) {
        html += "<details><summary>keys</summary><dl>";
        for (const auto& [key, value] : rows)
            html += Row(key, value);
        html += "</dl></details>";
    }
    return html + "</div>";
}

/// @param subject  alternative text of the picture
Result<std::string> ThumbnailPart(const Json& description, const ImageBaseRef& node, const LayerSet& layers,
                                  const std::string& subject) {
    const Result<BaseArray<std::byte>> png = MakeThumbnail(node, layers);
    if (!png &&
        (png.GetError()->IsKindOf(errorid::kOutOfMemory) || png.GetError()->IsKindOf(errorid::kThreadCancelled)))
        return png.GetError();
    std::string html = IsHidden(description) ? "<div class=\"thumb hidden\">" : "<div class=\"thumb\">";
    if (!png)
        html += "<p>" + Escape(std::string(png.GetError()->ToString().GetText())) + "</p>";
    else if (png->GetCount() == 0)
        html += "<p>no pixels</p>";
    else
        html += "<img alt=\"" + Escape(subject) + "\" src=\"data:image/png;base64," + ToBase64(png->ToBlock()) + "\">";
    return html + "</div>";
}

/// Everything below the node composited; null for a node without layers.
Result<LayerSet> CompositeOf(const ImageBaseRef& node) {
    LayerSet layers;
    if (node->GetFirstChild(static_cast<Int>(IMAGEHIERARCHY::LAYER)))
        TRY(layers.SetMode(LAYERSETMODE::LAYERS));
    return layers;
}

Result<void> AddNode(std::string& html, const Json& description, const ImageBaseRef& node) {
    const std::string subject = TypeText(description) + " " + description["name"].get<std::string>();
    html += "<li><div class=\"node\">";
    html += TRY(ThumbnailPart(description, node, LayerSet(), subject));
    if (description["type"] == "IMAGE") {
        if (const LayerSet layers = TRY(CompositeOf(node)); layers)
            html += TRY(ThumbnailPart(description, node, layers, subject + ", its layers composited"));
    }
    html += TextPart(description) + "</div>";
    const auto& children = description["children"];
    if (!children.empty()) {
        html += "\n<ul>\n";
        const auto nodes = TRY(GetAllChildren(node));
        for (Int i = 0; i < nodes.GetCount(); ++i)
            TRY(AddNode(html, children[static_cast<size_t>(i)], nodes[i]));
        html += "</ul>\n";
    }
    html += "</li>\n";
    return {};
}

}  // namespace

Result<void> Report::Add(const Json& description, const Picture& picture) {
    std::string html = "<h1>" + Escape(description["url"].get<std::string>()) + "</h1>\n<p class=\"about\">" +
                       Escape(std::string(picture.format->GetName().GetText())) +
                       (HasPixels(description) ? ", " + SizeText(description) : "") + "</p>\n<ul>\n";
    const auto images = TRY(GetImages(picture.texture, IMAGEHIERARCHY::IMAGE));
    for (Int i = 0; i < images.GetCount(); ++i)
        TRY(AddNode(html, description["images"][static_cast<size_t>(i)], images[i]));
    _body += html + "</ul>\n";
    ++_count;
    return {};
}

Result<void> Report::Write(const std::string& output) const {
    constexpr std::string_view kMark = "@TITLE@";
    std::string page(kHead);
    page.replace(page.find(kMark), kMark.size(), _count == 1 ? "1 picture" : std::to_string(_count) + " pictures");
    page += _body;
    page += kTail;
    OutputTarget target = TRY(OutputTarget::Open(output));
    TRY(target.Write(std::as_bytes(std::span(page))));
    return target.Commit();
}

}  // namespace orvik::cli
