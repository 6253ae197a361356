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
constexpr std::string_view kFormatPrefix = "net.orvik.image.pixelformat.";

std::string_view GetTypeName(const Id& type) {
    const std::string_view text = type.GetText();
    return text.starts_with(kTypePrefix) ? text.substr(kTypePrefix.size()) : text;
}

/// Abbreviation of a channel type in format names and pixel texts.
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
        const String item = FormatString("@@{short} @", _shortName.IsEmpty() ? "" : " ", GetShortForm(type->GetId()),
                                         GetComponentName(channel->GetComponentType()));
        if (item.IsEmpty())
            return OutOfMemoryError();
        return _shortName.Append(item);
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
        if (made)
            made = Publish(*made);
        // A list that cannot be a format never can be one, but memory may be free another time.
        if (made || !made.GetError()->IsKindOf(errorid::kOutOfMemory))
            TRY(_formats.Set(std::move(owned), made));
        return made;
    }

    Result<PixelFormat> FindOrCreatePixelFormatById(const Id& id) override {
        const BaseArray<ImageChannel> channels = TRY(ParseId(id));
        PixelFormat format = TRY(FindOrCreatePixelFormat(channels.ToBlock()));
        if (format->GetId() != id)  // these channels have a published format under another name
            return IllegalArgumentError("Illegal pixel format: @.", id);
        return format;
    }

private:
    /// Enters a format into its registry and under its id, as the fixed ones are. An attempt that ran out of memory
    /// between the two leaves its format behind; the next one takes that.
    /// @return the format that is published
    Result<PixelFormat> Publish(const PixelFormat& made) {
        PixelFormat format = Registry::Find<PixelFormatInterface>(kDynamicRegistry, made->GetId());
        if (!format) {
            TRY(_publisher.AddToRegistry(kDynamicRegistry, made->GetId(), made));
            format = made;
        }
        if (!FindPublishedObject(format->GetId()))
            TRY(_publisher.PublishObject(format->GetId(), format));
        return format;
    }

    /// The channels that an id of `MakeId` lists. A type's name may hold dots and underscores itself, so that an item
    /// ends only at the name of a component that an underscore or the end follows.
    static Result<BaseArray<ImageChannel>> ParseId(const Id& id) {
        BaseArray<ImageChannel> channels;
        std::string_view text = id.GetText();
        if (!text.starts_with(kFormatPrefix))
            return IllegalArgumentError("Illegal pixel format: @.", id);
        text.remove_prefix(kFormatPrefix.size());
        while (!text.empty()) {
            size_t length = 0;
            const ImageChannel channel = TRY(ParseChannel(text, length));
            if (!channel)
                return IllegalArgumentError("Illegal pixel format: @.", id);
            TRY(channels.Append(channel));
            text.remove_prefix(std::min(length + 1, text.size()));
        }
        return channels;
    }
    /// @param length  of the item at the start of `text`
    /// @return null when there is no channel type and component
    static Result<ImageChannel> ParseChannel(std::string_view text, size_t& length) {
        constexpr size_t kLongestTypeName = 256, kLongestComponentName = 3;
        for (size_t dot = text.find('.'); dot < kLongestTypeName; dot = text.find('.', dot + 1)) {
            const std::string_view behind = text.substr(dot + 1, kLongestComponentName + 1);
            const std::string_view name = behind.substr(0, behind.find('_'));
            const ComponentType component = ComponentOfName(name);
            if (component == ComponentType::None)
                continue;
            length = dot + 1 + name.size();
            for (const std::string_view prefix : {kTypePrefix, std::string_view()}) {
                String type = TRY(String::Create(prefix));
                const String typeName = TRY(String::Create(text.substr(0, dot)));
                TRY(type.Append(typeName));
                const Id typeId = TRY(Id::Create(type.GetText()));
                if (const ImageChannel channel = channeltypes::GetChannel(typeId, component))
                    return channel;
            }
        }
        return ImageChannel();
    }
    /// @param name  in lower case
    static ComponentType ComponentOfName(std::string_view name) {
        const auto equals = [](char lower, char upper) { return lower == (upper | 0x20) || lower == upper; };
        for (int i = 0; i < kComponentTypeCount; ++i) {
            const std::string_view known = GetComponentName(static_cast<ComponentType>(i));
            if (std::ranges::equal(name, known, equals))
                return static_cast<ComponentType>(i);
        }
        return ComponentType::None;
    }

    /// "net.orvik.image.pixelformat." and the channels, for instance "red.u8_depth.f32".
    static Result<String> MakeId(Block<const ImageChannel> channels) {
        String text = TRY(String::Create(kFormatPrefix));
        bool isFirst = true;
        for (const ImageChannel& channel : channels) {
            // By steps that can fail: an id that lacks a part would be that of another format.
            const std::string_view component = GetComponentName(channel->GetComponentType());
            for (const std::string_view part :
                 {std::string_view(isFirst ? "" : "_"), GetTypeName(channel->GetChannelType()->GetId()),
                  std::string_view("."), component}) {
                const String piece = TRY(String::Create(part));
                TRY(text.Append(piece));
            }
            isFirst = false;
        }
        return ToLowerCase(text);
    }
    static Result<String> ToLowerCase(const String& text) {
        String lower = text.ToLower();
        if (lower.IsEmpty())
            return OutOfMemoryError();
        return lower;
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

    std::mutex _lock;  ///< over the two below
    HashMap<ChannelKey, Result<PixelFormat>> _formats;
    Publisher _publisher;  ///< takes the formats back with this service, so before those that were published earlier
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
            const String id = FormatString("@dynamic.@@", kFormatPrefix, name, GetComponentName(component)).ToLower();
            if (id.IsEmpty())
                return OutOfMemoryError();
            const PixelFormat format = TRY(CreateFormat(id, {channels, count}));
            TRY(publisher.PublishObject(format->GetId(), format));
            TRY(publisher.AddToRegistry(kDynamicRegistry, format->GetId(), format));
        }
    }
    const ObjectRef service = TRY(NewObj<PixelFormatsImpl>());
    return publisher.PublishObject(PixelFormatsInterface::kInterfaceId, service);
}

}  // namespace orvik
