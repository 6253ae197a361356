#pragma once
/// @file
/// Base of all importers: phase order, source, streams, progress, and nested inputs.
///
///     FileImporter          phases, source, streams of any kind, jobs, nested inputs
///       ImageImporter       pictures, see media_io_imageimporter.h
///       AudioImporter       sound, see media_io_audioimporter.h

#include "imexport/frame/media_io_chunkedfileio.h"
#include "imexport/frame/media_io_formats.h"
#include "imexport/frame/media_io_nestedinput.h"
#include "session/mediasession_baseimpl.h"
#include "session/mediasession_streamimpl.h"

#include "orvik/mediasession_progress.h"

namespace orvik {

/// Base class of importers. A format supplies `ReadHeader` and `Deliver`.
///
/// `Analyze` may run again and starts over, unless the format forbids it. `Execute` runs once, or for formats with time
/// once per `PrepareExecute`; a further run is the end-of-stream error. Any other call out of order is an illegal
/// state.
class FileImporter : public virtual MediaInputInterface, public MediaInputBaseImpl {
public:
    void SetSourceUrl(const Url& url) { _url = url; }
    /// Reads from an open stream instead, from its current position on. For formats that embed others.
    void SetSourceStream(const InputStreamRef& stream);
    /// Number of enclosing inputs.
    Int GetNesting() const { return _nesting; }
    void SetNesting(Int level) { _nesting = level; }

    Bool SupportImportStrategy() const override { return true; }
    /// Capabilities come from the row of the format table.
    Result<Data> GetData(const Id& id) const override;
    Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    /// Drops streams, nested inputs and the source.
    Result<void> Close(Inputs inputs) override;

    /// Reports `done`, from 0 to 1, for a job and tests for cancellation. Progress never decreases: a smaller value
    /// only tests for cancellation.
    Result<void> ReportProgress(Int job, Float done);

protected:
    explicit FileImporter(const Id& format) : _entry(FindFileFormatEntry(format)) {}

    /// Reads everything up to the data and adds the streams. The stream is at the start of the file.
    virtual Result<void> ReadHeader(const InputStreamRef& stream) = 0;
    /// Registers the jobs. Runs only when a stream is subscribed.
    virtual Result<void> Prepare() { return {}; }
    /// Delivers the data of the subscribed streams. Nested inputs have been executed before.
    virtual Result<void> Deliver(const InputStreamRef& stream) = 0;
    /// Clears the results of an earlier `ReadHeader`.
    virtual void ResetHeader() {}
    virtual bool CanAnalyzeAgain() const { return true; }
    /// True for a format that delivers one sample per requested time.
    virtual bool HasTime() const { return false; }

    /// @{ Parameters of the current phase.
    TimeValue GetTargetTime() const { return _targetTime; }
    MEDIASESSIONFLAGS GetFlags() const { return _flags; }
    /// @}
    const Url& GetSourceUrl() const { return _url; }

    /// Adds a stream of any kind whose format is set: a root, or a child of `parent`.
    Result<void> AddStream(const MediaStreamRef& stream, const MediaStreamRef& parent = nullptr);
    /// True when a stream is subscribed that implements interface I.
    template <class I = MediaStreamInterface>
    Result<Bool> IsAnySubscribed() const {
        const BaseArray<MediaStreamRef> streams = TRY(GetOutputStreams(true));
        return std::any_of(streams.begin(), streams.end(),
                           [](const MediaStreamRef& stream) { return stream->IsSubscribed() && Cast<I>(stream); });
    }

    /// Takes over the streams of an analyzed nested input, as roots or below `parent`. Its later phases run with those
    /// of this input.
    /// @param change  adapts each format of its streams, for instance to a sub-image index; may be empty
    Result<void> Adopt(NestedInput&& nested, const NestedInput::FormatChange& change,
                       const MediaStreamRef& parent = nullptr);

    /// Registers a job, in `Prepare` or `Deliver`. A run for another time reuses the jobs.
    /// @param weight  share of the whole; pixels, for pictures
    Result<Int> AddJob(Float weight, const char* name);

private:
    enum class Phase : uint8_t { New, Analyzed, Prepared };
    struct Job {
        Int index = -1;  ///< in the session's progress
        Float weight = 0;
        Float done = 0;
    };

    Result<void> OpenSource();
    void BeginPhase(TimeValue targetTime, MEDIASESSIONFLAGS flags) {
        _targetTime = targetTime;
        _flags = flags;
    }
    Result<void> RunExecute();
    void Reset();

    const FileFormatEntry* _entry;
    Url _url;
    InputStreamRef _stream;
    Int _streamStart = 0;
    Bool _ownsStream = false;
    Int _nesting = 0;
    Phase _phase = Phase::New;
    Bool _analyzedOnce = false;
    Bool _executed = false;
    TimeValue _targetTime;
    MEDIASESSIONFLAGS _flags = MEDIASESSIONFLAGS::NONE;
    BaseArray<NestedInput> _nested;
    MediaSessionProgressRef _progress;  ///< held only while executing: the session owns this importer
    BaseArray<Job> _jobs;
    Int _jobsInUse = 0;  ///< of this run
};

}  // namespace orvik
