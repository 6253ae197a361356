#include "orvik/host.h"

#include <atomic>
#include <dlfcn.h>

#include "orvik/exifservice.h"
#include "orvik/regionobservable.h"
#include "orvik/zipconversion.h"

namespace orvik {

namespace {

std::atomic<bool> g_isRunning{false};

}  // namespace

/// Exists once in a process.
struct Host::State {
    Publisher services;
    BaseArray<Module> modules;
    BaseArray<String> missing;

    ~State() {
        while (!modules.IsEmpty())
            modules.Pop();
        services.UndoAll();
        g_isRunning = false;
    }
};

namespace {

/// Where a module lies when it is not beside the program: an installation ("lib/orvik/modules") or a build tree
/// ("lib", "modules"), as seen from this library.
Result<Url> FindModuleBesideLibrary(std::string_view fileName) {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<const void*>(&FindModuleBesideLibrary), &info) || !info.dli_fname)
        return UnresolvedError("@ was not found.", fileName);
    const Url directory = Url(std::string_view(info.dli_fname)).GetDirectory();
    for (const std::string_view way : {"orvik/modules", "../modules"}) {
        Url url = directory;
        TRY(url.Append(way));
        TRY(url.Append(fileName));
        if (url.IoDetect() == IODETECT::FILE)
            return url;
    }
    return UnresolvedError("@ was not found.", fileName);
}

}  // namespace

Host::Host(std::unique_ptr<State> state) noexcept : _state(std::move(state)) {}
Host::Host(Host&&) noexcept = default;
Host& Host::operator=(Host&&) noexcept = default;
Host::~Host() = default;

Result<Host> Host::Start(const HostOptions& options) {
    if (g_isRunning.exchange(true))
        return IllegalStateError("A host is running in this process already.");
    std::unique_ptr<State> state(new (std::nothrow) State);
    if (!state) {
        g_isRunning = false;
        return OutOfMemoryError();
    }
    TRY(PublishRegionObservable(state->services));
    TRY(PublishExif(state->services));
    TRY(PublishZipConversions(state->services));
    for (const std::string_view name : options.modules) {
        Result<Url> url = FindModule(name);
        if (!url)
            url = FindModuleBesideLibrary(name);
        if (url) {
            Module module = TRY(Module::Load(*url, options.resourceDirectory));
            TRY(state->modules.Append(std::move(module)));
        } else {
            TRY(state->missing.Append(String(name)));
        }
    }
    return Host(std::move(state));
}

Int Host::GetModuleCount() const noexcept { return _state ? _state->modules.GetCount() : 0; }

Block<const String> Host::GetMissingModules() const noexcept {
    return _state ? std::as_const(_state->missing).ToBlock() : Block<const String>();
}

}  // namespace orvik
