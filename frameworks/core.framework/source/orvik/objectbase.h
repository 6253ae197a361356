#pragma once
/// @file
/// Objects, interfaces and references.
///
/// An interface is a plain C++ class that derives from `Object`, lists its methods in their fixed order and is
/// concrete: the body of a method that is not overridden answers through `Unbound()`. What that answers depends on
/// why it was reached: on the shared null instance the null pointer error, on the shared unresolved instance the
/// unresolved error, on a live object that lacks the method the function-not-implemented error; a method without a
/// `Result` answers 0, false or empty. So a call through an empty `Ref` is safe and a chain of calls needs no test.
///
/// @code
/// class MediaStreamInterface : public virtual MediaBaseInterface, public virtual HierarchyObjectInterface {
///     ORVIK_INTERFACE(MediaStreamInterface, "net.orvik.image.interface.mediastream");
/// public:
///     virtual Result<void> SubscribeStream(const Data& id) { (void)id; return Unbound(); }
///     virtual Bool IsSubscribed() const { return Unbound(); }
/// };
/// @endcode

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "orvik/id.h"
#include "orvik/lockservices.h"
#include "orvik/memory.h"
#include "orvik/result.h"

namespace orvik {

/// Why an absent object answers. `None` is the value in live objects.
enum class Absence : uint8_t { None = 0, Null = 1, Unresolved = 2, NotImplemented = 3 };

/// Makes the shared, preallocated error of a reason: 0 and 1 null pointer, 2 unresolved, 3 function not implemented.
/// Any other reason stops the program with "Stop: reason not supported by PrivateGetNullReturnError.".
ORVIK_API Error PrivateGetNullReturnError(int reason) noexcept;

/// Converts to an error `Result` or to an empty value of any type.
struct UnboundAnswer {
    Absence reason;

    template <class T>
    operator T() const {  // NOLINT(google-explicit-constructor)
        if constexpr (kIsResult<T>)
            return PrivateGetNullReturnError(static_cast<int>(reason));
        else
            return T{};
    }
};

/// Counts and allocation of one object, in front of its bytes. The memory is freed with the last weak reference.
struct ObjectCounts {
    std::atomic<int32_t> strong{1};
    std::atomic<int32_t> weak{1};  ///< weak references, plus one while the object lives

    void RetainWeak() noexcept { weak.fetch_add(1, std::memory_order_relaxed); }
    ORVIK_API void ReleaseWeak() noexcept;
    /// Raises the strong count unless the object is destroyed.
    ORVIK_API bool TryRetain() noexcept;
};

class ClassRecord;
template <class I>
class Ref;

/// The root of every interface. Objects are made by `NewObj` or through a published class, and shared by counted
/// references; the counter is atomic.
class ORVIK_API Object {
public:
    Object() = default;
    explicit Object(Absence why) : _absence(why) {}
    Object(const Object&) : Object() {}  // counts and class belong to an allocation, not to a value
    Object& operator=(const Object&) { return *this; }
    virtual ~Object() = default;

    /// A copy for the make-writable step of a `ValueRef`. A class with data and no copy of its own is refused with
    /// "Component @ has members, but CopyFrom is not implemented!".
    ORVIK_API virtual Result<Ref<Object>> Clone() const;

    void Retain() const noexcept {
        if (_counts)
            _counts->strong.fetch_add(1, std::memory_order_relaxed);
    }
    ORVIK_API void Release() const noexcept;
    /// @return how many strong references there are; for tests and copy-on-write
    int32_t GetStrongCount() const noexcept { return _counts ? _counts->strong.load(std::memory_order_acquire) : 0; }

    bool IsAbsent() const noexcept { return _absence != Absence::None; }
    /// The published class this object was created from, or null.
    const ClassRecord* GetClassRecord() const noexcept { return _class; }
    /// Id of that class, or an empty id.
    ORVIK_API Id GetClassId() const;

    ObjectCounts* GetCounts() const noexcept { return _counts; }

protected:
    UnboundAnswer Unbound() const noexcept { return {_absence == Absence::None ? Absence::NotImplemented : _absence}; }

private:
    friend struct ObjectAccess;

    ObjectCounts* _counts = nullptr;
    const ClassRecord* _class = nullptr;
    Absence _absence = Absence::None;
};

/// For `NewObj` and the class records only.
struct ObjectAccess {
    static void SetCounts(Object& object, ObjectCounts* counts) noexcept { object._counts = counts; }
    static void SetClass(Object& object, const ClassRecord* record) noexcept { object._class = record; }
};

/// The common head of an interface class: constructors, id and reference name.
#define ORVIK_INTERFACE(NAME, ID)                                 \
public:                                                           \
    NAME() = default;                                             \
    explicit NAME(::orvik::Absence why) : ::orvik::Object(why) {} \
    static constexpr ::orvik::Id kInterfaceId{ID};                \
    static constexpr const char* kReferenceName = "orvik." #NAME

/// The shared instance that answers for a missing object. It lives until the process ends (in a module: until that is
/// unloaded; each library has its own).
template <class I>
I& Absent(Absence why = Absence::Null) {
    alignas(I) static std::byte storage[2][sizeof(I)];
    static I* const instances[2] = {new (storage[0]) I(Absence::Null), new (storage[1]) I(Absence::Unresolved)};
    return *instances[why == Absence::Unresolved ? 1 : 0];
}

/// A counted reference to an object, seen through interface I. Never yields a null address on a call.
template <class I>
class Ref {
public:
    using InterfaceType = I;

