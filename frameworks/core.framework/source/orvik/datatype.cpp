#include "orvik/datatype.h"

#include <atomic>
#include <new>

#include "orvik/errortypes.h"

namespace orvik {

/// A shared value; it follows this head at the distance that its alignment requires.
struct Data::Box {
    std::atomic<int32_t> count{1};
    uint32_t offset;  ///< bytes from the head to the value

    explicit Box(uint32_t distance) : offset(distance) {}
    void* Value() noexcept { return reinterpret_cast<std::byte*>(this) + offset; }
};

Result<void> Data::Construct(const DataType& type, void* value) {
    if (type.size <= kInlineSize) {
        type.move(_inline, value);
        _type = &type;
        return {};
    }
    const size_t padding = type.alignment > alignof(std::max_align_t) ? type.alignment : alignof(std::max_align_t);
    auto* memory = static_cast<std::byte*>(Allocate(sizeof(Box) + padding + type.size));
    if (!memory)
        return OutOfMemoryError();
    void* place = memory + sizeof(Box);
    size_t space = padding + type.size;
    std::align(type.alignment, type.size, place, space);
    _box = new (memory) Box(static_cast<uint32_t>(static_cast<std::byte*>(place) - memory));
    type.move(place, value);
    _type = &type;
    return {};
}

Data::Data(const Data& other) noexcept : _type(other._type) {
    if (!_type)
        return;
    if (IsInline()) {
        _type->copy(_inline, other._inline);
    } else {
        _box = other._box;
        _box->count.fetch_add(1, std::memory_order_relaxed);
    }
}

Data::Data(Data&& other) noexcept : _type(other._type) {
    if (!_type)
        return;
    if (IsInline()) {
        _type->move(_inline, other._inline);
        _type->destroy(other._inline);
    } else {
        _box = other._box;
    }
    other._type = nullptr;
}

Data& Data::operator=(Data other) noexcept {
    this->~Data();
    return *new (this) Data(std::move(other));
}

Data::~Data() {
    if (!_type)
        return;
    if (IsInline()) {
        _type->destroy(_inline);
    } else if (_box->count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        _type->destroy(_box->Value());
        Free(_box);
    }
    _type = nullptr;
}

const void* Data::GetAddress() const noexcept { return IsInline() ? static_cast<const void*>(_inline) : _box->Value(); }

bool Data::operator==(const Data& other) const noexcept {
    if (!_type || !other._type)
        return _type == other._type;
    if (!(*_type == *other._type))
        return false;
    if (!IsInline() && _box == other._box)
        return true;
    return _type->equals && _type->equals(GetAddress(), other.GetAddress());
}

uint64_t Data::GetHashCode() const noexcept { return _type && _type->hash ? _type->hash(GetAddress()) : 0; }

String Data::ToString() const {
    if (!_type)
        return "<empty>";
    const FormatArgument argument = _type->format(GetAddress());
    return FormatStringArguments("@", {&argument, 1});
}

}  // namespace orvik
