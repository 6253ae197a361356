#include "session/mediasession_outputconverter_baseimpl.h"

#include "base/registration.h"

namespace orvik {

Result<void> MediaOutputBaseImpl::SetSelectionHandler(const SelectionDelegate& handler) {
    _selection = handler;
    return {};
}

Result<SELECTIONHANDLERRESULT> MediaOutputBaseImpl::CallSelectionHandler(const MediaStreamRef& stream,
                                                                         const MediaStreamFormat& format) {
    if (!_selection)
        return SELECTIONHANDLERRESULT::ALL;
    return _selection(stream, format);
}

Result<MediaConverterRef> MediaOutputBaseImpl::GetOnlyInput(Inputs inputs, SourceLocation where) {
    if (inputs.size() != 1)
        return MakeStandardError(where, 3);
    return inputs[0];
}

Result<void> MediaOutputBaseImpl::AnalyzeInput(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                               SourceLocation where) {
    const MediaConverterRef input = TRY(GetOnlyInput(inputs, where));
    const BaseArray<MediaConverterRef> feeding = TRY(input->GetInputConverter());
    return input->Analyze(feeding.ToBlock(), targetTime, flags);
}

Result<void> MediaOutputBaseImpl::PrepareExecuteInput(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                                      SourceLocation where) {
    const MediaConverterRef input = TRY(GetOnlyInput(inputs, where));
    const BaseArray<MediaConverterRef> feeding = TRY(input->GetInputConverter());
    return input->PrepareExecute(feeding.ToBlock(), targetTime, flags);
}

Result<void> MediaOutputBaseImpl::ExecuteInput(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags,
                                               SourceLocation where) {
    const MediaConverterRef input = TRY(GetOnlyInput(inputs, where));
    const BaseArray<MediaConverterRef> feeding = TRY(input->GetInputConverter());
    return input->Execute(feeding.ToBlock(), targetTime, flags);
}

Result<void> MediaOutputBaseImpl::CloseInputs(Inputs inputs) {
    for (const MediaConverterRef& input : inputs) {
        if (!input)
            continue;
        const BaseArray<MediaConverterRef> feeding = TRY(input->GetInputConverter());
        TRY(input->Close(feeding.ToBlock()));
    }
    return {};
}

Result<void> RegisterMediaSessionOutputConverterBase(Publisher& publisher) {
    return publisher.PublishClass<MediaOutputBaseImpl>(mediaclasses::kOutputBase);
}

}  // namespace orvik
