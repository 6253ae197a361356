#pragma once
/// @file
/// The input that offers an image tree as streams.

#include "session/mediasession_baseimpl.h"

#include "orvik/gfx_image.h"

namespace orvik {

/// How a texture hands itself to the input of its save.
class MediaStreamExportFromImageTextureInterface : public virtual MediaInputInterface {
    ORVIK_INTERFACE(MediaStreamExportFromImageTextureInterface,
                    "net.orvik.image.interface.mediastreamexportfromimagetexture");

public:
    virtual Result<void> SetInputTexture(const ImageTextureRef& texture) { return Unbound(); }
};

/// A stream for the texture's sound, if it has one, then one for each image, alpha, layer, mask and deep image, in the
/// shape of the tree. The exporter pulls: rows
/// come from the node's storage in the format that the exporter asks for. Each row read is reported as progress of this
/// input's own job, which is also where a cancelled save stops.
class MediaStreamExportFromImageTextureImpl : public virtual MediaStreamExportFromImageTextureInterface,
                                              public MediaInputBaseImpl {
public:
    MediaStreamExportFromImageTextureImpl();
    ~MediaStreamExportFromImageTextureImpl() override;

    Bool SupportExportStrategy() const override { return true; }
    Result<void> SetInputTexture(const ImageTextureRef& texture) override;
    /// Once; a repeat succeeds without a walk. Illegal state with inputs or without a texture.
    Result<void> Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    /// Registers a progress job for each subscribed stream, weighted by its pixels.
    Result<void> PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override;
    Result<void> Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) override { return {}; }
    Result<void> Close(Inputs inputs) override;

private:
    class Source;
    struct Record {
        MediaStreamRef stream;
        Ref<Source> source;
    };

    Result<void> AddAudioStream();
    Result<void> VisitNode(const ImageBaseRef& node, IMAGEHIERARCHY branch);
    Result<MediaStreamFormat> DescribeNode(const ImageBaseRef& node, MEDIAFORMATTYPE type) const;
    Result<void> AttachStream(const MediaStreamRef& stream, const ImageBaseRef& node);

    ImageTextureRef _texture;
    bool _analyzed = false;
    BaseArray<Record> _records;
    HashMap<HierarchyObjectRef, MediaStreamRef> _streamOfNode;
};

}  // namespace orvik
