#include "orvik/fileformat.h"

#include <algorithm>
#include <mutex>

#include "orvik/iomemory.h"

namespace orvik {

namespace {

/// Formats that need the suffix as a tie-break follow those with a magic number.
bool IsSuffixOrdered(DETECTIONSTRENGTH strength) { return strength >= DETECTIONSTRENGTH::STRUCTURE; }

bool HasSuffix(const FileFormat& format, const String& lowerSuffix) {
    if (lowerSuffix.IsEmpty())
        return false;
    for (const std::string_view suffix : format->GetSuffixes()) {
        if (String(suffix).ToLower() == lowerSuffix)
            return true;
    }
    return false;
}

/// A format that can be asked, with what decides its turn.
struct Candidate {
    FileFormat format;
    FileFormatHandler handler;  ///< null where only the format is wanted
    int32_t priority = 0;
    DETECTIONSTRENGTH strength = DETECTIONSTRENGTH::SIGNATURE;
    bool suffixMatches = false;

    bool GoesBefore(const Candidate& other) const {
        const bool byName = strength == DETECTIONSTRENGTH::NAME;
        if (byName != (other.strength == DETECTIONSTRENGTH::NAME))
            return byName;
        if (priority != other.priority)
            return priority > other.priority;
        const bool late = IsSuffixOrdered(strength);
        if (late != IsSuffixOrdered(other.strength))
            return !late;
        if (late && suffixMatches != other.suffixMatches)
            return suffixMatches;
        return strength < other.strength;
    }
};

/// Inserts behind everything that need not follow it, so that equals keep their order. The lists are short.
Result<void> InsertCandidate(BaseArray<Candidate>& list, Candidate candidate) {
    Int index = list.GetCount();
    while (index > 0 && candidate.GoesBefore(list[index - 1]))
        --index;
    return list.Insert(index, std::move(candidate));
}

Candidate MakeCandidate(const FileFormat& format, const String& lowerSuffix) {
    Candidate candidate;
    candidate.format = format;
    candidate.strength = format->GetDetectionStrength();
    candidate.suffixMatches = IsSuffixOrdered(candidate.strength) && HasSuffix(format, lowerSuffix);
    return candidate;
}

/// Asks formats about one URL, which is opened when the first of them needs the bytes.
class Detector {
public:
    explicit Detector(const Url& url) : _url(url) {}

    Result<Bool> Claims(const Candidate& candidate) {
        for (const Answer& answer : _answers) {
            if (answer.format == candidate.format)
                return answer.claims;
        }
        Bool claims = false;
        if (candidate.strength == DETECTIONSTRENGTH::NAME) {
            claims = Ask(candidate.format, nullptr);
        } else {
            TRY(Open());
            TRY(_stream->Seek(0));
            claims = Ask(candidate.format, _stream);
        }
        TRY(_answers.Append({candidate.format, claims}));
        return claims;
    }

    Result<void> Open() {
        if (_stream)
            return {};
        _url = TRY(ReadUnseekable(_url));
        _stream = TRY(_url.OpenInputStream());
        return {};
    }

    /// Once opened, with the content that was read of a source that cannot seek.
    const Url& GetUrl() const noexcept { return _url; }

private:
    struct Answer {
        FileFormat format;
        Bool claims;
    };

    bool Ask(const FileFormat& format, const InputStreamRef& stream) const {
        const Result<Bool> answer = format->Detect(_url, stream);
        return answer && *answer;  // a test that fails does not claim the file
    }

