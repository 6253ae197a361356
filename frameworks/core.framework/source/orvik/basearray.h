#pragma once
/// @file
/// `BaseArray`: a contiguous, growing array that reports failed allocations.

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "orvik/memory.h"
#include "orvik/objectbase.h"

namespace orvik {

/// How `BaseArray::Resize` allocates. A bit set.
enum class RESIZEFLAGS : uint8_t {
    DEFAULT = 0,        ///< grow by the rule of the array, new elements zeroed or default constructed
    FIT_TO_SIZE = 1,    ///< capacity exactly as asked
    UNINITIALIZED = 2,  ///< leave new elements of a trivial type as they are
};
constexpr RESIZEFLAGS operator|(RESIZEFLAGS a, RESIZEFLAGS b) {
    return static_cast<RESIZEFLAGS>(static_cast<int>(a) | static_cast<int>(b));
}

/// The first allocation rounds the wanted count up to a multiple of 16. After that the new capacity is
/// max(needed, (capacity + increment) * 3 / 2), rounded up to a multiple of 16.
template <class T>
class BaseArray {
public:
    BaseArray() = default;
    BaseArray(BaseArray&& other) noexcept { Swap(other); }
    BaseArray& operator=(BaseArray&& other) noexcept {
        BaseArray empty;
        Swap(empty);
        Swap(other);
        return *this;
    }
    BaseArray(const BaseArray&) = delete;
    BaseArray& operator=(const BaseArray&) = delete;
    ~BaseArray() { Reset(); }

    Int GetCount() const noexcept { return _count; }
    Int GetCapacity() const noexcept { return _capacity; }
    bool IsEmpty() const noexcept { return _count == 0; }
    T* GetFirst() noexcept { return _data; }
    const T* GetFirst() const noexcept { return _data; }
    T& operator[](Int index) noexcept { return _data[index]; }
    const T& operator[](Int index) const noexcept { return _data[index]; }
    T* begin() noexcept { return _data; }
    T* end() noexcept { return _data + _count; }
    const T* begin() const noexcept { return _data; }
    const T* end() const noexcept { return _data + _count; }
    T& GetLast() noexcept { return _data[_count - 1]; }
    Block<T> ToBlock() noexcept { return {_data, static_cast<size_t>(_count)}; }
    Block<const T> ToBlock() const noexcept { return {_data, static_cast<size_t>(_count)}; }

    Result<void> Append(T value) { return Insert(_count, std::move(value)); }
    /// @param index  0 ... count; anything else counts as the end
    Result<void> Insert(Int index, T value) {
        TRY(Reserve(1));
        if (index < 0 || index > _count)
            index = _count;
        new (_data + _count) T(std::move(value));
        ++_count;
        std::rotate(_data + index, _data + _count - 1, _data + _count);
        return {};
    }
    /// The values may lie in this array.
    Result<void> AppendBlock(Block<const T> values) {
        const T* from = values.data();
        const bool own = !std::less<const T*>()(from, _data) && std::less<const T*>()(from, _data + _count);
        const Int offset = own ? from - _data : 0;
        TRY(Reserve(static_cast<Int>(values.size())));
        std::uninitialized_copy_n(own ? _data + offset : from, values.size(), _data + _count);
        _count += static_cast<Int>(values.size());
        return {};
    }
    /// Replaces the content by values that lie elsewhere.
    Result<void> CopyFrom(Block<const T> values) {
        Clear();
        return AppendBlock(values);
    }
    Result<void> CopyFrom(const BaseArray& other) { return CopyFrom(other.ToBlock()); }

