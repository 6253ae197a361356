#include "exportsettings.h"

#include <algorithm>
#include <charconv>

#include "orvik/mediasession_output.h"

namespace orvik::cli {

namespace {

constexpr std::string_view kBmpHeaders[] = {"V3", "V4", "V5"};
constexpr std::string_view kSwitch[] = {"true", "false"};

const ExportSetting kSettings[] = {
    {mediaexport::kQuality.GetId(), SettingType::Float, "jpg", "0.8", {}, "from 0, small, to 1, fine"},
    {mediaexport::kDisableSrgbConversion.GetId(), SettingType::Bool, "bmp", "false", kSwitch,
     "V3 and V4, which hold no profile: leave the pixels in their own instead of sRGB"},
    {mediaexport::kDisableSrgbConversion.GetId(), SettingType::Bool, "hdr", "false", kSwitch,
     "leave the pixels in their own profile instead of linear RGB"},
    {mediaexport::kDisableSrgbConversion.GetId(), SettingType::Bool, "tga", "false", kSwitch,
     "leave the pixels in their own profile instead of sRGB"},
    {mediaexport::kBmpInfoHeader.GetId(), SettingType::Id, "bmp",
     "V4 with alpha, V5 with a profile other than sRGB, else V3", kBmpHeaders,
     "generation of the header; V4 and V5 keep alpha, V5 keeps the colour profile"},
    {mediaexport::kJpgBaseline.GetId(), SettingType::Bool, "jpg", "false", kSwitch,
     "quantisation of 8 bits also where a low quality asks for more"},
    {mediaexport::kPngInterlaced.GetId(), SettingType::Bool, "png", "false", kSwitch, "in seven passes"},
};

bool IsEndingOf(std::string_view ending, std::string_view key) {
    return key == ending ||
           (key.size() > ending.size() && key.ends_with(ending) && key[key.size() - ending.size() - 1] == '.');
}

Result<const ExportSetting*> FindSetting(std::string_view key, std::string_view formatName) {
    const ExportSetting* found = nullptr;
    std::string elsewhere;
    for (const ExportSetting& setting : kSettings) {
        if (key.empty() || !IsEndingOf(key, setting.key.GetText()))
            continue;
        if (!setting.AppliesTo(formatName)) {
            elsewhere += (elsewhere.empty() ? "" : ", ") + std::string(setting.format);
            continue;
        }
        if (found)
            return IllegalArgumentError("setting @ could mean @ or @", key, found->key, setting.key);
        found = &setting;
    }
    if (!found && !elsewhere.empty())
        return IllegalArgumentError("setting @ belongs to format @, not to @", key, elsewhere, formatName);
    if (!found)
        return IllegalArgumentError("there is no setting '@'; orvik formats lists them", key);
    return found;
}

/// The whole text as a number.
template <class T>
Result<T> ParseNumber(std::string_view name, std::string_view text) {
    T value{};
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc() || end != text.data() + text.size())
        return IllegalArgumentError("setting @ needs a number, not '@'", name, text);
    return value;
}

Result<Data> ParseValue(const ExportSetting& setting, std::string_view text) {
    if (!setting.choices.empty() && std::ranges::find(setting.choices, text) == setting.choices.end()) {
        std::string all;
        for (const std::string_view choice : setting.choices)
            all += (all.empty() ? "" : ", ") + std::string(choice);
        return IllegalArgumentError("setting @ is one of @, not '@'", setting.GetName(), all, text);
    }
    switch (setting.type) {
        case SettingType::Bool:
            return Data(text == "true");
        case SettingType::Int:
            return Data(TRY(ParseNumber<Int>(setting.GetName(), text)));
        case SettingType::Float:
            if (const Float value = TRY(ParseNumber<Float>(setting.GetName(), text)); value >= 0 && value <= 1)
                return Data(value);
            return IllegalArgumentError("setting @ goes from 0 to 1, not to @", setting.GetName(), text);
        case SettingType::Id:
            return Data(TRY(Id::Create(text)));
    }
    return UnexpectedError();
}

}  // namespace

std::string_view ExportSetting::GetName() const {
    const std::string_view text = key.GetText();
    return text.substr(text.rfind('.') + 1);
}

std::string_view ExportSetting::GetTypeName() const {
    constexpr std::string_view kNames[] = {"bool", "int", "float", "id"};
    return kNames[static_cast<size_t>(type)];
}

std::span<const ExportSetting> GetExportSettings() { return kSettings; }

Result<void> ApplySetting(DataDictionary& settings, std::string_view formatName, std::string_view text) {
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        return IllegalArgumentError("setting @ has no value; write key=value", text);
    const ExportSetting* setting = TRY(FindSetting(text.substr(0, equals), formatName));
    return settings.SetData(setting->key, TRY(ParseValue(*setting, text.substr(equals + 1))));
}

}  // namespace orvik::cli
