#include "orvik/registrybase.h"

#include <mutex>
#include <shared_mutex>

#include "orvik/hashmap.h"

namespace orvik {

namespace {

/// One registry: a map by id, and the order of insertion.
struct RegistryTable {
    BaseArray<Registry::Entry> entries;
    HashMap<Id, ObjectRef> byId;
};

/// Everything that is published in the process. Never destroyed, since publishers of static storage may outlive it.
struct Store {
    std::shared_mutex mutex;
    HashMap<Id, Ref<PublishedClass>> classes;
    HashMap<Id, ObjectRef> objects;
    HashMap<Id, RegistryTable> registries;
    Int generation = 0;
};

Store& GetStore() {
    static Immortal<Store> store;
    return *store;
}

std::atomic<Publisher::UndoObserver> g_undoObserver{nullptr};

Error AlreadyPublished(const Id& id) { return IllegalArgumentError("@ is already published.", id); }

/// Takes a value out of a map, so that it can be destroyed when the lock is no longer held.
template <class V>
V TakeOut(HashMap<Id, V>& map, const Id& id) noexcept {
    V taken;
    if (V* value = map.Find(id)) {
        taken = std::move(*value);
        map.Erase(id);
    }
    return taken;
}

}  // namespace

Result<ObjectRef> PublishedClass::Create() const {
    ObjectRef object = TRY(_create());
    if (!object)
        return UnexpectedError("Class @ made no object.", GetId());
    ObjectAccess::SetClass(*object, &_record);
    return object;
}

Result<ObjectRef> ClassRef::Create() const {
    if (_id.IsEmpty())
        return NullptrError("There is no class to create from.");
    Ref<PublishedClass> published;
    {
        Store& store = GetStore();
        const std::shared_lock lock(store.mutex);
        if (const Ref<PublishedClass>* found = store.classes.Find(_id))
            published = *found;
    }
    if (!published)
        return UnresolvedError("Class @ is not published.", _id);
    return published->Create();
}

ObjectRef FindPublishedObject(const Id& id) {
    Store& store = GetStore();
    const std::shared_lock lock(store.mutex);
    const ObjectRef* found = store.objects.Find(id);
    return found ? *found : ObjectRef::Unresolved();
}

Result<BaseArray<Registry::Entry>> Registry::CopyEntries(const Id& registry) {
    BaseArray<Entry> copy;
    Store& store = GetStore();
    const std::shared_lock lock(store.mutex);
    if (const RegistryTable* table = store.registries.Find(registry))
        TRY(copy.CopyFrom(table->entries));
    return copy;
}

BaseArray<Registry::Entry> Registry::GetEntries(const Id& registry) {
    Result<BaseArray<Entry>> entries = CopyEntries(registry);
    return entries ? std::move(entries).TakeValue() : BaseArray<Entry>();
}

ObjectRef Registry::Find(const Id& registry, const Id& entry) {
    Store& store = GetStore();
    const std::shared_lock lock(store.mutex);
    const RegistryTable* table = store.registries.Find(registry);
    const ObjectRef* found = table ? table->byId.Find(entry) : nullptr;
    return found ? *found : ObjectRef::Unresolved();
}

Int Registry::GetGeneration() noexcept {
    Store& store = GetStore();
    const std::shared_lock lock(store.mutex);
    return store.generation;
}

Result<void> Publisher::PublishClass(const Id& id, CreateFunction create) {
    if (id.IsEmpty() || !create)
        return IllegalArgumentError("A class needs an id and a creation function.");
    TRY(_records.Reserve(1));  // from here on only the store can fail
    Ref<PublishedClass> published = TRY(NewObj<PublishedClass>(id, create));
    {
        Store& store = GetStore();
        const std::unique_lock lock(store.mutex);
        if (store.classes.Contains(id))
            return AlreadyPublished(id);
        TRY(store.classes.Set(id, std::move(published)));
    }
    return _records.Append({Kind::Class, id, Id()});
}

Result<void> Publisher::PublishObject(const Id& id, ObjectRef object) {
    if (id.IsEmpty() || !object)
        return IllegalArgumentError("A published object needs an id and an object.");
    TRY(_records.Reserve(1));
    {
        Store& store = GetStore();
        const std::unique_lock lock(store.mutex);
        if (store.objects.Contains(id))
            return AlreadyPublished(id);
        TRY(store.objects.Set(id, std::move(object)));
    }
    return _records.Append({Kind::Object, id, Id()});
}

Result<void> Publisher::AddToRegistry(const Id& registry, const Id& entry, ObjectRef object) {
    if (registry.IsEmpty() || entry.IsEmpty() || !object)
        return IllegalArgumentError("A registry entry needs a registry, an id and an object.");
    TRY(_records.Reserve(1));
    // A registry can outlive the module that made it, and with it the literal of its name.
    const Id name = TRY(Id::Create(registry.GetText()));
    {
        Store& store = GetStore();
        const std::unique_lock lock(store.mutex);
        RegistryTable* table = TRY(store.registries.FindOrCreate(name));
        if (table->byId.Contains(entry))
            return AlreadyPublished(entry);
        TRY(table->entries.Reserve(1));
        TRY(table->byId.Set(entry, object));
        TRY(table->entries.Append({entry, std::move(object)}));
        ++store.generation;
    }
    return _records.Append({Kind::Entry, entry, name});
}

void Publisher::UndoAll() noexcept {
    static constexpr const char* kKindNames[] = {"class", "object", "entry"};
    Store& store = GetStore();
    while (!_records.IsEmpty()) {
        const Record record = std::move(_records.GetLast());
        _records.Pop();
        // What is taken out is destroyed after the lock: its destructor may look something up.
        Ref<PublishedClass> goneClass;
        ObjectRef goneObject;
        RegistryTable goneTable;
        {
            const std::unique_lock lock(store.mutex);
            switch (record.kind) {
                case Kind::Class:
                    goneClass = TakeOut(store.classes, record.id);
                    break;
                case Kind::Object:
                    goneObject = TakeOut(store.objects, record.id);
                    break;
                case Kind::Entry:
                    ++store.generation;
                    if (RegistryTable* table = store.registries.Find(record.registry)) {
                        goneObject = TakeOut(table->byId, record.id);
                        for (Int i = table->entries.GetCount() - 1; i >= 0; --i) {
                            if (table->entries[i].id == record.id)
                                table->entries.Erase(i);
                        }
                        if (table->entries.IsEmpty())
                            goneTable = TakeOut(store.registries, record.registry);
                    }
                    break;
            }
        }
        if (const UndoObserver observer = g_undoObserver.load(std::memory_order_acquire))
            observer(kKindNames[static_cast<int>(record.kind)], record.id);
    }
}

void Publisher::SetUndoObserver(UndoObserver observer) noexcept {
    g_undoObserver.store(observer, std::memory_order_release);
}

}  // namespace orvik
