#include "orvik/datadictionary.h"

#include "orvik/errortypes.h"

namespace orvik {

Error MakeMissingKeyError(const Id& id, const SourceLocation& where) noexcept {
    return MakeError<IllegalArgumentErrorInterface>(errorid::kIllegalArgument, where,
                                                    FormatString("Key @ not found.", id));
}

Error MakeKeyTypeError(const Id& id, const SourceLocation& where) noexcept {
    return MakeError<IllegalArgumentErrorInterface>(errorid::kIllegalArgument, where,
                                                    FormatString("Key @ holds another type.", id));
}

Result<Ref<Object>> DataDictionary::Map::Clone() const {
    Ref<Map> copy = TRY(NewObj<Map>());
    TRY(copy->entries.CopyFrom(entries));
    return Ref<Object>(copy);
}

Result<DataDictionary::Map*> DataDictionary::MakeWritable() {
    if (!_map)
        _map = ValueRef<Map>(TRY(NewObj<Map>()));
    return _map.MakeWritable();
}

const Data* DataDictionary::Find(const Id& id) const noexcept { return _map ? _map->entries.Find(id) : nullptr; }

Result<Data> DataDictionary::GetData(const Id& id) const {
    if (const Data* data = Find(id))
        return *data;
    return MakeMissingKeyError(id, SourceLocation::current());
}

Result<void> DataDictionary::SetData(const Id& id, Data data) {
    Map* map = TRY(MakeWritable());
    return map->entries.Set(id, std::move(data));
}

Result<void> DataDictionary::Erase(const Id& id) {
    if (!Contains(id))
        return {};
    Map* map = TRY(MakeWritable());
    map->entries.Erase(id);
    return {};
}

Int DataDictionary::GetCount() const noexcept { return _map ? _map->entries.GetCount() : 0; }

Result<void> DataDictionary::Merge(const DataDictionary& other) {
    if (!_map) {
        _map = other._map;
        return {};
    }
    if (!other._map || _map == other._map)
        return {};
    Map* map = TRY(MakeWritable());
    for (const auto& entry : other._map->entries)
        TRY(map->entries.Set(entry.key, entry.value));
    return {};
}

bool DataDictionary::operator==(const DataDictionary& other) const noexcept {
    if (_map == other._map)
        return true;
    if (GetCount() != other.GetCount())
        return false;
    bool equal = true;
    ForEach([&](const Id& id, const Data& data) {
        const Data* theirs = other.Find(id);
        equal = equal && theirs && data == *theirs;
    });
    return equal;
}

String DataDictionary::ToString() const {
    String text("{");
    const char* separator = "";
    ForEach([&](const Id& id, const Data& data) {
        (void)text.Append(FormatString("@@: @", separator, id, data));  // a text for people: short when memory is
        separator = ", ";
    });
    (void)text.Append("}");
    return text;
}

}  // namespace orvik
