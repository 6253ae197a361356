#include "session/audioobject_impl.h"

namespace orvik {

Result<void> AudioObjectImpl::Init(Int channelCount, Int bitsPerChannel, Int sampleCount, Float sampleRate,
                                   TimeValue length, Block<const std::byte> data) {
    // The copy comes first: `data` may be a part of what this object holds.
    BaseArray<std::byte> copy;
    TRY(copy.AppendBlock(data));
    _data = std::move(copy);
    _channelCount = channelCount;
    _bitsPerChannel = bitsPerChannel;
    _sampleCount = sampleCount;
    _sampleRate = sampleRate;
    _length = length;
    return {};
}

}  // namespace orvik
