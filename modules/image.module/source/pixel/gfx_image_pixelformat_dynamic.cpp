// Formats that are made at run time from a list of channels, and the cache that makes each list one format.

#include <algorithm>
#include <mutex>

#include "pixel/gfx_image_pixelformat_catalogue.h"
#include "pixel/gfx_image_pixelformat_channels.h"
#include "pixel/gfx_image_pixelformat_compare.h"

namespace orvik {
namespace {

constexpr Id kDynamicGroup{"net.orvik.image.pixelformat.dynamicgroup"};
constexpr Id kDynamicRegistry{"net.orvik.image.registry.dynamic"};
constexpr std::string_view kTypePrefix = "net.orvik.image.imagechanneltype.";

std::string_view GetTypeName(const Id& type) {
    const std::string_view text = type.GetText();
    return text.starts_with(kTypePrefix) ? text.substr(kTypePrefix.size()) : text;
}

/// What stands for a channel type in names of formats and texts of pixels.
std::string_view GetShortForm(const Id& type) {
    static constexpr struct {
        std::string_view name, shortForm;
    } kShortForms[] = {
        {"red", "R"},      {"green", "G"},    {"blue", "B"},     {"alpha", "A"},  {"grey", "Gr"},
        {"cmyk_c", "C"},   {"cmyk_m", "M"},   {"cmyk_y", "Y"},   {"cmyk_k", "K"}, {"cmyk_ic", "iC"},
        {"cmyk_im", "iM"}, {"cmyk_iy", "iY"}, {"cmyk_ik", "iK"}, {"depth", "Z"},
    };
    const std::string_view name = GetTypeName(type);
    for (const auto& entry : kShortForms) {
        if (entry.name == name)
            return entry.shortForm;
    }
    return name.substr(name.rfind('.') + 1);
}

class PixelFormatDynamicImpl final : public PixelFormatChannels, public virtual PixelFormatDynamicInterface {
public:
    /// @param id  the id; the short name results from the channels
    Result<void> Init(const PixelFormatGroup& group, const String& id) override {
        _id = TRY(Id::Create(id.GetText()));
        return PixelFormatChannels::Init(group, {});
    }
    Result<void> AddChannel(const ImageChannel& channel) override {
        if (_sealed)
            return IllegalStateError("@ is shared and does not change any more.", _id);
        if (!channel)
            return NullptrError("A pixel format cannot have an empty channel.");
        if (channel->GetComponentType() == ComponentType::None)
            return UnsupportedArgumentError("A pixel format cannot be made of channels without whole components.");
        TRY(AppendChannel(channel));
        const ImageChannelType type = channel->GetChannelType();
        const ColorSpace space = type->GetColorSpace();
        const auto isOpen = [](const ColorSpace& s) { return !s || s->GetId() == colorspaces::kAlpha; };
        if (isOpen(_colorSpace) && space)
            _colorSpace = space;
        else if (!isOpen(space) && !(space == _colorSpace))
            return IllegalArgumentError("PixelFormat belongs to two different color spaces: @, @", _colorSpace, space);
        if (type->GetId() == channeltypes::kUnused)
            return {};
        if (!_shortName.IsEmpty())
            TRY(_shortName.Append(" "));
        return _shortName.Append(
            FormatString("@{short} @", GetShortForm(type->GetId()), GetComponentName(channel->GetComponentType())));
    }
    /// From here on the format is immutable.
    void Seal() { _sealed = true; }
    Id GetId() const override { return _id; }
    String PixToString(const void* pixel) const override {
        String text;
        for (Int i = 0; i < _channels.GetCount(); ++i) {
            if (_types[i] == channeltypes::kUnused)
                continue;
            const auto* value = static_cast<const std::byte*>(pixel) + _offsets[i].GetBytes();
            const FormatArgument arguments[] = {FormatArgument(std::string_view(text.IsEmpty() ? "" : " ")),
                                                FormatArgument(GetShortForm(_types[i])),
                                                pixel::MakeValueArgument(_components[i], value)};
            if (!text.Append(FormatStringArguments("@@ @", arguments)))
                return text;  // out of memory: as much as there is
        }
        return text;
    }

private:
    Id _id;
    bool _sealed = false;
};

/// The channels of a format, compared by identity. A key for a lookup looks at the caller's block.
class ChannelKey {
public:
    explicit ChannelKey(Block<const ImageChannel> channels) : _channels(channels) {}
    Result<ChannelKey> Copy() const {
        ChannelKey copy{{}};
        TRY(copy._owned.AppendBlock(_channels));
        copy._channels = copy._owned.ToBlock();
        return copy;
    }
    uint64_t GetHashCode() const {
        uint64_t hash = 0;
        for (const ImageChannel& channel : _channels)
            hash = hash * 31 + HashPointerBits(reinterpret_cast<uintptr_t>(channel.GetPointer()));
        return hash;
    }
    bool operator==(const ChannelKey& other) const { return std::ranges::equal(_channels, other._channels); }

private:
    Block<const ImageChannel> _channels;
    BaseArray<ImageChannel> _owned;
};

Result<PixelFormat> CreateFormat(const String& id, Block<const ImageChannel> channels) {
    const ObjectRef object = TRY(ClassRef(kPixelFormatDynamicClass).Create());
    auto* format = dynamic_cast<PixelFormatDynamicImpl*>(object.GetPointer());
    if (!format)
        return UnexpectedError("Class @ makes no dynamic formats.", kPixelFormatDynamicClass);
    TRY(format->Init(FindPublished<PixelFormatGroupInterface>(kDynamicGroup), id));
    for (const ImageChannel& channel : channels)
        TRY(format->AddChannel(channel));
    format->Seal();
    return PixelFormat(format);
}

class PixelFormatsImpl final : public virtual PixelFormatsInterface {
public:
    Result<PixelFormat> FindOrCreatePixelFormat(Block<const ImageChannel> channels) override {
        if (channels.empty())
            return IllegalArgumentError("FindOrCreatePixelFormat() needs at least 1 channel.");
        std::lock_guard guard(_lock);
        if (_formats.IsEmpty())
            TRY(FillWithPublishedFormats());
        const ChannelKey key(channels);
        if (const Result<PixelFormat>* known = _formats.Find(key))
            return *known;
        ChannelKey owned = TRY(key.Copy());
        const String id = TRY(MakeId(channels));
        Result<PixelFormat> made = CreateFormat(id, channels);
        // A list that cannot be a format never can be one, but memory may be free another time.
        if (made || !made.GetError()->IsKindOf(errorid::kOutOfMemory))
            TRY(_formats.Set(std::move(owned), made));
        return made;
    }

private:
    /// "net.orvik.image.pixelformat." and the channels, for instance "red.u8_depth.f32".
    static Result<String> MakeId(Block<const ImageChannel> channels) {
        String text;
        for (const ImageChannel& channel : channels) {
            const String item = FormatString("@@.@", std::string_view(text.IsEmpty() ? "" : "_"),
                                             GetTypeName(channel->GetChannelType()->GetId()),
                                             GetComponentName(channel->GetComponentType()));
            TRY(text.Append(item.ToLower()));
        }
        return FormatString("net.orvik.image.pixelformat.@", text);
    }

