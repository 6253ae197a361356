#pragma once
/// @file
/// What outputs inherit: the selection handler, and the calls by which an output drives the one input that feeds it.

#include "session/mediasession_baseimpl.h"

namespace orvik {

/// Base of the texture output and of the exporters. An output overrides `ResetConverter`, one of the two strategy
/// answers, and the four phases; each of its phases drives its input through the protected calls below.
class MediaOutputBaseImpl : public virtual MediaOutputInterface, public MediaConverterBaseImpl {
public:
    Result<void> SetSelectionHandler(const SelectionDelegate& handler) override;
    SelectionDelegate GetSelectionHandler() const override { return _selection; }
    Result<SELECTIONHANDLERRESULT> CallSelectionHandler(const MediaStreamRef& stream,
                                                        const MediaStreamFormat& format) override;

protected:
    /// @return the input, or illegal state unless there is exactly one
    static Result<MediaConverterRef> GetOnlyInput(Inputs inputs, SourceLocation where = SourceLocation::current());
    /// @{ One phase of the only input, with the converters that feed it in turn. Illegal state unless there is exactly
    /// one input, else the input's own error.
    static Result<void> AnalyzeInput(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                     SourceLocation where = SourceLocation::current());
    static Result<void> PrepareExecuteInput(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                            SourceLocation where = SourceLocation::current());
    static Result<void> ExecuteInput(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                     SourceLocation where = SourceLocation::current());
    /// @}
    /// Closes every input that is there; the first error ends it.
    static Result<void> CloseInputs(Inputs inputs);

private:
    SelectionDelegate _selection;
};

}  // namespace orvik
