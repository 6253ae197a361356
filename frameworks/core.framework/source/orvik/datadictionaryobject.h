#pragma once
/// @file
/// A counted object with a dictionary: the root of streams, formats, images and converters.

#include "orvik/datadictionary.h"

namespace orvik {

/// `GetData` and `SetData` can be overridden; capabilities are answered that way without being stored.
class DataDictionaryObjectInterface : public virtual Object {
    ORVIK_INTERFACE(DataDictionaryObjectInterface, "net.orvik.interface.datadictionaryobject");

public:
    virtual Result<Data> GetData(const Id& id) const {
        if (IsAbsent())
            return Unbound();
        return _dictionary.GetData(id);
    }
    virtual Result<void> SetData(const Id& id, Data data) {
        if (IsAbsent())
            return Unbound();
        return _dictionary.SetData(id, std::move(data));
    }

    template <class T>
    Result<T> Get(const Key<T>& key, SourceLocation where = SourceLocation::current()) const {
        return GetByKey(*this, key, where);
    }
    template <class T>
    T Get(const Key<T>& key, std::type_identity_t<T> fallback) const {
        Result<Data> data = GetData(key.GetId());
        const T* value = data ? data.GetValue().template GetIf<T>() : nullptr;
        return value ? *value : std::move(fallback);
    }
    template <class T>
    Result<void> Set(const Key<T>& key, std::type_identity_t<T> value) {
        return SetData(key.GetId(), TRY(Data::Create<T>(std::move(value))));
    }
    bool Has(const Id& id) const { return !GetData(id).HasError(); }
    /// The stored entries, without what `GetData` computes.
    const DataDictionary& GetDictionary() const { return _dictionary; }

protected:
    DataDictionary _dictionary;
};

}  // namespace orvik
