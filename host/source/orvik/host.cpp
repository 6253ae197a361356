#include "orvik/host.h"

#include <dlfcn.h>

#include "orvik/exifservice.h"
#include "orvik/regionobservable.h"

namespace orvik {

struct Host::State {
    Publisher services;
    BaseArray<Module> modules;
    BaseArray<String> missing;

    ~State() {
        while (!modules.IsEmpty())
            modules.Pop();
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
    std::unique_ptr<State> state(new (std::nothrow) State);
    if (!state)
        return OutOfMemoryError();
    TRY(PublishRegionObservable(state->services));
    TRY(PublishExif(state->services));
    for (const std::string_view name : options.modules) {
        Result<Url> url = FindModule(name);
        if (!url)
            url = FindModuleBesideLibrary(name);
        if (url)
            TRY(state->modules.Append(TRY(Module::Load(url.GetValue()))));
        else
            TRY(state->missing.Append(String(name)));
    }
    return Host(std::move(state));
}

Int Host::GetModuleCount() const noexcept { return _state ? _state->modules.GetCount() : 0; }

Block<const String> Host::GetMissingModules() const noexcept {
    return _state ? std::as_const(_state->missing).ToBlock() : Block<const String>();
}

}  // namespace orvik
