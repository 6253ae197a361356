#pragma once
/// @file
/// Keys, interfaces and data types as entries of registries: what a caller finds who has only an id.

#include "orvik/registrybase.h"

namespace orvik {

/// Keys by their ids, for instance "net.orvik.mediaformat.width".
inline constexpr Id kKeyRegistry{"net.orvik.image.registry.keys"};
/// Interfaces by their ids, for instance "net.orvik.image.interface.mediastream".
inline constexpr Id kInterfaceRegistry{"net.orvik.image.registry.interfaces"};
/// Data types by their names, for instance "orvik::ImageRef"; plain value types also by their ids.
inline constexpr Id kDataTypeRegistry{"net.orvik.image.registry.datatypes"};

/// One entry of these registries.
class DeclarationInterface : public virtual Object {
    ORVIK_INTERFACE(DeclarationInterface, "net.orvik.image.interface.declaration");

public:
    /// A key's id, an interface's reference name ("orvik.MediaStreamInterface"), a data type's name.
    virtual std::string_view GetName() const { return Unbound(); }
    /// What is stored under the key, or the data type; null for an interface.
    virtual const DataType* GetDataType() const { return Unbound(); }
};
using DeclarationRef = Ref<DeclarationInterface>;

}  // namespace orvik