    constexpr Ref() = default;
    constexpr Ref(std::nullptr_t) {}  // NOLINT(google-explicit-constructor)
    /// Shares an object that is already referenced elsewhere (inside a method: this).
    explicit Ref(I* object) noexcept : _object(object) {
        if (_object)
            _object->Retain();
    }
    Ref(const Ref& other) noexcept : Ref(other._object) {}
    Ref(Ref&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
    template <class D>
    requires(std::is_convertible_v<D*, I*> && !std::is_same_v<D, I>) Ref(const Ref<D>& other)
    noexcept : Ref(static_cast<I*>(other.GetObject())) {}  // NOLINT
    template <class D>
    requires(std::is_convertible_v<D*, I*> && !std::is_same_v<D, I>) Ref(Ref<D>&& other)
    noexcept : _object(other.Detach()) {}  // NOLINT
    Ref& operator=(Ref other) noexcept {
        std::swap(_object, other._object);
        return *this;
    }
    ~Ref() {
        if (_object)
            _object->Release();
    }

    /// Takes over one count that the caller owns.
    static Ref Adopt(I* object) noexcept {
        Ref ref;
        ref._object = object;
        return ref;
    }
    /// The reference that answers every call with the unresolved error.
    static Ref Unresolved() { return Adopt(&Absent<I>(Absence::Unresolved)); }

    /// True when there is a live object.
    explicit operator bool() const noexcept { return _object && !_object->IsAbsent(); }
    /// References to implementation classes, which have no null instance, must not be null here.
    I* operator->() const {
        if constexpr (std::is_constructible_v<I, Absence>)
            return _object ? _object : &Absent<I>();
        else
            return _object;
    }
    I& operator*() const { return *operator->(); }
    /// The live object's address, or null.
    I* GetPointer() const noexcept { return *this ? _object : nullptr; }
    /// The stored address: null, the unresolved instance, or a live object.
    I* GetObject() const noexcept { return _object; }
    /// Hands the count over to the caller.
    I* Detach() noexcept { return std::exchange(_object, nullptr); }

    friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.GetPointer() == b.GetPointer(); }
    friend bool operator==(const Ref& a, std::nullptr_t) noexcept { return !a; }

private:
    I* _object = nullptr;
};

template <class I>
using StrongRef = Ref<I>;

/// A reference that does not keep its object alive: one word with a spin lock in its lowest bit. Safe to read from
/// several threads.
template <class I>
class WeakRef {
public:
    WeakRef() = default;
    explicit WeakRef(const Ref<I>& target) { Set(target); }
    WeakRef(const WeakRef& other) { Set(other.Get()); }
    WeakRef& operator=(const WeakRef& other) {
        Set(other.Get());
        return *this;
    }
    WeakRef& operator=(const Ref<I>& target) {
        Set(target);
        return *this;
    }
    ~WeakRef() { Set(nullptr); }

    /// @return a strong reference, or null when the object is destroyed
    Ref<I> Get() const noexcept {
        const uintptr_t word = Lock();
        I* object = nullptr;
        if (auto* counts = reinterpret_cast<ObjectCounts*>(word); counts && counts->TryRetain())
            object = _object;
        Unlock(word);
        return Ref<I>::Adopt(object);
    }
    void Set(const Ref<I>& target) noexcept {
        I* object = target.GetPointer();
        ObjectCounts* counts = object ? object->GetCounts() : nullptr;
        if (counts)
            counts->RetainWeak();
        const uintptr_t old = Lock();
        _object = object;
        Unlock(reinterpret_cast<uintptr_t>(counts));
        if (old)
            reinterpret_cast<ObjectCounts*>(old)->ReleaseWeak();
    }

private:
    static constexpr uintptr_t kLockBit = 1;

    uintptr_t Lock() const noexcept {
        for (unsigned spins = 0;; ++spins) {
            uintptr_t word = _word.load(std::memory_order_relaxed) & ~kLockBit;
            if (_word.compare_exchange_weak(word, word | kLockBit, std::memory_order_acquire,
                                            std::memory_order_relaxed))
                return word;
            CpuBackoff(spins);
        }
    }
    void Unlock(uintptr_t word) const noexcept { _word.store(word, std::memory_order_release); }

