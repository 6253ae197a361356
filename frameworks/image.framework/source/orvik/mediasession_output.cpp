#include "orvik/mediasession_output.h"

#include "orvik/crashreport.h"
#include "orvik/iomemory.h"

namespace orvik {

namespace {

constexpr TimeValue kFirstProgressDelay = TimeValue::FromSeconds(0.25);
constexpr TimeValue kProgressInterval = TimeValue::FromSeconds(0.1);

/// Counts the imports that run inside one another on this thread: an input may import a file that its own file names,
/// and a chain of such files must end.
class ImportNesting {
public:
    ImportNesting() noexcept { ++_depth; }
    ~ImportNesting() { --_depth; }
    ImportNesting(const ImportNesting&) = delete;
    ImportNesting& operator=(const ImportNesting&) = delete;

    static constexpr Int kMaxNestedImports = 4;
    static bool IsTooDeep() noexcept { return _depth > kMaxNestedImports + 1; }

private:
    static inline thread_local Int _depth = 0;
};

/// One import: what each attempt with a handler needs, and the session of the last one.
struct Import {
    TimeValue targetTime;
    MEDIASESSIONFLAGS flags;
    const MediaOutputRef& output;
    const SelectionDelegate& selection;
    const ProgressDelegate& progress;
    const MediaSessionFileFormatHandler& preferredHandler;
    bool secondPass = false;  ///< the preferred handler has had its turn
    MediaSessionRef session = nullptr;

    /// @return false to go on with the next handler; an error ends the import
    Result<Bool> Attempt(const Url& url, const FileFormatHandler& handler) {
        if (secondPass && handler == FileFormatHandler(preferredHandler))
            return false;
        Result<void> converted = Convert(url, handler);
        if (!converted) {
            session = nullptr;
            return std::move(converted).TakeError();
        }
        return true;
    }

private:
    Result<void> Convert(const Url& url, const FileFormatHandler& handler) {
        const MediaConverterRef input = Cast<MediaConverterInterface>(TRY(handler->CreateHandler(url)));
        TRY(output->ResetConverter());
        TRY(output->SetSelectionHandler(selection));
        session = TRY(ClassRef(mediaclasses::kSession).Create<MediaSessionInterface>());
        TRY(session->ConnectMediaConverter(input, output));
        if (progress) {
            const MediaSessionProgressRef reporter = session->GetProgress();
            TRY(reporter->InitProgress(kFirstProgressDelay, kProgressInterval));
            if (ProgressObservable* observable = reporter->ObservableProgressNotification())
                TRY(observable->AddObserver(progress));
        }
        return session->Convert(targetTime, flags);
    }
};

}  // namespace

Result<MediaSessionRef> MediaSessionImport(const Url& url, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                           const MediaOutputRef& output, const SelectionDelegate& selection,
                                           const ProgressDelegate& progress,
                                           const MediaSessionFileFormatHandler& preferredHandler) {
    const CrashReportProperty urlProperty("MediaSessionImport", url.ToString());
    const CrashReportProperty timeProperty("MediaSessionImportTime", targetTime.ToString());
    const CrashReportProperty flagsProperty("MediaSessionImportFlags", FormatString("@", flags));
    const ImportNesting nesting;
    if (ImportNesting::IsTooDeep())
        return IllegalStateError("Image @ is nested more than @ files deep.", url, ImportNesting::kMaxNestedImports);

    const Url source = TRY(ReadUnseekable(url));  // the preferred handler, detection and the importer each read it
    Import import{targetTime, flags, output, selection, progress, preferredHandler};
    bool accepted = false;
    if (preferredHandler) {
        accepted = TRY(import.Attempt(source, preferredHandler));
        import.secondPass = !accepted;
    }
    if (!accepted) {
        const DataType* const wanted[] = {&GetDataType<MediaInputRef>()};
        const HandlerDelegate attempt = [&import](const Url& detected, const FileFormatHandler& handler) {
            return import.Attempt(detected, handler);
        };
        accepted = !TRY(FileFormatDetection::DetectAll(source, wanted, attempt)).IsEmpty();
    }
    if (!accepted || !import.session)
        return IllegalArgumentError("Image @ is not of a supported type.", url);
    return std::move(import.session);
}

namespace {

template <class F>
MediaSessionFileFormatHandler FindHandler(F&& matches) {
    for (const Registry::Entry& entry : Registry::GetEntries(kFileFormatHandlerRegistry)) {
        MediaSessionFileFormatHandler handler = Cast<MediaSessionFileFormatHandlerInterface>(entry.object);
        if (handler && matches(handler->GetFileFormat()))
            return handler;
    }
    return nullptr;
}

}  // namespace

MediaSessionFileFormatHandler FindHandlerByFormat(const Id& formatId) {
    return FindHandler([&](const FileFormat& format) { return format && format->GetFormatId() == formatId; });
}

MediaSessionFileFormatHandler FindHandlerBySuffix(std::string_view suffix) {
    return FindHandler([&](const FileFormat& format) {
        const Block<const std::string_view> suffixes = format->GetSuffixes();
        return std::find(suffixes.begin(), suffixes.end(), suffix) != suffixes.end();
    });
}

}  // namespace orvik
