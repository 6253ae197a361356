#pragma once
/// @file
/// A host for programs that bring none of their own: it publishes the host's services and loads modules.

#include <memory>

#include "orvik/module.h"

namespace orvik {

/// File names of the modules that a host loads when it is told nothing else.
inline constexpr std::string_view kDefaultModules[] = {"image.module"};

struct HostOptions {
    /// File names, loaded in this order.
    Block<const std::string_view> modules = kDefaultModules;
};

/// Services and modules, from `Start` to destruction. One host at a time in a process; every object that came from a
/// module must be gone before it ends.
///
/// @code
/// Host host = TRY(Host::Start());
/// ImageTextureRef picture = TRY(ImageTextureInterface::LoadTexture(Url("a.png"), {}, MEDIASESSIONFLAGS::NONE, {},
/// {}));
/// @endcode
class ORVIK_API Host {
public:
    /// Publishes the services and loads each module that is found: in ORVIK_MODULE_PATH, beside the program, beside
    /// this library. A module that is not there is no error here; what it would have published answers with unresolved
    /// errors. A module that is there and does not start is an error, and everything is taken back.
    static Result<Host> Start(const HostOptions& options = {});

    Host(Host&&) noexcept;
    Host& operator=(Host&&) noexcept;
    /// Unloads the modules, last first, then takes the services back.
    ~Host();

    Int GetModuleCount() const noexcept;
    /// Names that were asked for and not found.
    Block<const String> GetMissingModules() const noexcept;

private:
    struct State;
    explicit Host(std::unique_ptr<State> state) noexcept;

    std::unique_ptr<State> _state;
};

}  // namespace orvik
