#include "orvik/streamconversion.h"

namespace orvik {

namespace {

Error EndsTooEarly() { return FileFormatError("The data to convert end too early."); }

/// Reads through two windows: one of source bytes, one of converted bytes.
class ConvertedInputStream : public InputStreamInterface {
public:
    ConvertedInputStream(StreamConversionRef conversion, InputStreamRef source)
        : _conversion(std::move(conversion)), _source(std::move(source)) {}
    Result<void> Construct() {
        constexpr Int kWindowSize = Int(64) << 10;
        constexpr RESIZEFLAGS kFlags = RESIZEFLAGS::FIT_TO_SIZE | RESIZEFLAGS::UNINITIALIZED;
        TRY(_converted.Resize(kWindowSize, kFlags));
        TRY(_buffer.Resize(kWindowSize, kFlags));
        return _conversion->Reset();
    }

    Url GetUrl() const override { return _source->GetUrl(); }
    Result<Int> GetStreamLength() override { return IoError(GetUrl(), "the length of this stream is not known"); }
    Bool SeekSupported() const override { return false; }
    Result<void> Close() override {  // the source belongs to the caller
        SetWindow(GetPosition(), nullptr, 0);
        _finished = true;
        return {};
    }

protected:
    Result<void> FillWindow(Int position) override {
        Int count = 0;
        while (count == 0 && !_finished) {
            if (_rest.empty() && !_sourceEnded) {
                const Int got = TRY(_source->ReadEOS(_buffer.ToBlock()));
                _sourceEnded = got < _buffer.GetCount();
                _rest = std::as_const(_buffer).ToBlock().first(static_cast<size_t>(got));
            }
            const StreamConversionStep step = TRY(_conversion->Convert(_rest, _converted.ToBlock(), _sourceEnded));
            _rest = _rest.subspan(static_cast<size_t>(step.consumed));
            _finished = step.finished;
            count = step.produced;
            if (!_finished && step.consumed == 0 && count == 0 && _sourceEnded)
                return EndsTooEarly();
        }
        SetWindow(position, _converted.GetFirst(), count);
        return {};
    }

private:
    StreamConversionRef _conversion;
    InputStreamRef _source;
    BaseArray<std::byte> _buffer, _converted;
    Block<const std::byte> _rest;  ///< of the buffer, not yet converted
    bool _sourceEnded = false, _finished = false;
};

}  // namespace

Result<Int> ConvertBlock(const StreamConversionRef& conversion, Block<const std::byte> source,
                         Block<std::byte> target) {
    TRY(conversion->Reset());
    Int produced = 0;
    for (;;) {
        const StreamConversionStep step = TRY(conversion->Convert(source, target, true));
        produced += step.produced;
        if (step.finished)
            return produced;
        source = source.subspan(static_cast<size_t>(step.consumed));
        target = target.subspan(static_cast<size_t>(step.produced));
        if (target.empty()) {
            // The end may still be to come, but no byte.
            std::byte one;
            const StreamConversionStep last = TRY(conversion->Convert(source, {&one, 1}, true));
            if (last.produced > 0)
                return FileFormatError("The converted data are longer than @ bytes.", produced);
            return last.finished ? Result<Int>(produced) : Result<Int>(EndsTooEarly());
        }
        if (step.consumed == 0 && step.produced == 0)
            return EndsTooEarly();
    }
}

Result<void> ConvertBlock(const StreamConversionRef& conversion, Block<const std::byte> source,
                          BaseArray<std::byte>& target, Int maxBytes) {
    constexpr Int kStep = Int(64) << 10;
    TRY(conversion->Reset());
    BaseArray<std::byte> converted;
    for (StreamConversionStep step; !step.finished;) {
        const Int before = converted.GetCount();
        // One byte more than allowed shows that there is more.
        const Int room = std::min(std::max(before / 2, kStep), maxBytes - before + 1);
        TRY(converted.Resize(before + room, RESIZEFLAGS::UNINITIALIZED));
        step = TRY(conversion->Convert(source, converted.ToBlock().subspan(static_cast<size_t>(before)), true));
        source = source.subspan(static_cast<size_t>(step.consumed));
        TRY(converted.Resize(before + step.produced));
        if (converted.GetCount() > maxBytes)
            return FileFormatError("The converted data are longer than @ bytes.", maxBytes);
        if (!step.finished && step.consumed == 0 && step.produced == 0)
            return EndsTooEarly();
    }
    target = std::move(converted);
    return {};
}

Result<InputStreamRef> OpenConvertedInput(const StreamConversionRef& conversion, const InputStreamRef& source) {
    if (!conversion || !source)
        return NullptrError();
    return InputStreamRef(TRY(NewObj<ConvertedInputStream>(conversion, source)));
}

}  // namespace orvik
