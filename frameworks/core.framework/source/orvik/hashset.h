#pragma once
/// @file
/// `HashSet`: a set with the order and the growth of `HashMap`.

#include "orvik/hashmap.h"

namespace orvik {

template <class K, class H = HashOf<K>>
class HashSet {
    struct Nothing {};
    using Map = HashMap<K, Nothing, H>;

public:
    class ConstIterator {
    public:
        explicit ConstIterator(typename Map::ConstIterator at) : _at(at) {}
        const K& operator*() const { return _at->key; }
        const K* operator->() const { return &_at->key; }
        ConstIterator& operator++() {
            ++_at;
            return *this;
        }
        friend bool operator==(const ConstIterator& a, const ConstIterator& b) { return a._at == b._at; }

    private:
        typename Map::ConstIterator _at;
    };

    Int GetCount() const noexcept { return _map.GetCount(); }
    bool IsEmpty() const noexcept { return _map.IsEmpty(); }
    bool Contains(const K& key) const noexcept { return _map.Contains(key); }
    /// A key that is there already stays as it is.
    Result<void> Insert(K key) { return _map.Set(std::move(key), Nothing()); }
    /// @return true when there was such a key
    bool Erase(const K& key) noexcept { return _map.Erase(key); }
    void Reset() noexcept { _map.Reset(); }
    /// On failure this set stays as it was.
    Result<void> CopyFrom(const HashSet& other) { return _map.CopyFrom(other._map); }

    ConstIterator begin() const { return ConstIterator(_map.begin()); }
    ConstIterator end() const { return ConstIterator(_map.end()); }

    /// The same keys, in whatever order.
    friend bool operator==(const HashSet& a, const HashSet& b) noexcept {
        if (a.GetCount() != b.GetCount())
            return false;
        for (const K& key : a) {
            if (!b.Contains(key))
                return false;
        }
        return true;
    }

private:
    Map _map;
};

}  // namespace orvik
