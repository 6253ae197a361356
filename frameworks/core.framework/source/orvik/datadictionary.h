#pragma once
/// @file
/// Typed keys and `DataDictionary`, the map from ids to values that carries metadata and settings.

#include "orvik/datatype.h"

namespace orvik {

/// An id together with the type of the value stored under it.
template <class T>
class Key {
public:
    using ValueType = T;
    template <size_t N>
    consteval Key(const char (&literal)[N]) : _id(literal) {}  // NOLINT(google-explicit-constructor)
    constexpr const Id& GetId() const { return _id; }

private:
    Id _id;
};

/// "Key @ not found." and "Key @ holds another type." as illegal argument errors.
ORVIK_API Error MakeMissingKeyError(const Id& id, const SourceLocation& where) noexcept;
ORVIK_API Error MakeKeyTypeError(const Id& id, const SourceLocation& where) noexcept;

/// Gets and sets by typed key on anything that has `GetData(id)` and `SetData(id, data)`.
template <class T, class D>
Result<T> GetByKey(const D& dictionary, const Key<T>& key, const SourceLocation& where) {
    const Data data = TRY(dictionary.GetData(key.GetId()));
    if (const T* value = data.template GetIf<T>())
        return *value;
    return MakeKeyTypeError(key.GetId(), where);
}

/// A copy-on-write map from ids to values. Copies share until one is written.
class ORVIK_API DataDictionary {
public:
    DataDictionary() = default;

    /// @return the value, or an error when the key is absent
    Result<Data> GetData(const Id& id) const;
    Result<void> SetData(const Id& id, Data data);
    bool Contains(const Id& id) const noexcept { return Find(id) != nullptr; }
    const Data* Find(const Id& id) const noexcept;
    Result<void> Erase(const Id& id);
    Int GetCount() const noexcept;

    template <class T>
    Result<T> Get(const Key<T>& key, SourceLocation where = SourceLocation::current()) const {
        return GetByKey(*this, key, where);
    }
    /// The default also stands in for a value of another type.
    template <class T>
    T Get(const Key<T>& key, std::type_identity_t<T> fallback) const {
        const Data* data = Find(key.GetId());
        const T* value = data ? data->GetIf<T>() : nullptr;
        return value ? *value : fallback;
    }
    template <class T>
    Result<void> Set(const Key<T>& key, std::type_identity_t<T> value) {
        return SetData(key.GetId(), TRY(Data::Create<T>(std::move(value))));
    }
    /// Copies every entry of `other` into this one.
    Result<void> Merge(const DataDictionary& other);

    /// Calls `visit(id, data)` for each entry in the map's order.
    template <class F>
    void ForEach(F&& visit) const {
        if (!_map)
            return;
        for (const auto& entry : _map.GetPointer()->entries)
            visit(entry.key, entry.value);
    }
    bool operator==(const DataDictionary& other) const noexcept;
    String ToString() const;

private:
    struct Map : public Object {
        HashMap<Id, Data> entries;
        Result<Ref<Object>> Clone() const override;
    };
    Result<Map*> MakeWritable();

    ValueRef<Map> _map;
};

template <>
inline constexpr const char* kDataTypeName<DataDictionary> = "orvik::DataDictionary";

}  // namespace orvik
