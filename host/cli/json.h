#pragma once
/// @file
/// Values of the framework as JSON.

#include <nlohmann/json.hpp>

#include "orvik/datadictionary.h"

namespace orvik::cli {

using Json = nlohmann::ordered_json;

/// Numbers, switches and texts as themselves, dictionaries as objects, anything else as its text.
Json ToJson(const Data& data);
/// The entries whose ids start with `prefix`, sorted by id.
Json ToJson(const DataDictionary& dictionary, std::string_view prefix = {});
inline Json ToJson(const String& text) { return std::string(text.GetText()); }
inline Json ToJson(const Id& id) { return std::string(id.GetText()); }

/// Indented, with a line end. Bytes that are no UTF-8 (names of files) become U+FFFD.
std::string Serialize(const Json& json);

}  // namespace orvik::cli
