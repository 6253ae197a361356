#pragma once
// The two symbols of a module, for tests.

#include "orvik/datadictionaryobject.h"
#include "orvik/module.h"

namespace orvik {

/// Publishes a class, an object and a registry entry. The object holds what the module found in its slots.
inline Result<void> PublishTestRecords(Publisher& publisher, bool slotsFilled) {
    TRY(publisher.PublishClass<DataDictionaryObjectInterface>("net.orvik.test.module.class"));
    Ref<DataDictionaryObjectInterface> object = TRY(NewObj<DataDictionaryObjectInterface>());
    TRY(publisher.PublishObject("net.orvik.test.module.object", object));
    const bool resolves = g_orvik.resolve && g_orvik.resolve("net.orvik.test.module.object") == object.GetPointer() &&
                          !g_orvik.resolve("net.orvik.test.none");
    TRY(object->Set(Key<Int>("net.orvik.test.slots"), (resolves ? 1 : 0) + (slotsFilled ? 2 : 0)));
    return publisher.AddToRegistry("net.orvik.test.module.registry", "net.orvik.test.module.entry", object);
}

}  // namespace orvik

#define ORVIK_TEST_MODULE(MODULE_ID, DEPENDS_ON, START)                                                              \
    extern "C" {                                                                                                     \
    ORVIK_API orvik::ModuleLink g_orvik = {                                                                          \
        orvik::ModuleLink::kMagic, "net.orvik.test", MODULE_ID, DEPENDS_ON, "good.module", nullptr, START, nullptr}; \
    ORVIK_API void (*g_CpuYieldDelegate)() = nullptr;                                                                \
    }
