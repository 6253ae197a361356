#include "json.h"

#include <map>

#include "picture.h"

namespace orvik::cli {

Json ToJson(const Data& data) {
    if (const Int* value = data.GetIf<Int>())
        return *value;
    if (const Float* value = data.GetIf<Float>())
        return *value;
    if (const Bool* value = data.GetIf<Bool>())
        return *value;
    if (const TimeValue* value = data.GetIf<TimeValue>())
        return value->IsNone() ? Json() : Json(value->GetSeconds());
    if (const ITYPE* value = data.GetIf<ITYPE>())
        return std::string(GetTypeName(*value));
    if (const ColorProfile* value = data.GetIf<ColorProfile>())
        return ToJson(value->ToString());
    if (const ImagePixelBlend* value = data.GetIf<ImagePixelBlend>())
        return ToJson((*value)->GetId());
    if (const DataDictionary* value = data.GetIf<DataDictionary>())
        return ToJson(*value);
    return ToJson(data.ToString());
}

Json ToJson(const DataDictionary& dictionary, std::string_view prefix) {
    std::map<std::string, Json> sorted;
    dictionary.ForEach([&](const Id& id, const Data& data) {
        if (id.GetText().starts_with(prefix))
            sorted.emplace(id.GetText(), ToJson(data));
    });
    Json object = Json::object();
    for (auto& [key, value] : sorted)
        object[key] = std::move(value);
    return object;
}

std::string Serialize(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace orvik::cli
