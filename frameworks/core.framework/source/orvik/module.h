#pragma once
/// @file
/// Modules: shared objects that publish classes. A module exports `g_orvik` and `g_CpuYieldDelegate` and nothing else.

#include "orvik/registrybase.h"

namespace orvik {

/// The link record of a module. The order of its words is part of the contract: the sixth is the function by which
/// the host resolves a declared entity on demand.
struct ModuleLink {
    static constexpr uint64_t kMagic = 0x314b4e494c564f52;  // "ROVLINK1", little endian
    uint64_t magic;                                         ///< word 1
    const char* frameworkId;                                ///< word 2: for instance "net.orvik.image"
    const char* moduleId;                                   ///< word 3: for instance "net.orvik.image.module"
    const char* dependsOn;                                  ///< word 4: framework that must be there
    const char* fileName;                                   ///< word 5: for instance "image.module"
    Object* (*resolve)(const Id& id);                       ///< word 6: set by the host before `start`
    Result<void> (*start)(Publisher& publisher);            ///< word 7: publishes everything
    void (*stop)();                                         ///< word 8: drops what the module still holds
};

/// A loaded module. Unloading undoes its records in reverse order, then closes the library. Objects of the module must
/// be destroyed before.
class ORVIK_API Module {
public:
    Module() = default;
    Module(Module&& other) noexcept : _state(std::exchange(other._state, nullptr)) {}
    Module& operator=(Module&& other) noexcept {
        std::swap(_state, other._state);
        return *this;
    }
    ~Module() { Unload(); }

    /// Opens and starts a module. Errors: io error when it cannot be opened, illegal argument when it is no module,
    /// illegal state when it is loaded already, unresolved when the framework that it depends on is not there, the
    /// module's own error when its start fails (nothing stays published then).
    /// @param resources  the program's resource directory; an empty URL is "../share/orvik" beside the program. The
    ///                   module's own one is "modules/FILENAME" below it, registered until the module is unloaded
    static Result<Module> Load(const Url& url, const Url& resources = {});
    void Unload() noexcept;
    explicit operator bool() const noexcept { return _state != nullptr; }
    Id GetId() const;
    Int GetRecordCount() const noexcept;

private:
    struct State;
    State* _state = nullptr;
};

/// Directories in which a host looks for "modules/NAME": the environment variable ORVIK_MODULE_PATH first, then
/// beside the program ("../modules", "../lib/orvik/modules").
ORVIK_API Result<Url> FindModule(std::string_view fileName);

/// The directory of a module's resources, by the module's id ("net.orvik.image.module"). It need not exist. Unresolved
/// when the module is not loaded.
ORVIK_API Result<Url> GetModuleResourceDirectory(const Id& moduleId);
/// Puts the resources of a loaded module elsewhere.
ORVIK_API Result<void> SetModuleResourceDirectory(const Id& moduleId, const Url& directory);

}  // namespace orvik

/// What a module exports.
extern "C" {
extern orvik::ModuleLink g_orvik;
extern void (*g_CpuYieldDelegate)();
}
