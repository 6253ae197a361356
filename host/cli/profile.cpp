#include "profile.h"

#include "interruption.h"
#include "progressline.h"

#include "orvik/gfx_image_colorprofileconvert.h"
#include "orvik/threadservices.h"

namespace orvik::cli {

namespace {

/// Owns a handler of an image.
template <class Handler>
class PixelAccess {
public:
    PixelAccess(ImageBaseRef image, Handler handler) : _image(std::move(image)), _handler(std::move(handler)) {}
    PixelAccess(const PixelAccess&) = delete;
    PixelAccess& operator=(const PixelAccess&) = delete;
    ~PixelAccess() { _image->FreePixelHandler(_handler); }
    const Handler* operator->() const { return &_handler; }

private:
    ImageBaseRef _image;
    Handler _handler;
};

bool HasColors(const ImageBaseRef& node) {
    const ITYPE type = node->Get(image::kType, ITYPE::UNDEFINED);
    return (type == ITYPE::IMAGE || type == ITYPE::LAYER) && node->GetWidth() > 0 && node->GetHeight() > 0 &&
           node->GetPixelFormat()->GetColorSpace() != colorspaces::Get(colorspaces::kAlpha);
}

/// The profile of a node's pixels. Its own one does not describe them if it is of another colour space.
ColorProfile FindSourceProfile(const ImageBaseRef& node) {
    const PixelFormat format = node->GetPixelFormat();
    const ColorProfile own = node->Get(image::kColorProfile, ColorProfile());
    return own.CheckCompatiblePixelFormat(format) ? own : format->GetDefaultColorProfile();
}

/// The format for colours of `space`: the node's own one if possible.
Result<PixelFormat> FindTargetFormat(PixelFormat format, const ColorSpace& space) {
    const auto indexed = Cast<PixelFormatIndexedColorInterface>(format);
    if (!indexed && format->GetColorSpace() == space)
        return format;
    if (indexed)
        format = indexed->GetColorTablePixelFormat();  // nothing finds indices for new colours
    const ComponentType own = format->GetChannels()[0]->GetComponentType();
    const ComponentType component = own == ComponentType::None ? ComponentType::U8 : own;
    static const struct {
        Id space;
        std::string_view channels;
    } kSpaces[] = {{colorspaces::kRgb, "red green blue"},
                   {colorspaces::kGrey, "grey"},
                   {colorspaces::kCmyk, "cmyk_c cmyk_m cmyk_y cmyk_k"}};
    BaseArray<ImageChannel> channels;
    for (const auto& entry : kSpaces) {
        std::string_view rest = entry.space == space->GetId() ? entry.channels : std::string_view();
        while (!rest.empty()) {
            const size_t end = std::min(rest.find(' '), rest.size());
            const std::string name = "net.orvik.image.imagechanneltype." + std::string(rest.substr(0, end));
            const Id type = TRY(Id::Create(name));
            TRY(channels.Append(channeltypes::GetChannel(type, component)));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    if (format->HasAlpha())
        TRY(channels.Append(channeltypes::GetChannel(channeltypes::kAlpha, component)));
    return PixelFormats::FindOrCreatePixelFormat(channels.ToBlock());
}

Result<ColorProfileConvert> CreateTransform(const PixelFormat& srcFormat, const ColorProfile& srcProfile,
                                            const PixelFormat& dstFormat, const ColorProfile& dstProfile) {
    const auto transform = TRY(ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>());
    Result<Bool> made = transform->Init(srcFormat, srcProfile, dstFormat, dstProfile, COLORCONVERSIONINTENT::PERCEPTUAL,
                                        COLORCONVERSIONFLAGS::BLACKPOINTCOMPENSATION);
    if (!made)
        return UnknownErrorWith(std::move(made).TakeError(), "colours cannot be converted from '@' to '@'", srcProfile,
                                dstProfile);
    return transform;
}

/// Gives the pixels of one node another profile.
class NodeConversion {
public:
    NodeConversion(ImageBaseRef node, const ColorProfile& target)
        : _node(std::move(node)),
          _width(_node->GetWidth()),
          _height(_node->GetHeight()),
          _format(_node->GetPixelFormat()),
          _target(target) {}

    Result<void> Run(ProgressLine& line) {
        const ColorProfile source = FindSourceProfile(_node);
        if (!(source == _target)) {
            const PixelFormat format = TRY(FindTargetFormat(_format, _target.GetColorSpace()));
            const ColorProfileConvert transform = TRY(CreateTransform(_format, source, format, _target));
            TRY(format == _format ? ConvertInPlace(*transform, line) : ConvertInto(format, *transform, line));
        }
        return _node->Set(image::kColorProfile, _target);
    }

private:
    using Reader = PixelAccess<GetPixelHandlerStruct>;
    using Writer = PixelAccess<SetPixelHandlerStruct>;

    /// Reads and writes the pixels as they are.
    Result<GetPixelHandlerStruct> OpenForReading() {
        return _node->GetPixelHandler(_format, _format->GetChannelOffsets(), ColorProfile(), GETPIXELHANDLERFLAGS::NONE,
                                      LayerSet());
    }
    Result<SetPixelHandlerStruct> OpenForWriting() {
        return _node->SetPixelHandler(_format, _format->GetChannelOffsets(), ColorProfile(),
                                      SETPIXELHANDLERFLAGS::NONE);
    }
    template <class Step>
    Result<void> ForEachRow(ProgressLine* line, const Step& step) {
        for (Int y = 0; y < _height; ++y) {
            if (IsCurrentThreadCancelled())
                return ThreadCancelledError();
            if (line)
                line->SetFraction(static_cast<double>(y) / static_cast<double>(_height));
            TRY(step(PixelSpan{0, y, _width}));
        }
        return {};
    }

    Result<void> ConvertInPlace(const ColorProfileConvertInterface& transform, ProgressLine& line) {
        GetPixelHandlerStruct readHandler = TRY(OpenForReading());
        const Reader reader(_node, std::move(readHandler));
        SetPixelHandlerStruct writeHandler = TRY(OpenForWriting());
        const Writer writer(_node, std::move(writeHandler));
        BaseArray<std::byte> pixels = TRY(_format->CreatePix(_width, 1, 1));
        const PixelLine row{pixels.GetFirst(), _format->GetBitsPerPixel(), 0};
        return ForEachRow(&line, [&](const PixelSpan& span) -> Result<void> {
            TRY(reader->read(span, row, GETPIXELFLAGS::NONE));
            TRY(transform.Convert(row, row, _width));
            return writer->write(span, row, SETPIXELFLAGS::NONE);
        });
    }

    /// Converts all pixels into memory, since a new format replaces the storage.
    Result<void> ConvertInto(const PixelFormat& format, const ColorProfileConvertInterface& transform,
                             ProgressLine& line) {
        BaseArray<std::byte> pixels = TRY(format->CreatePix(_width, _height, 1));
        const Int rowBytes = format->GetBytesPerLine(_width, 1);
        const auto rowOf = [&](const PixelSpan& span) {
            return PixelLine{pixels.GetFirst() + span.y * rowBytes, format->GetBitsPerPixel(), 0};
        };
        {
            GetPixelHandlerStruct handler = TRY(OpenForReading());
            const Reader reader(_node, std::move(handler));
            BaseArray<std::byte> old = TRY(_format->CreatePix(_width, 1, 1));
            const PixelLine oldRow{old.GetFirst(), _format->GetBitsPerPixel(), 0};
            TRY(ForEachRow(&line, [&](const PixelSpan& span) -> Result<void> {
                TRY(reader->read(span, oldRow, GETPIXELFLAGS::NONE));
                return transform.Convert(rowOf(span), oldRow, _width);
            }));
        }
        const ITYPE type = _node->Get(image::kType, ITYPE::UNDEFINED);  // `Init` makes it an image
        TRY(Cast<ImageInterface>(_node)->Init(_width, _height, ClassRef(storageclasses::kNormal), format, {}));
        TRY(_node->Set(image::kType, type));
        _format = format;
        SetPixelHandlerStruct handler = TRY(OpenForWriting());
        const Writer writer(_node, std::move(handler));
        return ForEachRow(nullptr,
                          [&](const PixelSpan& span) { return writer->write(span, rowOf(span), SETPIXELFLAGS::NONE); });
    }

    ImageBaseRef _node;
    Int _width, _height;
    PixelFormat _format;
    ColorProfile _target;
};

}  // namespace

Result<TargetProfile> TargetProfile::Open(const std::string& name) {
    TargetProfile target;
    if (name == "srgb" || name == "linear") {
        const bool isLinear = name == "linear";
        target._profile = colorprofiles::Get(isLinear ? colorprofiles::kLinearRgb : colorprofiles::kSrgb);
        target._greyProfile = colorprofiles::Get(isLinear ? colorprofiles::kLinearGrey : colorprofiles::kSgrey);
        return target;
    }
    {
        const Interruption::Waiting waiting;  // it may be a pipe
        target._profile = TRY(ColorProfile::OpenProfileFromFile(Url(name)));
    }
    const ColorSpace space = target._profile.GetColorSpace();
    if (!space || space == colorspaces::Get(colorspaces::kYuv))
        return UnsupportedArgumentError("the profile is for no colours that pixels can have");
    target._greyProfile = target._profile;
    return target;
}

const ColorProfile& TargetProfile::Get(const ColorSpace& space) const {
    return space == colorspaces::Get(colorspaces::kGrey) ? _greyProfile : _profile;
}

Result<void> ConvertColors(const Picture& picture, const TargetProfile& target) {
    ProgressLine line("converting colours");
    const ImageVisitor convert = [&](const ImageBaseRef& node, IMAGEHIERARCHY branch) -> Result<Bool> {
        if (branch == IMAGEHIERARCHY::TEXTURE || !HasColors(node))
            return true;
        const ColorProfile& profile = target.Get(node->GetPixelFormat()->GetColorSpace());
        TRY(NodeConversion(node, profile).Run(line));
        return true;
    };
    TRY(WalkImages(picture.texture, convert));
    return {};
}

}  // namespace orvik::cli
