#pragma once
/// @file
/// Published entities: classes, objects and registries, found by id.
///
/// A module publishes through the `Publisher` that its start function gets; unloading undoes the records in reverse
/// order. Lookups of what is not there answer with unresolved errors, never with a crash.

#include "orvik/basearray.h"
#include "orvik/datatype.h"
#include "orvik/errortypes.h"
#include "orvik/objectbase.h"

namespace orvik {

using CreateFunction = Result<ObjectRef> (*)();

/// One published class: id and creation function.
class ORVIK_API PublishedClass : public Object {
public:
    PublishedClass(const Id& id, CreateFunction create) : _record(id), _create(create) {}
    const Id& GetId() const { return _record.GetId(); }
    const ClassRecord& GetRecord() const { return _record; }
    Result<ObjectRef> Create() const;

private:
    ClassRecord _record;
    CreateFunction _create;
};

/// A reference to a published class by id, resolved at each use.
class ORVIK_API ClassRef {
public:
    ClassRef() = default;
    explicit ClassRef(const Id& id) : _id(id) {}
    const Id& GetId() const { return _id; }
    bool IsEmpty() const { return _id.IsEmpty(); }
    /// @return a new object: the null pointer error for an empty reference, the unresolved error for an unknown id
    Result<ObjectRef> Create() const;
    /// The same seen through interface I; unexpected error if the class lacks it.
    template <class I>
    Result<Ref<I>> Create() const {
        ObjectRef object = TRY(Create());
        Ref<I> seen = Cast<I>(object);
        if (!seen)
            return UnexpectedError("Class @ does not implement @.", _id, I::kReferenceName);
        return seen;
    }
    friend bool operator==(const ClassRef&, const ClassRef&) = default;
    String ToString() const { return FormatString("@", _id); }

private:
    Id _id;
};

/// @return the published object of an id, or the unresolved reference
ORVIK_API ObjectRef FindPublishedObject(const Id& id);

/// The published object of an id seen through interface I. The reference answers unresolved errors when there is none.
template <class I>
Ref<I> FindPublished(const Id& id) {
    Ref<I> seen = Cast<I>(FindPublishedObject(id));
    return seen ? seen : Ref<I>::Unresolved();
}

/// A named, iterable map of published objects, in the order of insertion.
class ORVIK_API Registry {
public:
    struct Entry {
        Id id;
        ObjectRef object;
    };
    /// All entries as they stand now; an unknown registry is empty.
    static Result<BaseArray<Entry>> CopyEntries(const Id& registry);
    /// The same without an error: empty also when memory is short.
    static BaseArray<Entry> GetEntries(const Id& registry);
    /// @return the entry's object, or the unresolved reference
    static ObjectRef Find(const Id& registry, const Id& entry);
    template <class I>
    static Ref<I> Find(const Id& registry, const Id& entry) {
        Ref<I> seen = Cast<I>(Find(registry, entry));
        return seen ? seen : Ref<I>::Unresolved();
    }
    /// Changes whenever an entry of any registry comes or goes.
    static Int GetGeneration() noexcept;
    Registry() = delete;
};

/// Publishes for one owner and can undo it all. Ids must be new: publishing one twice is an illegal argument error
/// "@ is already published.".
class ORVIK_API Publisher {
public:
    Publisher() = default;
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;
    ~Publisher() { UndoAll(); }

    Result<void> PublishClass(const Id& id, CreateFunction create);
    /// Publishes T, which is default constructible, under `id`.
    template <class T>
    Result<void> PublishClass(const Id& id) {
        return PublishClass(id, []() -> Result<ObjectRef> { return ObjectRef(TRY(NewObj<T>())); });
    }
    Result<void> PublishObject(const Id& id, ObjectRef object);
    /// Appends to a registry, which begins to exist with its first entry.
    Result<void> AddToRegistry(const Id& registry, const Id& entry, ObjectRef object);
    /// Takes everything back, last first.
    void UndoAll() noexcept;
    Int GetRecordCount() const noexcept { return _records.GetCount(); }
    /// For tests: called with kind ("class", "object", "entry") and id of each record that is undone, in order.
    using UndoObserver = void (*)(const char* kind, const Id& id);
    static void SetUndoObserver(UndoObserver observer) noexcept;

private:
    enum class Kind : uint8_t { Class, Object, Entry };
    struct Record {
        Kind kind;
        Id id;
        Id registry;
    };
    BaseArray<Record> _records;
};

}  // namespace orvik
