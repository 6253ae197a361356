#pragma once
/// @file
/// `DataType`, the run-time record of a value type, and `Data`, a tagged value.

#include <typeinfo>

#include "orvik/basearray.h"
#include "orvik/hashmap.h"
#include "orvik/string.h"

namespace orvik {

/// What the framework knows about a value type. One record exists per type and library; equality is by type.
struct DataType {
    enum class Flags : uint8_t { None = 0, Trivial = 1, Comparable = 2, Hashable = 4 };

    const std::type_info* type;
    const char* name;  ///< registered name such as "orvik::ImageRef", or the compiler's name of the type
    size_t size;
    size_t alignment;
    Flags flags;
    void (*copy)(void* to, const void* from);
    void (*move)(void* to, void* from);
    void (*destroy)(void* value);
    bool (*equals)(const void* a, const void* b);  ///< null when not comparable
    uint64_t (*hash)(const void* value);           ///< null when not hashable
    FormatArgument (*format)(const void* value);

    friend bool operator==(const DataType& a, const DataType& b) { return &a == &b || *a.type == *b.type; }
};

/// Specialise to register a name: `template <> inline constexpr const char* kDataTypeName<Pix16f> = "orvik::Pix16f";`
template <class T>
inline constexpr const char* kDataTypeName = nullptr;

template <class T>
const DataType& GetDataType() {
    static const DataType type = [] {
        DataType t{};
        t.type = &typeid(T);
        t.name = kDataTypeName<T> ? kDataTypeName<T> : typeid(T).name();
        t.size = sizeof(T);
        t.alignment = alignof(T);
        int flags = std::is_trivially_copyable_v<T> ? 1 : 0;
        t.copy = [](void* to, const void* from) { new (to) T(*static_cast<const T*>(from)); };
        t.move = [](void* to, void* from) { new (to) T(std::move(*static_cast<T*>(from))); };
        t.destroy = [](void* value) { static_cast<T*>(value)->~T(); };
        if constexpr (requires(const T& a) {
                          { a == a } -> std::convertible_to<bool>;
                      }) {
            t.equals = [](const void* a, const void* b) -> bool {
                return *static_cast<const T*>(a) == *static_cast<const T*>(b);
            };
            flags |= 2;
        }
        if constexpr (std::is_integral_v<T> || std::is_enum_v<T> || std::is_same_v<T, Id> ||
                      requires(const T& a) { a.GetHashCode(); }) {
            t.hash = [](const void* value) -> uint64_t { return HashOf<T>()(*static_cast<const T*>(value)); };
            flags |= 4;
        }
        t.format = [](const void* value) { return MakeFormatArgument(*static_cast<const T*>(value)); };
        t.flags = static_cast<DataType::Flags>(flags);
        return t;
    }();
    return type;
}

/// An empty or typed value. Values of up to 16 bytes are stored inline; larger ones in a counted box that copies share,
/// so copying a `Data` never fails. Values inside a `Data` are immutable.
class ORVIK_API Data {
public:
    Data() = default;
    Data(const Data& other) noexcept;
    Data(Data&& other) noexcept;
    Data& operator=(Data other) noexcept;
    ~Data();

    /// Fails only when there is no memory for a value larger than 16 bytes.
    template <class T>
    static Result<Data> Create(T value) {
        Data data;
        TRY(data.Construct(GetDataType<T>(), &value));
        return data;
    }
    /// For small values, which cannot fail (numbers, enumerations, ids, references, strings).
    template <class T>
    explicit Data(T value) requires(!std::is_same_v<T, Data> && sizeof(T) <= 16) {
        (void)Construct(GetDataType<T>(), &value);  // inline, cannot fail
    }

    const DataType* GetType() const noexcept { return _type; }
    bool IsEmpty() const noexcept { return _type == nullptr; }
    /// @return the value, or null when this holds nothing or another type
    template <class T>
    const T* GetIf() const noexcept {
        return _type && *_type == GetDataType<T>() ? static_cast<const T*>(GetAddress()) : nullptr;
    }
    bool operator==(const Data& other) const noexcept;
    uint64_t GetHashCode() const noexcept;
    String ToString() const;

private:
    static constexpr size_t kInlineSize = 16;
    struct Box;

    Result<void> Construct(const DataType& type, void* value);  // moves the value in
    const void* GetAddress() const noexcept;
    bool IsInline() const noexcept { return _type->size <= kInlineSize; }

    const DataType* _type = nullptr;
    union {
        alignas(16) std::byte _inline[kInlineSize];
        Box* _box;
    };
};

template <>
inline constexpr const char* kDataTypeName<Int> = "Int";
template <>
inline constexpr const char* kDataTypeName<Float> = "Float";
template <>
inline constexpr const char* kDataTypeName<Bool> = "Bool";
template <>
inline constexpr const char* kDataTypeName<String> = "orvik::String";
template <>
inline constexpr const char* kDataTypeName<Id> = "orvik::Id";

}  // namespace orvik
