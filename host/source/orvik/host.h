#pragma once
/// @file
/// A host for programs that bring none of their own: it publishes the host's services and loads modules.

#include <memory>

#include "orvik/module.h"

namespace orvik {

/// File names of the modules that a host loads by default.
inline constexpr std::string_view kDefaultModules[] = {"image.module"};

struct HostOptions {
    /// File names, loaded in this order.
    Block<const std::string_view> modules = kDefaultModules;
    /// Where the program keeps its resources; those of a module are below it in "modules/FILENAME" (see
    /// `GetModuleResourceDirectory`). Empty: "../share/orvik" beside the program.
    Url resourceDirectory = {};
};

/// Services and modules, from `Start` to destruction. Every object that came from a module must be gone before that.
/// What is published belongs to the whole process, so there is one host at a time: while one lives, another start is an
/// illegal state error and leaves the first alone; when it has ended, the next can start.
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
