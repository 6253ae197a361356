// A small module of its own that needs the image module: published beside it, and undone before it.
#include "orvik/module.h"

namespace {

using namespace orvik;

constexpr Id kFirst{"net.orvik.test.second.class.first"}, kLast{"net.orvik.test.second.class.last"};

class Thing : public virtual Object {
    ORVIK_INTERFACE(Thing, "net.orvik.test.second.interface.thing");
};

Result<void> Start(Publisher& publisher) {
    TRY(publisher.PublishClass<Thing>(kFirst));
    return publisher.PublishClass<Thing>(kLast);
}

}  // namespace

extern "C" {

ORVIK_API orvik::ModuleLink g_orvik = {
    .magic = orvik::ModuleLink::kMagic,
    .frameworkId = "net.orvik.test.second",
    .moduleId = "net.orvik.test.second.module",
    .dependsOn = "net.orvik.image",
    .fileName = "second.module",
    .resolve = nullptr,
    .start = Start,
    .stop = nullptr,
};

ORVIK_API void (*g_CpuYieldDelegate)() = nullptr;
}
