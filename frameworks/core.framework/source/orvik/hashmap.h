#pragma once
/// @file
/// `HashMap`: separate chaining with a fixed, documented iteration order.

#include "orvik/basearray.h"
#include "orvik/id.h"

namespace orvik {

/// The hash of a pointer key: k is the address.
constexpr uint64_t HashPointerBits(uint64_t k) {
    const uint64_t x = k ^ (k >> 32);
    const uint64_t y = x ^ (x >> 12) ^ (x >> 20);
    return y ^ (y >> 4) ^ (y >> 7);
}

/// Default hash: pointers, references and numbers by their bits, ids by their value, other types by `GetHashCode()`.
template <class K>
struct HashOf {
    uint64_t operator()(const K& key) const {
        if constexpr (std::is_pointer_v<K>)
            return HashPointerBits(reinterpret_cast<uintptr_t>(key));
        else if constexpr (std::is_integral_v<K> || std::is_enum_v<K>)
            return HashPointerBits(static_cast<uint64_t>(key));
        else if constexpr (std::is_same_v<K, Id>)
            return HashPointerBits(key.GetValue());
        else if constexpr (requires { key.GetHashCode(); })
            return static_cast<uint64_t>(key.GetHashCode());
        else
            return HashPointerBits(reinterpret_cast<uintptr_t>(static_cast<const void*>(key.GetPointer())));
    }
};

/// The first table has 32 buckets and a threshold of 20 entries. When the count passes the threshold the table doubles
/// and the threshold becomes buckets * 10 / 16. Iteration visits the buckets in the order in which they first received
/// an entry, and in each bucket the newest entry first.
template <class K, class V, class H = HashOf<K>>
class HashMap {
public:
    struct Entry {
        K key;
        V value;

    private:
        friend class HashMap;
        Entry(K k, V v, uint64_t h) : key(std::move(k)), value(std::move(v)), _hash(h) {}
        uint64_t _hash;
        Entry* _next = nullptr;
    };

private:
    struct Bucket {
        Entry* first = nullptr;
        Int next = -1;  ///< bucket list, in order of first use
        bool listed = false;
    };

    template <class E, class M>
    class IteratorOf {
    public:
        IteratorOf() = default;
        IteratorOf(M* map, Int bucket) : _map(map), _bucket(bucket) { Settle(); }
        E& operator*() const { return *_entry; }
        E* operator->() const { return _entry; }
        IteratorOf& operator++() {
            _entry = _entry->_next;
            if (!_entry) {
                _bucket = _map->_buckets[_bucket].next;
                Settle();
            }
            return *this;
        }
        friend bool operator==(const IteratorOf& a, const IteratorOf& b) { return a._entry == b._entry; }

    private:
        void Settle() {
            _entry = nullptr;
            for (; _bucket >= 0; _bucket = _map->_buckets[_bucket].next) {
                _entry = _map->_buckets[_bucket].first;
                if (_entry)
                    return;
            }
        }
        M* _map = nullptr;
        Int _bucket = -1;
        E* _entry = nullptr;
    };

public:
    using Iterator = IteratorOf<Entry, HashMap>;
    using ConstIterator = IteratorOf<const Entry, const HashMap>;

    HashMap() = default;
    HashMap(HashMap&& other) noexcept { Swap(other); }
    HashMap& operator=(HashMap&& other) noexcept {
        HashMap empty;
        Swap(empty);
        Swap(other);
        return *this;
    }
    HashMap(const HashMap&) = delete;
    HashMap& operator=(const HashMap&) = delete;
    ~HashMap() { Reset(); }

    Int GetCount() const noexcept { return _count; }
    Int GetBucketCount() const noexcept { return _buckets.GetCount(); }
    bool IsEmpty() const noexcept { return _count == 0; }

    V* Find(const K& key) noexcept {
        Entry* entry = FindEntry(key, H()(key));
        return entry ? &entry->value : nullptr;
    }
    const V* Find(const K& key) const noexcept { return const_cast<HashMap*>(this)->Find(key); }
    bool Contains(const K& key) const noexcept { return Find(key) != nullptr; }

