#pragma once
/// Formats, services, importers and exporters that the tests of image objects put in place of real ones.

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/registration.h"
#include "session/mediasession_urloutput.h"
#include "support/faults.h"
#include "support/layer_set.h"

#include "orvik/fileformat.h"
#include "orvik/gfx_image.h"

namespace orvik {

/// Copies single bits, most significant first: slow, and right for any width and phase.
inline void CopyBits(std::byte* dst, Int dstBit, const std::byte* src, Int srcBit, Int count) {
    for (Int i = 0; i < count; ++i, ++dstBit, ++srcBit) {
        const int bit = (std::to_integer<int>(src[srcBit >> 3]) >> (7 - (srcBit & 7))) & 1;
        const auto mask = std::byte(0x80 >> (dstBit & 7));
        dst[dstBit >> 3] = bit ? dst[dstBit >> 3] | mask : dst[dstBit >> 3] & ~mask;
    }
}

/// A format of any channel widths. It converts to and from formats of the same width by copying bits, and notes what it
/// was asked for.
class FakeFormat : public PixelFormatInterface {
public:
    explicit FakeFormat(const std::vector<Int>& channelBits) {
        Int bit = 0;
        for (const Int bits : channelBits)
            _offsets.push_back(BITS(bit += bits));
    }
    Int GetChannelCount() const override { return Int(_offsets.size()) - 1; }
    ChannelOffsets GetChannelOffsets() const override { return _offsets; }
    BITS GetBitsPerPixel() const override { return _offsets.back(); }
    Result<ConvertPixelFunc> GetConvertPixelFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                 ChannelOffsets dstOffsets, const ColorProfile* srcProfile,
                                                 ColorProfile* dstProfile, CONVERTPIXELFLAGS flags,
                                                 bool&) const override {
        if (srcFormat->GetBitsPerPixel() != GetBitsPerPixel())
            return IllegalStateError("No pixel conversion found from '@' to '@'", srcFormat, "fake");
        request = std::string(srcProfile ? "src " : "") + (dstProfile && dstProfile->HasProfile() ? "dst " : "");
        for (const ChannelOffsets& offsets : {srcOffsets, dstOffsets}) {
            for (const BITS offset : offsets)
                request += std::to_string(offset.GetBits()) + ' ';
        }
        request += std::to_string(int(flags));
        return ConvertPixelFunc([this, bits = GetBitsPerPixel().GetBits()](const PixelLine& dst, Int count,
                                                                           const PixelLineConst& src,
                                                                           CONVERTPIXELFLAGS lineFlags) {
            convertedWith = lineFlags;
            for (Int i = 0; i < count; ++i)
                CopyBits(static_cast<std::byte*>(dst.data), dst.phase + i * dst.stride.GetBits(),
                         static_cast<const std::byte*>(src.data), src.phase + i * src.stride.GetBits(), bits);
            return Result<void>();
        });
    }
    /// Every byte of the pixel gets the grey value.
    Result<void> ConvertPixelFromSlow(const PixelLine& dst, Int count, const PixelLineConst& src, const PixelFormat&,
                                      const ColorProfile*, ColorProfile*, CONVERTPIXELFLAGS) const override {
        std::memset(dst.data, *static_cast<const uint8_t*>(src.data), size_t(count * GetBitsPerPixel().GetBytes()));
        return {};
    }

    mutable std::string request;              ///< the last search: which profiles there were, offsets, flags
    mutable CONVERTPIXELFLAGS convertedWith;  ///< of the last run that was converted

private:
    std::vector<BITS> _offsets{BITS(0)};
};

inline Ref<FakeFormat> MakeFormat(const std::vector<Int>& bits) { return NewObj<FakeFormat>(bits).TakeValue(); }

class FakeProfile : public ColorProfileInterface {
public:
    Bool HasProfile() const override { return true; }
};
inline ColorProfile MakeProfile() { return ColorProfile(NewObj<FakeProfile>().TakeValue()); }

using Rows = std::vector<std::vector<std::byte>>;

/// What happened, in order; fakes write it, tests read it.
inline std::vector<std::string> g_log;

class FakeRegionObservable : public ImageRegionObservableInterface {
public:
    Result<void> ResizeImage(Int width, Int height) override {
        g_log.push_back("resize " + std::to_string(width) + "x" + std::to_string(height));
        return failResize ? Result<void>(UnexpectedError()) : Result<void>();
    }
    Result<void> MarkDirty(ImageBaseInterface* image, const UpdateRegion& region) override {
        return _observable.Notify(image, region);
    }
    RegionObservable* GetObservable() override { return &_observable; }
    void Disconnect(Bool final) override { g_log.push_back(final ? "disconnect 1" : "disconnect 0"); }

    static inline bool failResize = false;

private:
    RegionObservable _observable;
};
class FakeRegionService : public ImageRegionObservableHandlerInterface {
public:
    Result<ImageRegionObservableRef> Create(const String&) override {
        return ImageRegionObservableRef(TRY(NewObj<FakeRegionObservable>()));
    }
};

