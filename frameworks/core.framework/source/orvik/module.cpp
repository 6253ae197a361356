#include "orvik/module.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <mutex>
#include <new>
#include <unistd.h>

#include "orvik/fileformat.h"
#include "orvik/iofile_internal.h"

namespace orvik {

namespace {

namespace fs = std::filesystem;

constexpr Id kOwnFramework{"net.orvik.core.framework"};

/// The loaded modules of the process and their resource directories; never destroyed.
struct ModuleTable {
    std::mutex mutex;
    BaseArray<const ModuleLink*> loaded;
    HashMap<Id, Url> resources;
};

ModuleTable& GetTable() {
    static Immortal<ModuleTable> table;
    return *table;
}

bool IsThere(const BaseArray<const ModuleLink*>& loaded, std::string_view framework) {
    if (framework == kOwnFramework.GetText())
        return true;
    for (const ModuleLink* link : loaded) {
        if (framework == link->frameworkId || framework == link->moduleId)
            return true;
    }
    return false;
}

/// What the host puts into the link records. The publisher keeps the reference.
Object* ResolvePublished(const Id& id) { return FindPublishedObject(id).GetPointer(); }

/// The code of an error that a module made is unloaded with it. Its content is carried over.
Error CarryOver(const Error& error) {
    if (error->IsKindOf(errorid::kOutOfMemory))
        return OutOfMemoryError();
    Result<Id> id = Id::Create(error->GetErrorId().GetText());
    if (!id)
        return OutOfMemoryError();
    const SourceLocation here = SourceLocation::current();
    if (error->IsKindOf(errorid::kNullptr))
        return MakeError<NullptrErrorInterface>(*id, here, error->GetMessage());
    return MakeError<ErrorInterface>(*id, here, error->GetMessage());
}

/// @return a path relative to the program's directory; can throw for lack of memory
fs::path BesideProgram(const char* relative) {
    std::error_code ignored;  // without the link, relative to the working directory
    return (fs::read_symlink("/proc/self/exe", ignored).parent_path() / relative).lexically_normal();
}

Result<Url> FindDefaultResources() {
    return Url::FromSystemPath(BesideProgram("../share/orvik").native());  // the loader catches lack of memory
}

/// The loader's text without the file name in front, which the error carries anyway.
std::string LoaderText(const std::string& path) {
    const char* text = dlerror();
    std::string message = text ? text : "unknown error";
    if (message.starts_with(path + ": "))
        message.erase(0, path.size() + 2);
    return message;
}

}  // namespace

struct Module::State {
    Url url;
    Url resources;  ///< of the program
    Id id;          ///< of the module; a copy, which outlives the module's literals
    void* library = nullptr;
    ModuleLink* link = nullptr;
    bool started = false;
    Publisher publisher;

    ~State() {
        publisher.UndoAll();
        FileFormatDetectionCache::Flush();
        if (started && link->stop)
            link->stop();
        if (started) {
            ModuleTable& table = GetTable();
            const std::lock_guard guard(table.mutex);
            for (Int i = table.loaded.GetCount() - 1; i >= 0; --i) {
                if (table.loaded[i] == link)
                    table.loaded.Erase(i);
            }
            table.resources.Erase(id);
        }
        if (library)
            dlclose(library);
    }

    /// Claims the module for this state: each is started once.
    Result<void> Enlist() {
        ModuleTable& table = GetTable();
        const std::lock_guard guard(table.mutex);
        for (const ModuleLink* other : table.loaded) {
            if (other == link)
                return IllegalStateError("Module @ is already loaded.", url);
        }
        if (link->dependsOn && !IsThere(table.loaded, link->dependsOn))
            return UnresolvedError("Module @ depends on @, which is not there.", url, link->dependsOn);
        id = TRY(Id::Create(link->moduleId));
        TRY(table.loaded.Append(link));
        started = true;
        return {};
    }

    Result<void> RegisterResources() const {
        Url directory = resources.IsEmpty() ? TRY(FindDefaultResources()) : resources;
        TRY(directory.Append("modules"));
        TRY(directory.Append(link->fileName));
        return SetModuleResourceDirectory(id, directory);
    }

    Result<void> Start() {
        std::string path = url.GetSystemPath();
        if (url.GetScheme() != "file")
            return IoError(url, "cannot load a module from memory");
        if (path.find('/') == std::string::npos)
            path.insert(0, "./");  // a bare name would be looked for among the system's libraries
        library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!library)
            return IoError(url, "cannot load module: @", LoaderText(path));
        link = static_cast<ModuleLink*>(dlsym(library, "g_orvik"));
        if (!link || link->magic != ModuleLink::kMagic || !link->moduleId || !link->frameworkId || !link->fileName ||
            !link->start)
            return IllegalArgumentError("@ is not a module.", url);
        TRY(Enlist());
        link->resolve = ResolvePublished;
        if (auto* yield = static_cast<void (**)()>(dlsym(library, "g_CpuYieldDelegate")))
            *yield = DefaultCpuYield;
        TRY(link->start(publisher));
        return RegisterResources();
    }
};

Result<Module> Module::Load(const Url& url, const Url& resources) {
    auto* state = new (std::nothrow) State;
    if (!state)
        return OutOfMemoryError();
    Module module;
    module._state = state;
    state->url = url;
    state->resources = resources;
    try {
        if (Result<void> started = state->Start(); !started)
            return CarryOver(started.GetError());
    } catch (const std::bad_alloc&) {
        return OutOfMemoryError();
    }
    return module;
}

void Module::Unload() noexcept { delete std::exchange(_state, nullptr); }

Id Module::GetId() const { return _state ? _state->id : Id(); }

Int Module::GetRecordCount() const noexcept { return _state ? _state->publisher.GetRecordCount() : 0; }

Result<Url> FindModule(std::string_view fileName) {
    const auto isFile = [](const fs::path& path) {
        std::error_code error;
        return fs::is_regular_file(path, error);
    };
    try {
        if (const char* list = secure_getenv("ORVIK_MODULE_PATH")) {
            std::string_view rest(list);
            while (!rest.empty()) {
                const size_t colon = rest.find(':');
                const std::string_view directory = rest.substr(0, colon);
                rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
                const fs::path path = fs::path(directory) / fileName;
                if (!directory.empty() && isFile(path))
                    return Url::FromSystemPath(path.native());
            }
        }
        for (const char* directory : {"../modules", "../lib/orvik/modules"}) {
            const fs::path path = BesideProgram(directory) / fileName;
            if (isFile(path))
                return Url::FromSystemPath(path.native());
        }
    } catch (const std::bad_alloc&) {
        return OutOfMemoryError();
    }
    return IoError(Url::FromSystemPath(fileName), "cannot find module: @", ErrnoText(ENOENT));
}

Result<void> SetModuleResourceDirectory(const Id& moduleId, const Url& directory) {
    ModuleTable& table = GetTable();
    Id id = TRY(Id::Create(moduleId.GetText()));  // the entry outlives the module's literal
    const std::lock_guard guard(table.mutex);
    return table.resources.Set(std::move(id), directory);
}

Result<Url> GetModuleResourceDirectory(const Id& moduleId) {
    ModuleTable& table = GetTable();
    const std::lock_guard guard(table.mutex);
    if (const Url* directory = table.resources.Find(moduleId))
        return *directory;
    return UnresolvedError("Module @ has no resource directory.", moduleId);
}

}  // namespace orvik