    Url _url;
    InputStreamRef _stream;
    BaseArray<Answer> _answers;
};

/// The test of a format may ask for the format of another file, but only to a bounded depth.
class NestingGuard {
public:
    NestingGuard() { ++t_depth; }
    ~NestingGuard() { --t_depth; }
    Result<void> Check() const {
        if (t_depth > FileFormatDetection::kMaxNesting)
            return IllegalStateError("File format detection is nested too deeply.");
        return {};
    }

private:
    static thread_local int t_depth;
};
thread_local int NestingGuard::t_depth = 0;

/// Asks all registered formats, without handlers.
Result<FileFormat> FindFormat(const Url& url) {
    const String suffix = url.GetSuffix().ToLower();
    BaseArray<Candidate> candidates;
    const BaseArray<Registry::Entry> entries = TRY(Registry::CopyEntries(kFileFormatRegistry));
    for (const Registry::Entry& entry : entries) {
        if (FileFormat format = Cast<FileFormatInterface>(entry.object))
            TRY(InsertCandidate(candidates, MakeCandidate(format, suffix)));
    }
    Detector detector(url);
    for (const Candidate& candidate : candidates) {
        if (TRY(detector.Claims(candidate)))
            return candidate.format;
    }
    TRY(detector.Open());  // an unreadable URL is an error even when no format asked for its bytes
    return FileFormat();
}

/// What was found for a file in that state; a null format means that none claimed it.
struct Remembered {
    Int size = 0;
    Int time = 0;
    FileFormat format;
};

/// Never destroyed; unloading a module empties it, since it holds objects of the module.
struct Cache {
    static constexpr Int kMaxFiles = 1024;

    std::mutex mutex;
    HashMap<Url, Remembered> files;
    Int generation = 0;  ///< of the registries, when the answers were found
};

Cache& GetCache() {
    static Immortal<Cache> cache;
    return *cache;
}

}  // namespace

Result<BaseArray<FileFormatHandler>> FileFormatDetection::DetectAll(const Url& url, Block<const DataType* const> types,
                                                                    const HandlerDelegate& delegate) {
    const NestingGuard guard;
    TRY(guard.Check());
    const String suffix = url.GetSuffix().ToLower();
    BaseArray<Candidate> candidates;
    const BaseArray<Registry::Entry> entries = TRY(Registry::CopyEntries(kFileFormatHandlerRegistry));
    for (const Registry::Entry& entry : entries) {
        const FileFormatHandler handler = Cast<FileFormatHandlerInterface>(entry.object);
        const DataType* type = handler->GetHandlerType();
        const bool wanted =
            type && std::any_of(types.begin(), types.end(), [&](const DataType* t) { return t && *t == *type; });
        const FileFormat format = wanted ? handler->GetFileFormat() : nullptr;
        if (!format)
            continue;
        Candidate candidate = MakeCandidate(format, suffix);
        candidate.handler = handler;
        candidate.priority = static_cast<int32_t>(handler->GetDependends());
        TRY(InsertCandidate(candidates, std::move(candidate)));
    }
    BaseArray<FileFormatHandler> accepted;
    Detector detector(url);
    for (const Candidate& candidate : candidates) {
        if (!TRY(detector.Claims(candidate)))
            continue;
        if (!delegate || TRY(delegate(detector.GetUrl(), candidate.handler))) {
            TRY(accepted.Append(candidate.handler));
            return accepted;
        }
    }
    TRY(detector.Open());
    return accepted;
}

Result<FileFormat> FileFormatDetectionCache::DetectFile(const Url& url) {
    const NestingGuard guard;
    TRY(guard.Check());
    const Result<std::pair<Int, Int>> stamp = url.GetSizeAndTime();
    if (!stamp || url.GetScheme() == "memory" || url.HasContent())
        return FindFormat(url);  // a URL that names no file may still be claimed by its name
    const auto [size, time] = *stamp;
    Cache& cache = GetCache();
    const Int generation = Registry::GetGeneration();
    {
        const std::lock_guard lock(cache.mutex);
        const Remembered* known = cache.generation == generation ? cache.files.Find(url) : nullptr;
        if (known && known->size == size && known->time == time)
            return known->format;
    }
    FileFormat format = TRY(FindFormat(url));
    HashMap<Url, Remembered> dropped;  // dropped after the lock
    {
        const std::lock_guard lock(cache.mutex);
        if (cache.generation != generation || cache.files.GetCount() >= Cache::kMaxFiles)
            dropped = std::exchange(cache.files, {});
        cache.generation = generation;
        (void)cache.files.Set(url, {size, time, format});  // without memory the answer is just not cached
    }
    return format;
}

void FileFormatDetectionCache::Flush() {
    Cache& cache = GetCache();
    HashMap<Url, Remembered> dropped;
    const std::lock_guard lock(cache.mutex);
    dropped = std::exchange(cache.files, {});
}

}  // namespace orvik
