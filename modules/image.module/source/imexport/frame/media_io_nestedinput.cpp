#include "imexport/frame/media_io_nestedinput.h"

#include "imexport/frame/media_io_importer.h"

#include "orvik/mediasession_output.h"

namespace orvik {

Result<NestedInput> NestedInput::Open(const FileImporter& owner, const Id& format, const Url& url) {
    return Start(owner, FileFormatHandler(FindHandlerByFormat(format)), url, nullptr);
}

Result<NestedInput> NestedInput::Open(const FileImporter& owner, const Id& format, const InputStreamRef& stream) {
    return Start(owner, FileFormatHandler(FindHandlerByFormat(format)), stream->GetUrl(), stream);
}

Result<NestedInput> NestedInput::Open(const FileImporter& owner, const FileFormatHandler& handler, const Url& url) {
    return Start(owner, handler, url, nullptr);
}

Result<NestedInput> NestedInput::Start(const FileImporter& owner, const FileFormatHandler& handler, const Url& url,
                                       const InputStreamRef& stream) {
    if (!handler)
        return UnresolvedError();
    if (owner.GetNesting() >= kMaxNesting)
        return MediaSessionWrongTypeError("Files are nested more than @ deep.", kMaxNesting);
    const ObjectRef made = TRY(handler->CreateHandler(url));
    NestedInput nested;
    nested._input = Cast<MediaConverterInterface>(made);
    if (!nested._input)
        return NullptrError();
    if (auto* importer = dynamic_cast<FileImporter*>(made.GetPointer())) {
        importer->SetNesting(owner.GetNesting() + 1);
        if (stream)
            importer->SetSourceStream(stream);
    } else if (stream) {
        return UnsupportedOperationError();  // an importer of another module reads URLs only
    }
    if (const MediaSessionRef session = owner.GetSession())
        TRY(nested._input->ConnectToSession(session));
    TRY(nested._input->Analyze({}, TimeValue(), MEDIASESSIONFLAGS::NONE));
    return nested;
}

Result<BaseArray<MediaStreamRef>> NestedInput::TakeStreams(const FormatChange& change) const {
    BaseArray<MediaStreamRef> roots = TRY(_input->GetOutputStreams(false));
    if (!change)
        return roots;
    const BaseArray<MediaStreamRef> streams = TRY(_input->GetOutputStreams(true));
    for (const MediaStreamRef& stream : streams) {
        const BaseArray<MediaStreamFormatEntry> formats = TRY(stream->GetFormats());
        for (const MediaStreamFormatEntry& entry : formats) {
            MediaStreamFormat format = entry.format;
            TRY(change(format));
            TRY(stream->AddFormat(entry.id, format));
        }
    }
    return roots;
}

Result<void> NestedInput::PrepareExecute(TimeValue targetTime, MEDIASESSIONFLAGS flags) const {
    return _input->PrepareExecute({}, targetTime, flags);
}

Result<void> NestedInput::Execute(TimeValue targetTime, MEDIASESSIONFLAGS flags) const {
    return _input->Execute({}, targetTime, flags);
}

Result<void> NestedInput::Close() const { return _input->Close({}); }

}  // namespace orvik