/// Publishes what image objects need, and no real format.
class ImageFixture : public testing::Test {
protected:
    void SetUp() override {
        g_log.clear();
        FakeRegionObservable::failResize = false;
        for (const auto registerUnit :
             {RegisterMediaSessionAudio, RegisterLayerSet, RegisterImageStorages, RegisterImages, RegisterMediaSession,
              RegisterTextureConverters, RegisterMediaSessionOutputConverterBase, RegisterMediaSessionProgress,
              RegisterMediaSessionUrlOutput}) {
            ASSERT_EQ(ErrorIdOf(registerUnit(_publisher)), Id());
        }
    }
    void PublishRegionService() {
        ASSERT_TRUE(_publisher.PublishObject(ImageRegionObservableHandlerInterface::kInterfaceId,
                                             NewObj<FakeRegionService>().TakeValue()));
    }

    template <class I>
    static Ref<I> Make(const Id& classId) {
        return ClassRef(classId).Create<I>().TakeValue();
    }
    static ImageRef MakeImage() { return Make<ImageInterface>(imageclasses::kImage); }
    static ImageTextureRef MakeTexture() { return Make<ImageTextureInterface>(imageclasses::kTexture); }

    Publisher _publisher;
};

/// One stream of a fake file. Its rows are made from `seed`.
struct StreamSpec {
    MEDIAFORMATTYPE type = MEDIAFORMATTYPE::IMAGE;
    int parent = -1;  ///< index of the parent stream
    Int width = 3, height = 2;
    int seed = 1;  ///< 0: a layer without area, which is subscribed and never delivered
    std::function<void(MediaStreamFormat&)> describe = {};  ///< sets or takes back keys
};

inline std::function<void(MediaStreamFormat&)> Named(const char* name) {
    return [name](MediaStreamFormat& format) { EXPECT_TRUE(format.Set(mediaformat::kStreamName, name)); };
}

/// The bytes of one row of a stream.
inline std::vector<std::byte> MakeRow(int seed, Int y, Int bytes) {
    std::vector<std::byte> row(static_cast<size_t>(bytes));
    for (Int i = 0; i < bytes; ++i)
        row[size_t(i)] = std::byte(seed * 40 + y * 16 + i);
    return row;
}

/// Delivers streams that a test lists.
class FakeImport : public virtual MediaInputInterface, public MediaInputBaseImpl {
public:
    using AddOthers = std::function<Result<void>(FakeImport&)>;
    /// @param addOthers  adds streams of other kinds
    FakeImport(std::vector<StreamSpec> specs, PixelFormat format, AddOthers addOthers = {})
        : _specs(std::move(specs)), _format(std::move(format)), _addOthers(std::move(addOthers)) {}

    Bool SupportImportStrategy() const override { return true; }
    Result<void> Analyze(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) override {
        TRY(RequireNoInputs(inputs));
        g_log.push_back("analyze");
        for (const StreamSpec& spec : _specs) {
            MediaStreamFormat format;
            TRY(format.Set(mediaformat::kType, spec.type));
            TRY(format.Set(mediaformat::kPixelFormat, _format));
            TRY(format.Set(mediaformat::kWidth, spec.width));
            TRY(format.Set(mediaformat::kHeight, spec.height));
            if (spec.describe)
                spec.describe(format);
            const auto stream =
                TRY(ClassRef(mediaclasses::kStreamImport).Create<MediaStreamImageDataImportInterface>());
            TRY(stream->AddFormat(Data(Int(0)), format));
            streams.push_back(stream);
            if (spec.parent < 0)
                TRY(AddOutputStream(stream));
            else
                TRY(streams[size_t(spec.parent)]->AddChild(MediaStreamInterface::kChildBranch, stream));
        }
        return _addOthers ? _addOthers(*this) : Result<void>();
    }
    Result<void> PrepareExecute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) override {
        return RequireNoInputs(inputs);
    }
    Result<void> Execute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) override {
        TRY(RequireNoInputs(inputs));
        for (size_t i = 0; i < streams.size(); ++i) {
            if (!streams[i]->IsSubscribed() || _specs[i].seed == 0)
                continue;
            g_log.push_back("deliver " + std::to_string(i));
            MediaStreamProperties properties = TRY(MediaStreamProperties::FromStream(streams[i]));
            TRY(properties.Set(mediaproperty::kSampleTime, TimeValue::FromSeconds(Float(i) + 0.5)));
            TRY(Step());
            TRY(streams[i]->InitStream(properties));
            Result<void> delivered = Deliver(i, properties);
            TRY(Step());
            Result<void> finished = streams[i]->FinishStream(properties);
            TRY(std::move(delivered));
            TRY(std::move(finished));
        }
        return {};
    }
    Result<void> Close(Inputs) override {
        g_log.push_back("close import");
        return {};
    }

    std::vector<Ref<MediaStreamImageDataImportInterface>> streams;
    int failingStep = 0;      ///< the call of a stream that finds the file broken; 0 for none
    int steps = 0;            ///< calls so far
    std::vector<Int> rowsOf;  ///< for each stream that came to it, how many rows it has got