    /// Inserts or replaces.
    Result<void> Set(K key, V value) {
        const uint64_t hash = H()(key);
        if (Entry* entry = FindEntry(key, hash)) {
            entry->value = std::move(value);
            return {};
        }
        TRY(Add(std::move(key), std::move(value), hash));
        return {};
    }
    /// @return the entry's value; a new entry starts default constructed
    Result<V*> FindOrCreate(K key) {
        const uint64_t hash = H()(key);
        Entry* entry = FindEntry(key, hash);
        if (!entry)
            entry = TRY(Add(std::move(key), V(), hash));
        return &entry->value;
    }
    /// @return true when there was such an entry
    bool Erase(const K& key) noexcept {
        if (_buckets.IsEmpty())
            return false;
        const uint64_t hash = H()(key);
        for (Entry** link = &_buckets[Index(hash)].first; *link; link = &(*link)->_next) {
            Entry* entry = *link;
            if (entry->_hash == hash && entry->key == key) {
                *link = entry->_next;
                entry->~Entry();
                Free(entry);
                --_count;
                return true;
            }
        }
        return false;
    }
    void Reset() noexcept {
        for (Bucket& bucket : _buckets) {
            for (Entry* entry = bucket.first; entry;) {
                Entry* next = entry->_next;
                entry->~Entry();
                Free(entry);
                entry = next;
            }
        }
        _buckets.Reset();
        _first = _last = -1;
        _count = 0;
        _threshold = 0;
    }
    /// Copies entries and their order. On failure this map stays as it was.
    Result<void> CopyFrom(const HashMap& other) {
        HashMap copy;
        TRY(copy._buckets.CopyFrom(other._buckets));
        for (Bucket& bucket : copy._buckets)
            bucket.first = nullptr;
        copy._first = other._first;
        copy._last = other._last;
        copy._threshold = other._threshold;
        for (Int i = 0; i < other._buckets.GetCount(); ++i) {
            Entry** link = &copy._buckets[i].first;
            for (const Entry* entry = other._buckets[i].first; entry; entry = entry->_next) {
                void* memory = Allocate(sizeof(Entry));
                if (!memory)
                    return MakeOutOfMemoryError();
                *link = new (memory) Entry(entry->key, entry->value, entry->_hash);
                link = &(*link)->_next;
                ++copy._count;
            }
        }
        Swap(copy);
        return {};
    }

    Iterator begin() { return Iterator(this, _first); }
    Iterator end() { return Iterator(); }
    ConstIterator begin() const { return ConstIterator(this, _first); }
    ConstIterator end() const { return ConstIterator(); }

private:
    Int Index(uint64_t hash) const noexcept {
        return static_cast<Int>(hash & static_cast<uint64_t>(_buckets.GetCount() - 1));
    }
    Entry* FindEntry(const K& key, uint64_t hash) noexcept {
        if (_buckets.IsEmpty())
            return nullptr;
        for (Entry* entry = _buckets[Index(hash)].first; entry; entry = entry->_next) {
            if (entry->_hash == hash && entry->key == key)
                return entry;
        }
        return nullptr;
    }
    Result<Entry*> Add(K key, V value, uint64_t hash) {
        if (_buckets.IsEmpty()) {
            TRY(_buckets.Resize(32, RESIZEFLAGS::FIT_TO_SIZE));
            _threshold = 20;
        } else if (_count + 1 > _threshold) {
            TRY(Rehash(_buckets.GetCount() * 2));
        }
        void* memory = Allocate(sizeof(Entry));
        if (!memory)
            return MakeOutOfMemoryError();
        auto* entry = new (memory) Entry(std::move(key), std::move(value), hash);
        Link(entry);
        ++_count;
        return entry;
    }
    void Link(Entry* entry) noexcept {
        const Int index = Index(entry->_hash);
        Bucket& bucket = _buckets[index];
        if (!bucket.listed) {
            bucket.listed = true;
            (_last < 0 ? _first : _buckets[_last].next) = index;
            _last = index;
        }
        entry->_next = bucket.first;
        bucket.first = entry;
    }
    Result<void> Rehash(Int count) {
        BaseArray<Bucket> fresh;
        TRY(fresh.Resize(count, RESIZEFLAGS::FIT_TO_SIZE));
        BaseArray<Bucket> old = std::move(_buckets);
        _buckets = std::move(fresh);
        Int index = _first;
        _first = _last = -1;
        _threshold = count * 10 / 16;
        for (; index >= 0; index = old[index].next) {
            Entry* reversed = nullptr;  // relinking in reverse keeps "newest first" in each bucket
            for (Entry* entry = old[index].first; entry;) {
                Entry* next = entry->_next;
                entry->_next = reversed;
                reversed = entry;
                entry = next;
            }
            while (reversed) {
                Entry* next = reversed->_next;
                Link(reversed);
                reversed = next;
            }
        }
        return {};
    }
    void Swap(HashMap& other) noexcept {
        std::swap(_buckets, other._buckets);
        std::swap(_first, other._first);
        std::swap(_last, other._last);
        std::swap(_count, other._count);
        std::swap(_threshold, other._threshold);
    }

    BaseArray<Bucket> _buckets;
    Int _first = -1;
    Int _last = -1;
    Int _count = 0;
    Int _threshold = 0;
};

}  // namespace orvik
