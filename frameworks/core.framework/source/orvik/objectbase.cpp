#include "orvik/objectbase.h"

#include <cstdlib>
#include <cxxabi.h>
#include <mutex>
#include <typeinfo>

#include "orvik/errortypes.h"

namespace orvik {

void ObjectCounts::ReleaseWeak() noexcept {
    if (weak.fetch_sub(1, std::memory_order_acq_rel) == 1)
        Free(this);
}

bool ObjectCounts::TryRetain() noexcept {
    int32_t count = strong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (strong.compare_exchange_weak(count, count + 1, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    }
    return false;
}

void Object::Release() const noexcept {
    ObjectCounts* counts = _counts;  // shared error and null instances have none and live forever
    if (!counts || counts->strong.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    const_cast<Object*>(this)->~Object();
    counts->ReleaseWeak();
}

Id Object::GetClassId() const { return _class ? _class->GetId() : Id(); }

Result<Ref<Object>> Object::Clone() const {
    if (IsAbsent())
        return Unbound();
    constexpr std::string_view kBareName = "?";
    if (_class)
        return FunctionNotImplementedError("Component @ has members, but CopyFrom is not implemented!",
                                           _class->GetId());
    int status = 0;
    char* name = abi::__cxa_demangle(typeid(*this).name(), nullptr, nullptr, &status);
    Error error = FunctionNotImplementedError("Component @ has members, but CopyFrom is not implemented!",
                                              name ? std::string_view(name) : kBareName);
    std::free(name);
    return error;
}

namespace {

/// The interface ids of the process in the order in which they were first asked for. The texts are copies, since a
/// module's literals are unloaded with it.
struct InterfaceTable {
    SpinLock lock;
    int count = 0;
    Id ids[ClassRecord::kMaxInterfaces];
};

}  // namespace

int GetInterfaceOrdinal(const Id& interfaceId) noexcept {
    static Immortal<InterfaceTable> tables;  // casts run until the process ends
    InterfaceTable& table = *tables;
    const std::lock_guard guard(table.lock);
    for (int i = 0; i < table.count; ++i) {
        if (table.ids[i] == interfaceId)
            return i;
    }
    if (table.count == ClassRecord::kMaxInterfaces)
        return -1;
    Result<Id> copy = Id::Create(interfaceId.GetText());
    if (!copy)
        return -1;
    table.ids[table.count] = std::move(copy).TakeValue();
    return table.count++;
}

}  // namespace orvik