    mutable std::atomic<uintptr_t> _word{0};  ///< address of the counts, and the lock bit
    I* _object = nullptr;
};

ORVIK_API Error MakeOutOfMemoryError() noexcept;

/// Creates an object with an allocation that can fail. If T has `Result<void> Construct()`, it runs too and can fail.
template <class T, class... Arguments>
Result<Ref<T>> NewObj(Arguments&&... arguments) {
    static_assert(alignof(T) <= 64);
    constexpr size_t kHead = alignof(T) > alignof(std::max_align_t) ? 64 : alignof(std::max_align_t);
    static_assert(sizeof(ObjectCounts) <= kHead);
    auto* head = static_cast<std::byte*>(Allocate(kHead + sizeof(T) + (kHead == 64 ? 64 : 0)));
    if (!head)
        return MakeOutOfMemoryError();
    auto* counts = new (head) ObjectCounts;
    T* object = nullptr;
    try {
        void* place = head + kHead;
        size_t space = sizeof(T) + (kHead == 64 ? 64 : 0);
        object = new (std::align(alignof(T), sizeof(T), place, space)) T(std::forward<Arguments>(arguments)...);
    } catch (const std::bad_alloc&) {
        Free(head);
        return MakeOutOfMemoryError();
    }
    ObjectAccess::SetCounts(*object, counts);
    Ref<T> ref = Ref<T>::Adopt(object);
    if constexpr (requires {
                      { object->Construct() } -> std::same_as<Result<void>>;
                  }) {
        if (Result<void> constructed = object->Construct(); !constructed)
            return std::move(constructed).TakeError();
    }
    return ref;
}

/// A copy-on-write reference to a value-like object. Reading never copies; writing goes through `MakeWritable`, which
/// clones a shared object and can fail.
template <class I>
class ValueRef {
public:
    ValueRef() = default;
    explicit ValueRef(Ref<I> object) : _ref(std::move(object)) {}

    explicit operator bool() const noexcept { return static_cast<bool>(_ref); }
    const I* operator->() const { return _ref.operator->(); }
    const I& operator*() const { return *_ref; }
    const I* GetPointer() const noexcept { return _ref.GetPointer(); }
    const Ref<I>& GetRef() const noexcept { return _ref; }

    /// @return the object, owned by this reference alone
    Result<I*> MakeWritable() {
        if (!_ref)
            return PrivateGetNullReturnError(1);
        if (_ref->GetStrongCount() > 1) {
            Ref<Object> copy = TRY(_ref->Clone());
            I* object = dynamic_cast<I*>(copy.GetPointer());
            if (!object)
                return PrivateGetNullReturnError(3);
            _ref = Ref<I>(object);
        }
        return _ref.GetPointer();
    }

    friend bool operator==(const ValueRef& a, const ValueRef& b) noexcept { return a._ref == b._ref; }

private:
    Ref<I> _ref;
};

// --- Casts -----------------------------------------------------------------------------------------------------------

/// @return a small number for an interface id, the same in every library of the process
ORVIK_API int GetInterfaceOrdinal(const Id& interfaceId) noexcept;

template <class I>
int InterfaceOrdinal() {
    static const int ordinal = GetInterfaceOrdinal(I::kInterfaceId);
    return ordinal;
}

/// What is known about one class of objects: its id, and for each interface, by ordinal, its place in an object.
class ClassRecord {
public:
    static constexpr int kMaxInterfaces = 128;

    explicit ClassRecord(const Id& classId) : _id(classId) {}
    const Id& GetId() const noexcept { return _id; }

    /// Byte distance from an object's `Object` part to its interface, filled on the first cast of a class.
    std::atomic<int32_t>& Slot(int ordinal) const noexcept { return _slots[ordinal]; }

    static constexpr int32_t kUnknown = 0;   ///< not looked up so far
    static constexpr int32_t kAbsent = 1;    ///< not implemented; distances are even, so 1 is free
    static constexpr int32_t kAtOrigin = 3;  ///< distance 0

private:
    Id _id;
    mutable std::atomic<int32_t> _slots[kMaxInterfaces] = {};
};

/// @return the object seen through interface I, or null when it does not implement it. Constant time for objects of
/// published classes.
template <class I>
I* CastPointer(Object* object) noexcept {
    if (!object || object->IsAbsent())
        return nullptr;
    const ClassRecord* record = object->GetClassRecord();
    const int ordinal = InterfaceOrdinal<I>();
    if (!record || ordinal < 0)
        return dynamic_cast<I*>(object);
    std::atomic<int32_t>& slot = record->Slot(ordinal);
    auto* base = reinterpret_cast<std::byte*>(object);
    int32_t distance = slot.load(std::memory_order_relaxed);
    if (distance == ClassRecord::kUnknown) {
        I* found = dynamic_cast<I*>(object);
        if (found)
            distance = static_cast<int32_t>(reinterpret_cast<std::byte*>(found) - base);
        slot.store(!found          ? ClassRecord::kAbsent
                   : distance == 0 ? ClassRecord::kAtOrigin
                                   : distance,
                   std::memory_order_relaxed);
        return found;
    }
    if (distance == ClassRecord::kAbsent)
        return nullptr;
    return reinterpret_cast<I*>(distance == ClassRecord::kAtOrigin ? base : base + distance);
}

template <class I, class J>
Ref<I> Cast(const Ref<J>& ref) noexcept {
    return Ref<I>(CastPointer<I>(ref.GetPointer()));
}

using ObjectRef = Ref<Object>;

}  // namespace orvik
