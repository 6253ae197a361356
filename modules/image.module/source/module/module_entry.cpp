// What the module shows to the outside: its link record and the slot for the host's yield function.
#include "module/module_start.h"

#include "orvik/module.h"

namespace {

using namespace orvik;

constexpr Id kModuleId{"net.orvik.image.module"};

}  // namespace

extern "C" {

ORVIK_API orvik::ModuleLink g_orvik = {
    .magic = orvik::ModuleLink::kMagic,
    .frameworkId = "net.orvik.image",
    .moduleId = kModuleId.GetCString(),
    .dependsOn = "net.orvik.core.framework",
    .fileName = "image.module",
    .resolve = nullptr,
    .start = StartImageModule,
    .stop = nullptr,
};

ORVIK_API void (*g_CpuYieldDelegate)() = nullptr;
}