    /// Makes room for `increment` more elements by the growth rule.
    Result<void> Reserve(Int increment) {
        Int needed = 0;
        if (__builtin_add_overflow(_count, increment, &needed))
            return MakeOutOfMemoryError();
        if (needed <= _capacity)
            return {};
        Int wanted = needed;
        if (_capacity > 0) {
            Int grown = 0;
            if (__builtin_add_overflow(_capacity, increment, &grown) || __builtin_mul_overflow(grown, Int(3), &grown))
                return MakeOutOfMemoryError();
            wanted = std::max(needed, grown / 2);
        }
        if (__builtin_add_overflow(wanted, Int(15), &wanted))
            return MakeOutOfMemoryError();
        return SetCapacity(wanted & ~Int(15), false);
    }
    Result<void> Resize(Int count, RESIZEFLAGS flags = RESIZEFLAGS::DEFAULT) {
        if (count < 0)
            return MakeOutOfMemoryError();
        Truncate(count);
        bool zeroed = false;
        if (count > _capacity) {
            const bool fresh = _capacity == 0 && kZeroIsDefault && !Has(flags, RESIZEFLAGS::UNINITIALIZED);
            if (Has(flags, RESIZEFLAGS::FIT_TO_SIZE)) {
                TRY(SetCapacity(count, fresh));
            } else if (fresh) {
                Int rounded = 0;
                if (__builtin_add_overflow(count, Int(15), &rounded))
                    return MakeOutOfMemoryError();
                TRY(SetCapacity(rounded & ~Int(15), true));
            } else {
                TRY(Reserve(count - _count));
            }
            zeroed = fresh;
        }
        if constexpr (kZeroIsDefault) {
            if (!zeroed && !Has(flags, RESIZEFLAGS::UNINITIALIZED) && count > _count)
                std::memset(static_cast<void*>(_data + _count), 0, static_cast<size_t>(count - _count) * sizeof(T));
            _count = count;
        } else {
            while (_count < count)
                new (_data + _count++) T();
        }
        return {};
    }
    void Erase(Int index, Int count = 1) noexcept {
        if (index < 0 || count <= 0 || index >= _count)
            return;
        count = std::min(count, _count - index);
        std::move(_data + index + count, _data + _count, _data + index);
        Truncate(_count - count);
    }
    /// Removes the last element.
    void Pop() noexcept { Erase(_count - 1); }
    /// Removes all elements and keeps the memory.
    void Clear() noexcept { Truncate(0); }
    /// Removes all elements and frees the memory.
    void Reset() noexcept {
        Clear();
        Free(_data);
        _data = nullptr;
        _capacity = 0;
    }

private:
    static_assert(alignof(T) <= alignof(std::max_align_t));
    /// Elements of such a type need no constructor; one with member initialisers does.
    static constexpr bool kZeroIsDefault =
        std::is_trivially_copyable_v<T> && std::is_trivially_default_constructible_v<T>;

    static constexpr bool Has(RESIZEFLAGS flags, RESIZEFLAGS bit) {
        return (static_cast<int>(flags) & static_cast<int>(bit)) != 0;
    }
    void Swap(BaseArray& other) noexcept {
        std::swap(_data, other._data);
        std::swap(_count, other._count);
        std::swap(_capacity, other._capacity);
    }
    /// Destroys the elements from `count` on, the last one first.
    void Truncate(Int count) noexcept {
        if constexpr (!std::is_trivially_destructible_v<T>) {
            while (_count > count)
                _data[--_count].~T();
        }
        _count = std::min(_count, count);
    }
    Result<void> SetCapacity(Int capacity, bool zeroed) {
        size_t bytes = 0;
        if (__builtin_mul_overflow(static_cast<size_t>(capacity), sizeof(T), &bytes))
            return MakeOutOfMemoryError();
        if constexpr (std::is_trivially_copyable_v<T>) {
            void* block = zeroed ? AllocateZeroed(bytes) : Reallocate(_data, bytes);
            if (!block)
                return MakeOutOfMemoryError();
            _data = static_cast<T*>(block);
        } else {
            auto* block = static_cast<T*>(Allocate(bytes));
            if (!block)
                return MakeOutOfMemoryError();
            for (Int i = 0; i < _count; ++i) {
                new (block + i) T(std::move(_data[i]));
                _data[i].~T();
            }
            Free(_data);
            _data = block;
        }
        _capacity = capacity;
        return {};
    }

    T* _data = nullptr;
    Int _count = 0;
    Int _capacity = 0;
};

}  // namespace orvik