private:
    Result<void> Step() { return ++steps == failingStep ? IoError(Url(), "broken") : Result<void>(); }

    Result<void> Deliver(size_t i, const MediaStreamProperties& properties) {
        rowsOf.resize(i + 1);
        TRY(Step());
        SetPixelHandlerStruct handler =
            TRY(streams[i]->SetPixelStream(properties, _format->GetChannelOffsets(), SETPIXELHANDLERFLAGS::NONE));
        const StreamSpec& spec = _specs[i];
        const BITS bits = _format->GetBitsPerPixel();
        for (Int y = spec.height - 1; y >= 0; --y) {  // bottom up, as some files are
            const std::vector<std::byte> row = MakeRow(spec.seed, y, (bits * spec.width).GetBytes());
            const PixelSpan span{0, y, spec.width};
            TRY(Step());
            TRY(handler.write(span, {row.data(), bits}, {}));
            handler.Widen(span);
            ++rowsOf[i];
        }
        return handler.Free();
    }

    std::vector<StreamSpec> _specs;
    PixelFormat _format;
    AddOthers _addOthers;
};

/// Takes every stream of a texture and keeps the rows.
class FakeExport : public virtual MediaOutputUrlInterface, public MediaOutputUrlBaseImpl {
public:
    Result<void> Analyze(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        TRY(AnalyzeInput(inputs, time, flags));
        const BaseArray<MediaStreamRef> all = TRY(inputs[0]->GetOutputStreams(true));
        for (const MediaStreamRef& stream : all) {
            TRY(stream->SubscribeStream(stream->GetSelectedFormat()));
            streams.push_back(stream);
        }
        return {};
    }
    Result<void> PrepareExecute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        return PrepareExecuteInput(inputs, time, flags);
    }
    Result<void> Execute(Inputs inputs, TimeValue time, MEDIASESSIONFLAGS flags) override {
        TRY(ExecuteInput(inputs, time, flags));
        for (const MediaStreamRef& stream : streams) {
            if (const auto sound = Cast<MediaStreamAudioDataExportInterface>(stream)) {
                audio = sound->GetAudioObject();
                continue;
            }
            const auto source = Cast<MediaStreamImageDataExportInterface>(stream);
            const MediaStreamFormat format = stream->GetFormat(stream->GetSelectedFormat());
            const PixelFormat pixelFormat = TRY(format.Get(mediaformat::kPixelFormat));
            const Int width = TRY(format.Get(mediaformat::kWidth)), height = TRY(format.Get(mediaformat::kHeight));
            const BITS bits = pixelFormat->GetBitsPerPixel();
            const MediaStreamProperties properties = TRY(MediaStreamProperties::FromStream(stream));
            TRY(source->InitStream(properties));
            GetPixelHandlerStruct handler =
                TRY(source->GetPixelStream(properties, pixelFormat, ColorProfile(), GETPIXELHANDLERFLAGS::NONE));
            const std::vector<std::byte> row(size_t((bits * width).GetBytes()));
            auto& taken = rows.emplace_back(size_t(height), row);
            for (Int y = height - 1; y >= 0; --y)  // bottom up, as some files are
                TRY(handler.read({0, y, width}, {taken[size_t(y)].data(), bits}, {}));
            handler.Free();
            TRY(source->FinishStream(properties));
        }
        return {};
    }
    Result<void> Close(Inputs inputs) override {
        g_log.push_back("close export");
        streams.clear();
        return CloseInputs(inputs);
    }

    std::vector<MediaStreamRef> streams;
    std::vector<Rows> rows;  ///< stream, row, byte
    AudioObjectRef audio;
};

/// All bytes of a node, read in its own format.
inline Rows ReadRows(const ImageBaseRef& node) {
    Rows rows;
    const PixelFormat format = node->GetPixelFormat();
    auto handler =
        node->GetPixelHandler(format, format->GetChannelOffsets(), {}, GETPIXELHANDLERFLAGS::NONE, LayerSet());
    EXPECT_TRUE(handler) << MessageOf(handler);
    for (Int y = 0; handler && y < node->GetHeight(); ++y) {
        rows.emplace_back(size_t((format->GetBitsPerPixel() * node->GetWidth()).GetBytes()));
        EXPECT_TRUE(handler->read({0, y, node->GetWidth()}, {rows.back().data(), format->GetBitsPerPixel()}, {}));
    }
    if (handler)
        node->FreePixelHandler(*handler);
    return rows;
}
inline Rows RowsOf(const StreamSpec& spec, const PixelFormat& format) {
    Rows rows;
    for (Int y = 0; y < spec.height; ++y)
        rows.push_back(MakeRow(spec.seed, y, (format->GetBitsPerPixel() * spec.width).GetBytes()));
    return rows;
}

}  // namespace orvik
