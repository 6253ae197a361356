#pragma once
/// @file
/// A sound in memory.

#include "orvik/mediasession_audiodata.h"

namespace orvik {

class AudioObjectImpl : public virtual AudioObjectInterface {
public:
    Result<void> Init(Int channelCount, Int bitsPerChannel, Int sampleCount, Float sampleRate, TimeValue length,
                      Block<const std::byte> data) override;
    Int GetChannelCount() const override { return _channelCount; }
    Int GetBitsPerChannel() const override { return _bitsPerChannel; }
    Float GetSampleRate() const override { return _sampleRate; }
    Int GetSampleCount() const override { return _sampleCount; }
    TimeValue GetLength() const override { return _length; }
    const std::byte* GetDataPtr() const override { return _data.IsEmpty() ? nullptr : _data.GetFirst(); }

private:
    Int _channelCount = 0, _bitsPerChannel = 0;
    Float _sampleRate = 0;
    Int _sampleCount = 0;
    TimeValue _length;
    BaseArray<std::byte> _data;
};

}  // namespace orvik
