#include "commands.h"
#include "formats.h"
#include "json.h"

#include "orvik/gfx_image_pixelformat.h"

namespace orvik::cli {

namespace {

/// Ids end in the word that says what they name.
std::string LastWord(const Id& id) { return std::string(id.GetText().substr(id.GetText().rfind('.') + 1)); }

Json Describe(const PixelFormat& format) {
    Json json;
    json["id"] = ToJson(format->GetId());
    json["shortname"] = ToJson(format->GetShortName());
    json["group"] = ToJson(format->GetPixelFormatGroup()->GetId());
    json["channels"] = Json::array();
    for (const ImageChannel& channel : format->GetChannels()) {
        Json entry;
        entry["type"] = LastWord(channel->GetChannelType()->GetId());
        entry["component"] = GetComponentName(channel->GetComponentType());
        entry["bits"] = channel->GetChannelBits().GetBits();
        json["channels"].push_back(std::move(entry));
    }
    json["bits"] = format->GetBitsPerPixel().GetBits();
    json["alpha"] = format->HasAlpha();
    json["colorspace"] = ToJson(format->GetColorSpace()->GetId());
    return json;
}

void Pad(std::string& line, size_t column) { line.resize(std::max(line.size() + 2, column), ' '); }

std::string Row(const PixelFormat& format) {
    std::string line(format->GetId().GetText());
    Pad(line, 48);
    line += format->GetShortName().GetText();
    Pad(line, 64);
    line += std::to_string(format->GetBitsPerPixel().GetBits()) + " bit";
    Pad(line, 74);
    line += LastWord(format->GetColorSpace()->GetId());
    Pad(line, 82);
    std::string channels;
    for (const ImageChannel& channel : format->GetChannels())
        channels += (channels.empty() ? "" : " ") + LastWord(channel->GetChannelType()->GetId());
    return line + channels + "\n";
}

}  // namespace

Result<PixelFormat> FindPixelFormat(std::string_view name) {
    const std::string wanted = ToLower(name);
    PixelFormat found;
    for (const PixelFormat& format : TRY(PixelFormats::GetAll())) {
        const std::string id = ToLower(format->GetId().GetText());
        if (id == wanted)
            return format;
        const bool isShort = id.starts_with(kPixelFormatPrefix) && id.substr(kPixelFormatPrefix.size()) == wanted;
        if (!isShort && ToLower(format->GetShortName().GetText()) != wanted)
            continue;
        if (found)
            return IllegalArgumentError("pixel format '@' could be @ or @", name, found->GetId(), format->GetId());
        found = format;
    }
    if (found)
        return found;
    if (const Result<Id> id = Id::Create(name)) {  // made at run time, so in no list
        if (PixelFormat format = PixelFormats::Get(*id))
            return format;
    }
    return IllegalArgumentError("there is no pixel format '@'; orvik pixelformats lists them", name);
}

int RunPixelFormats(const Console& console, bool json) {
    const auto formats = PixelFormats::GetAll();
    if (!formats)
        return console.Fail("pixelformats", formats.GetError());
    if (formats->IsEmpty())
        return console.Fail("pixelformats", UnresolvedError("no pixel formats are registered"));
    std::string table;
    Json list = Json::array();
    for (const PixelFormat& format : *formats) {
        if (json)
            list.push_back(Describe(format));
        else
            table += Row(format);
    }
    return console.Write(json ? Serialize(list) : table);
}

}  // namespace orvik::cli
