#pragma once
/// @file
/// The output that turns an importer's streams into an image tree.

#include "session/mediasession_outputconverter_baseimpl.h"

#include "orvik/mediasession_output.h"

namespace orvik {

/// Builds a node for each image stream during Analyze, first with a nodata storage. A subscribed stream
/// gets its real storage when the importer starts to deliver, and the importer writes rows straight into it: there is
/// no buffer in between. What was built stays in the texture when a later step fails.
class MediaOutputTextureImpl : public virtual MediaOutputTextureInterface, public MediaOutputBaseImpl {
public:
    MediaOutputTextureImpl();
    ~MediaOutputTextureImpl() override;

    Bool SupportImportStrategy() const override { return true; }
    Result<void> SetOutputTexture(const ImageTextureRef& texture, const ClassRef& storage) override;
    Result<void> ResetConverter() override;
    /// Once; a repeat succeeds without a walk. A wrong-type error when the input offers no image stream.
    Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    /// Forgets the streams; the input stays open.
    Result<void> Close(Inputs inputs) override;

private:
    class Target;
    struct Record {
        MediaStreamRef parent;  ///< null at the root
        MediaStreamRef stream;
        Ref<Target> target;  ///< holds the node once it is built
        Float fps;
        TimeValue duration;
        MEDIAFORMATTYPE type;
        String name;
        String alphaName;
        MediaStreamFormat format;

        const DataDictionary& GetFacts() const { return format->GetDictionary(); }
    };
    static constexpr Float kUnknownFps = std::numeric_limits<Float>::max();

    Result<void> VisitStream(const MediaStreamRef& stream, const MediaStreamRef& parent);
    /// @return index of the new record
    Result<Int> AddRecord(const MediaStreamRef& stream, const MediaStreamRef& parent, const MediaStreamFormat& format);
    Result<void> TakeTiming(const Record& record);
    /// Makes the node of a record, and those above it that are not there yet.
    Result<ImageRef> Build(Int index);
    Result<void> PlaceInTree(const Record& record, const ImageRef& node);
    /// Sets what the format says of the picture as a whole, on the node and on the texture.
    Result<void> CopyPictureKeys(const Record& record);
    Result<void> SubscribeExif(const MediaStreamRef& stream);
    Result<void> SubscribePixels(const MediaStreamRef& stream, const Record& record);
    void Clear() noexcept;

    ImageTextureRef _texture;
    ClassRef _storage;
    bool _analyzed = false;
    bool _hasExportSettings = false;  ///< the first root image has given them to the texture
    Float _fps = kUnknownFps;
    TimeValue _duration;
    BaseArray<Record> _records;  ///< one for each image stream, parents before children
    HashMap<MediaStreamRef, Int> _recordOfStream;
};

}  // namespace orvik
