#pragma once
/// @file
/// What media objects and converters inherit. Everything here is meant to be derived from:
///
///     MediaBaseImpl                      link to the session
///       MediaStreamBaseImpl ...          streams, see mediasession_streamimpl.h
///       MediaConverterBaseImpl           root streams, input converters, capability answers
///         MediaInputBaseImpl             importers and the export from a texture
///         MediaOutputBaseImpl            see mediasession_outputconverter_baseimpl.h
///           MediaOutputUrlBaseImpl       exporters, see mediasession_urloutput.h
///
/// A class lists the interface it implements as a virtual base and the implementation it builds on as an ordinary one:
/// `class BmpImport : public virtual MediaInputInterface, public MediaInputBaseImpl`. A super call is an ordinary call
/// of the base: `MediaConverterBaseImpl::GetData(id)`.

#include "orvik/mediasession_converter.h"
#include "orvik/mediasession_session.h"

namespace orvik {

/// The weak link from a media object to its session.
class MediaBaseImpl : public virtual MediaBaseInterface {
public:
    /// Null pointer error for a null session, illegal state while a live session is bound, this one included. The link
    /// to a session that has gone is replaced.
    Result<void> ConnectToSession(const MediaSessionRef& session) override;
    MediaSessionRef GetSession() const override { return _session.Get(); }

private:
    WeakRef<MediaSessionInterface> _session;
};

/// The part of a converter that has nothing to do with its files or textures. The four phases (`Analyze`,
/// `PrepareExecute`, `Execute`, `Close`) are not here: every converter brings its own, and what it lacks answers the
/// function-not-implemented error.
class MediaConverterBaseImpl : public virtual MediaConverterInterface, public MediaBaseImpl {
public:
    /// What the session lists as this converter's inputs. Null pointer error without a session.
    Result<BaseArray<MediaConverterRef>> GetInputConverter() const override;
    Result<void> AddOutputStream(const MediaStreamRef& stream) override { return _streams.Append(stream); }
    /// Leaves the streams as they are: a stream lives as long as its converter.
    Result<void> RemoveOutputStream(const MediaStreamRef& stream) override { return {}; }
    Result<BaseArray<MediaStreamRef>> GetOutputStreams(Bool flat) const override;

    /// Answers false for the capabilities that say which kinds of data a converter supports. Importers and exporters
    /// override it for what they can do and pass any other key on to here.
    Result<Data> GetData(const Id& id) const override;

protected:
    /// Drops all root streams, for a converter that starts afresh.
    void ResetOutputStreams() noexcept { _streams.Reset(); }
    Block<const MediaStreamRef> GetRootStreams() const noexcept { return _streams.ToBlock(); }
    /// The progress of the session. Without a session the reference answers every call with the null pointer error.
    MediaSessionProgressRef GetSessionProgress() const { return GetSession()->GetProgress(); }

private:
    BaseArray<MediaStreamRef> _streams;
};

/// Base of inputs. Importers override `SupportImportStrategy` to true; the export from a texture overrides
/// `SupportExportStrategy` to true.
class MediaInputBaseImpl : public virtual MediaInputInterface, public MediaConverterBaseImpl {
protected:
    /// The test with which each phase of an importer begins: an importer reads a file, so nothing feeds it.
    /// @return illegal state when there are input converters
    static Result<void> RequireNoInputs(Inputs inputs, SourceLocation where = SourceLocation::current());
};

}  // namespace orvik
