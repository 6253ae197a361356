#pragma once
/// @file
/// The export settings that the command line knows, and "key=value" texts as settings.

#include <span>
#include <string>
#include <vector>

#include "orvik/datadictionary.h"

namespace orvik::cli {

enum class SettingType : uint8_t { Bool, Int, Float, Id };  ///< a Float goes from 0 to 1

struct ExportSetting {
    Id key;
    SettingType type;
    std::string_view format;  ///< name of the one format that reads it; empty for all
    std::string_view fallback;
    std::span<const std::string_view> choices;  ///< the allowed values; empty for any
    std::string_view description;

    /// The last word of the key.
    std::string_view GetName() const;
    std::string_view GetTypeName() const;
    bool AppliesTo(std::string_view formatName) const { return format.empty() || format == formatName; }
};

/// Every known setting.
std::span<const ExportSetting> GetExportSettings();

/// Stores "key=value" in `settings`; the key is a full one or an unambiguous ending that starts after a dot.
/// Errors are illegal argument errors with a text for the user.
Result<void> ApplySetting(DataDictionary& settings, std::string_view formatName, std::string_view text);

}  // namespace orvik::cli
