#pragma once
/// @file
/// Factories: what makes objects from settings, published under an id by whoever has it.

#include "orvik/datadictionary.h"
#include "orvik/registrybase.h"

namespace orvik {

class FactoryInterface : public virtual Object {
    ORVIK_INTERFACE(FactoryInterface, "net.orvik.interface.factory");

public:
    virtual Result<ObjectRef> Create(const DataDictionary& settings) const {
        (void)settings;
        return Unbound();
    }
};

/// Makes an object by the factory of an id, which need not be there: a host publishes what it has.
/// @return the unresolved error "Factory is nullptr." without the factory, the unexpected error for an object that
/// lacks the interface
template <class I>
Result<Ref<I>> CreateByFactory(const Id& id, const DataDictionary& settings = {}) {
    const Ref<FactoryInterface> factory = FindPublished<FactoryInterface>(id);
    if (!factory)
        return UnresolvedError("Factory is nullptr.");
    const ObjectRef object = TRY(factory->Create(settings));
    Ref<I> seen = Cast<I>(object);
    if (!seen)
        return UnexpectedError("Factory @ does not make @.", id, I::kReferenceName);
    return seen;
}

}  // namespace orvik