    /// All or nothing: with a part of them, lists that have a format would get another one.
    Result<void> FillWithPublishedFormats() {
        HashMap<ChannelKey, Result<PixelFormat>> formats;
        const BaseArray<PixelFormat> all = TRY(PixelFormats::GetAll());
        for (const PixelFormat& format : all) {
            const Block<const ImageChannel> channels = format->GetChannels();
            const auto isWhole = [](const ImageChannel& c) { return c->GetComponentType() != ComponentType::None; };
            if (channels.empty() || !std::ranges::all_of(channels, isWhole))
                continue;
            ChannelKey key = TRY(ChannelKey(channels).Copy());
            TRY(formats.Set(std::move(key), format));
        }
        _formats = std::move(formats);
        return {};
    }

    std::mutex _lock;
    HashMap<ChannelKey, Result<PixelFormat>> _formats;
};

}  // namespace

Result<ObjectRef> CreateDynamicPixelFormat() { return ObjectRef(TRY(NewObj<PixelFormatDynamicImpl>())); }

Result<void> RegisterDynamicPixelFormats(Publisher& publisher) {
    TRY(publisher.PublishClass(kPixelFormatDynamicClass, &CreateDynamicPixelFormat));
    (void)TRY(RegisterPixelFormatGroup(publisher, kDynamicGroup, kDynamicRegistry));
    constexpr ComponentType kComponents[] = {ComponentType::U8,  ComponentType::S8,  ComponentType::U16,
                                             ComponentType::S16, ComponentType::U32, ComponentType::S32,
                                             ComponentType::F16, ComponentType::F32};
    for (const char* name : {"red", "redgreen"}) {
        for (const ComponentType component : kComponents) {
            const ImageChannel channels[] = {channeltypes::GetChannel(channeltypes::kRed, component),
                                             channeltypes::GetChannel(channeltypes::kGreen, component)};
            const size_t count = std::string_view(name) == "red" ? 1 : 2;
            const String id =
                FormatString("net.orvik.image.pixelformat.dynamic.@@", name, GetComponentName(component)).ToLower();
            const PixelFormat format = TRY(CreateFormat(id, {channels, count}));
            TRY(publisher.PublishObject(format->GetId(), format));
            TRY(publisher.AddToRegistry(kDynamicRegistry, format->GetId(), format));
        }
    }
    const ObjectRef service = TRY(NewObj<PixelFormatsImpl>());
    return publisher.PublishObject(PixelFormatsInterface::kInterfaceId, service);
}

}  // namespace orvik
