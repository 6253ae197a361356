#pragma once
/// Converters that record their calls.

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "session/mediasession_outputconverter_baseimpl.h"
#include "support/result_matchers.h"

#include "orvik/errortypes.h"

namespace orvik {

/// The value of a result that must have one.
template <class T>
T Take(Result<T> result) {
    if (!result)
        ADD_FAILURE() << result.GetError()->ToString().GetCString();
    return std::move(result).TakeValue();
}
/// The same for an array, as a container that matchers understand.
template <class T>
std::vector<T> TakeList(Result<BaseArray<T>> result) {
    const BaseArray<T> array = Take(std::move(result));
    return {array.begin(), array.end()};
}
template <class T, class... Arguments>
Ref<T> Make(Arguments&&... arguments) {
    return Take(NewObj<T>(std::forward<Arguments>(arguments)...));
}
/// A new object of a published class.
template <class I>
Ref<I> Create(const Id& classId) {
    return Take(ClassRef(classId).Create<I>());
}

using CallLog = std::vector<std::string>;

/// What a fake converter answers, and where it records "name.Phase(inputs)".
struct FakeBehaviour {
    std::string name;
    CallLog* log = nullptr;
    bool importStrategy = false;
    bool exportStrategy = false;
    std::string failingPhase = {};  ///< answers `error` there
    Error error = {};
    Delegate<void()> duringAnalyze = {};

    Result<void> Record(const char* phase, size_t inputs) const {
        if (log)
            log->push_back(name + '.' + phase + '(' + std::to_string(inputs) + ')');
        if (failingPhase == phase)
            return error;
        return {};
    }
};

class FakeInput : public virtual MediaInputInterface, public MediaInputBaseImpl {
public:
    explicit FakeInput(FakeBehaviour fake) : behaviour(std::move(fake)) {}

    Bool SupportImportStrategy() const override { return behaviour.importStrategy; }
    Bool SupportExportStrategy() const override { return behaviour.exportStrategy; }
    Result<void> Analyze(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        lastTime = time;
        lastFlags = flags;
        if (behaviour.duringAnalyze)
            behaviour.duringAnalyze();
        return behaviour.Record("Analyze", inputs.size());
    }
    Result<void> PrepareExecute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) override {
        return behaviour.Record("PrepareExecute", inputs.size());
    }
    Result<void> Execute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) override {
        return behaviour.Record("Execute", inputs.size());
    }
    Result<void> Close(Inputs inputs) override { return behaviour.Record("Close", inputs.size()); }

    FakeBehaviour behaviour;
    TimeValue lastTime;
    MEDIASESSIONFLAGS lastFlags = MEDIASESSIONFLAGS::NONE;
};

/// Records, then drives its input if asked to.
class FakeOutput : public virtual MediaOutputInterface, public MediaOutputBaseImpl {
public:
    explicit FakeOutput(FakeBehaviour fake, bool drives = false) : behaviour(std::move(fake)), drivesInput(drives) {}

    Bool SupportImportStrategy() const override { return behaviour.importStrategy; }
    Bool SupportExportStrategy() const override { return behaviour.exportStrategy; }
    Result<void> ResetConverter() override { return behaviour.Record("ResetConverter", 0); }
    Result<void> Analyze(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        if (behaviour.duringAnalyze)
            behaviour.duringAnalyze();
        TRY(behaviour.Record("Analyze", inputs.size()));
        return drivesInput ? AnalyzeInput(inputs, time, flags) : Result<void>();
    }
    Result<void> PrepareExecute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        TRY(behaviour.Record("PrepareExecute", inputs.size()));
        return drivesInput ? PrepareExecuteInput(inputs, time, flags) : Result<void>();
    }
    Result<void> Execute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        TRY(behaviour.Record("Execute", inputs.size()));
        return drivesInput ? ExecuteInput(inputs, time, flags) : Result<void>();
    }
    Result<void> Close(Inputs inputs) override {
        TRY(behaviour.Record("Close", inputs.size()));
        return drivesInput ? CloseInputs(inputs) : Result<void>();
    }

    FakeBehaviour behaviour;
    bool drivesInput;
};

}  // namespace orvik
