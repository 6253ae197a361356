#include "imexport/frame/media_io_importer.h"

namespace orvik {

void FileImporter::SetSourceStream(const InputStreamRef& stream) {
    _stream = stream;
    _streamStart = stream ? stream->GetPosition() : 0;
    _ownsStream = false;
}

Result<Data> FileImporter::GetData(const Id& id) const {
    if (_entry && id == mediacapability::kInputSupportsImage.GetId() && _entry->input.image)
        return Data(true);
    if (_entry && id == mediacapability::kInputSupportsVideo.GetId())
        return Data(Bool(_entry->input.video));
    if (_entry && id == mediacapability::kInputSupportsAudio.GetId() && _entry->input.audio)
        return Data(true);
    return MediaConverterBaseImpl::GetData(id);
}

Result<void> FileImporter::Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(RequireNoInputs(inputs));
    if (_analyzedOnce && !CanAnalyzeAgain())
        return IllegalStateError();
    _analyzedOnce = true;
    Reset();
    BeginPhase(targetTime, flags);
    TRY(OpenSource());
    TRY(ReadHeader(_stream));
    _phase = Phase::Analyzed;
    return {};
}

Result<void> FileImporter::OpenSource() {
    if (!_stream) {
        _stream = TRY(_url.OpenInputStream());
        _streamStart = 0;
        _ownsStream = true;
    }
    return _stream->Seek(_streamStart);
}

Result<void> FileImporter::PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(RequireNoInputs(inputs));
    if (_phase == Phase::New)
        return IllegalStateError();
    BeginPhase(targetTime, flags);
    _jobsInUse = 0;
    if (HasTime())
        _executed = false;
    const Bool isWanted = TRY(IsAnySubscribed());
    if (isWanted)
        TRY(Prepare());
    for (const NestedInput& nested : _nested)
        TRY(nested.PrepareExecute(targetTime, flags));
    _phase = Phase::Prepared;
    return {};
}

Result<void> FileImporter::Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(RequireNoInputs(inputs));
    if (_executed)
        return MediaStreamEOFError();
    if (_phase != Phase::Prepared)
        return IllegalStateError();
    _executed = true;
    BeginPhase(targetTime, flags);
    const Bool isWanted = TRY(IsAnySubscribed());
    if (!isWanted)
        return {};
    _progress = GetSessionProgress();
    Result<void> executed = RunExecute();
    _progress = nullptr;
    return executed;
}

Result<void> FileImporter::RunExecute() {
    for (const NestedInput& nested : _nested)
        TRY(nested.Execute(GetTargetTime(), GetFlags()));
    TRY(Deliver(_stream));
    for (Int i = 0; i < _jobsInUse; ++i)
        TRY(ReportProgress(i, 1.0));
    return {};
}

Result<void> FileImporter::Close(Inputs inputs) {
    TRY(RequireNoInputs(inputs));
    Result<void> first;
    for (const NestedInput& nested : _nested)
        KeepFirstError(first, nested.Close());
    Reset();
    if (const InputStreamRef stream = std::exchange(_stream, nullptr); stream && _ownsStream)
        KeepFirstError(first, stream->Close());
    return first;
}

void FileImporter::Reset() {
    _phase = Phase::New;
    _executed = false;
    ResetOutputStreams();
    _nested.Reset();
    _jobs.Reset();
    _jobsInUse = 0;
    ResetHeader();
}

Result<void> FileImporter::AddStream(const MediaStreamRef& stream, const MediaStreamRef& parent) {
    if (parent)
        return parent->AddChild(MediaStreamInterface::kChildBranch, stream);
    return AddOutputStream(stream);
}

Result<void> FileImporter::Adopt(NestedInput&& nested, const NestedInput::FormatChange& change,
                                 const MediaStreamRef& parent) {
    const BaseArray<MediaStreamRef> roots = TRY(nested.TakeStreams(change));
    for (const MediaStreamRef& root : roots)
        TRY(AddStream(root, parent));
    return _nested.Append(std::move(nested));
}

Result<Int> FileImporter::AddJob(Float weight, const char* name) {
    if (_jobsInUse == _jobs.GetCount() || _jobs[_jobsInUse].weight != weight) {
        const Int index = TRY(GetSessionProgress()->AddProgressJob(weight, name));
        while (_jobs.GetCount() > _jobsInUse)
            _jobs.Pop();
        TRY(_jobs.Append(Job{index, weight, 0}));
    }
    _jobs[_jobsInUse].done = 0;
    return _jobsInUse++;
}

Result<void> FileImporter::ReportProgress(Int job, Float done) {
    if (job < 0 || job >= _jobsInUse)
        return IllegalStateError();
    _jobs[job].done = std::max(_jobs[job].done, done);
    return _progress->SetProgressAndCheckBreak(_jobs[job].index, _jobs[job].done);
}

}  // namespace orvik
