#include "orvik/mediasession_stream.h"

namespace orvik {

namespace {

constexpr Int kMaxDepth = 256;

Result<Bool> Walk(const MediaStreamRef& stream, const MediaStreamRef& parent, Int depth, const StreamVisitor& visitor) {
    if (depth >= kMaxDepth)
        return IllegalStateError("Streams are nested more than @ levels deep.", kMaxDepth);
    if (!TRY(visitor(stream, parent, depth)))
        return false;
    // By index and asked anew each time: a visitor may add children, which moves the list.
    for (Int branch = 0; branch < stream->GetBranchCount(); ++branch) {
        for (size_t i = 0; i < stream->GetChildren(branch).size(); ++i) {
            const MediaStreamRef child = Cast<MediaStreamInterface>(stream->GetChildren(branch)[i]);
            if (child && !TRY(Walk(child, stream, depth + 1, visitor)))
                return false;
        }
    }
    return true;
}

}  // namespace

Result<Bool> WalkStreams(const MediaStreamRef& root, const StreamVisitor& visitor) {
    if (!root)
        return true;
    return Walk(root, nullptr, 0, visitor);
}

Result<MediaStreamProperties> MediaStreamProperties::FromStream(const MediaStreamRef& stream) {
    return FromFormat(stream->GetFormat(stream->GetSelectedFormat()));
}

Result<void> MediaStreamPropertiesInterface::Init(const MediaStreamRef& stream) {
    return Init(stream->GetFormat(stream->GetSelectedFormat()));
}

}  // namespace orvik
