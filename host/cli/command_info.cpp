#include <algorithm>

#include "commands.h"
#include "description.h"
#include "report.h"
#include "treetext.h"

namespace orvik::cli {

namespace {

/// Collects the descriptions of the files and prints them in the form that was asked for.
class InfoOutput {
public:
    InfoOutput(const Console& console, const InfoOptions& options) : _console(console), _options(options) {}

    Result<int> Add(const std::string& file, const Picture& picture) {
        Json description = TRY(Describe(file, picture));
        if (!_options.report.empty()) {
            TRY(_report.Add(description, picture));
            return kDone;
        }
        if (!_options.json)
            return _console.Write(Draw(description, picture.format));
        _list.push_back(std::move(description));
        return kDone;
    }

    /// A program that reads the list finds every file in it.
    void AddFailure(const std::string& file, const Error& error) {
        if (_options.json)
            _list.push_back({{"url", file}, {"error", Explain(file, error)}});
    }

    int Finish() {
        if (!_options.report.empty()) {
            if (_report.IsEmpty())
                return kDone;  // every file failed: an earlier report stays
            const Result<void> written = _report.Write(_options.report);
            return written ? kDone : _console.Fail(_options.report, written.GetError());
        }
        if (!_options.json)
            return kDone;
        return _console.Write(Serialize(_options.files.size() == 1 ? _list.front() : _list));
    }

private:
    const Console& _console;
    const InfoOptions& _options;
    Json _list = Json::array();
    Report _report;
};

}  // namespace

int RunInfo(const Console& console, const InfoOptions& options) {
    const auto flags = options.headersOnly ? MEDIASESSIONFLAGS::RUNONLYANALYZE : MEDIASESSIONFLAGS::NONE;
    InfoOutput output(console, options);
    int status = kDone;
    for (const std::string& file : options.files) {
        const Result<Picture> picture = LoadPicture(file, flags);
        const Result<int> added = picture ? output.Add(file, *picture) : Result<int>(picture.GetError());
        status = std::max(status, added ? *added : console.Fail(file, added.GetError()));
        if (status > kWrongUsage)
            return status;
        if (!added)
            output.AddFailure(file, added.GetError());
    }
    return std::max(status, output.Finish());
}

}  // namespace orvik::cli
