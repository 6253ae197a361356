// Channel types, and the channels that join a type with a component type.

#include "orvik/gfx_image_channels.h"

#include <array>
#include <mutex>

#include "base/registration.h"
#include "pixel/gfx_image_pixelformat_compare.h"

namespace orvik {
namespace {

struct ChannelTypeRow {
    Id id;
    uint8_t fill;   ///< for destination channels without a source
    Id colorSpace;  ///< empty for types that are no colour
};

#define ORVIK_CHANNEL_TYPE(NAME) "net.orvik.image.imagechanneltype." NAME
constexpr ChannelTypeRow kChannelTypes[] = {
    {channeltypes::kRed, 0, colorspaces::kRgb},
    {channeltypes::kGreen, 0, colorspaces::kRgb},
    {channeltypes::kBlue, 0, colorspaces::kRgb},
    {channeltypes::kAlpha, 255, colorspaces::kAlpha},
    {channeltypes::kGrey, 0, colorspaces::kGrey},
    {channeltypes::kUnknown, 0, {}},
    {channeltypes::kUnused, 0, {}},
    {ORVIK_CHANNEL_TYPE("cmyk_c"), 0, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_m"), 0, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_y"), 0, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_k"), 0, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_ic"), 255, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_im"), 255, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_iy"), 255, colorspaces::kCmyk},
    {ORVIK_CHANNEL_TYPE("cmyk_ik"), 255, colorspaces::kCmyk},
    {channeltypes::kDepth, 0, {}},
    {channeltypes::kDepthBack, 0, {}},
    {ORVIK_CHANNEL_TYPE("materialid"), 0, {}},
    {ORVIK_CHANNEL_TYPE("nodeid"), 0, {}},
    {ORVIK_CHANNEL_TYPE("uvu"), 0, {}},
    {ORVIK_CHANNEL_TYPE("uvv"), 0, {}},
    {ORVIK_CHANNEL_TYPE("normal"), 0, {}},
    {ORVIK_CHANNEL_TYPE("realpix"), 0, {}},
    {ORVIK_CHANNEL_TYPE("coverage"), 0, {}},
    {ORVIK_CHANNEL_TYPE("bg"), 0, {}},
    {ORVIK_CHANNEL_TYPE("noderenderid"), 0, {}},
    {ORVIK_CHANNEL_TYPE("transparency"), 0, {}},
    {ORVIK_CHANNEL_TYPE("velocity"), 0, {}},
    {ORVIK_CHANNEL_TYPE("weight"), 0, {}},
    {ORVIK_CHANNEL_TYPE("mask"), 0, {}},
};

/// A channel of whole components. Its class makes it, and its channel type then sets the type.
class ImageChannelImpl final : public virtual ImageChannelInterface {
public:
    explicit ImageChannelImpl(ComponentType component) : _component(component) {}

    BITS GetChannelBits() const override { return BITS(GetComponentBits(_component)); }
    ImageChannelType GetChannelType() const override { return _type.Get(); }
    const DataType* GetDataType() const override { return DataTypeOf(_component); }
    Bool IsIdenticalComponent(const void* a, const void* b, Int tolerance) const override {
        return pixel::IsIdenticalValue(_component, a, b, tolerance);
    }
    ComponentType GetComponentType() const override { return _component; }

    void SetChannelType(const ImageChannelType& type) { _type = type; }

private:
    ComponentType _component;
    WeakRef<ImageChannelTypeInterface> _type;  // the type owns its channels
};

constexpr Id kChannelClasses[kComponentTypeCount] = {
    "net.orvik.image.class.imagechannelPix8u",  "net.orvik.image.class.imagechannelPix8s",
    "net.orvik.image.class.imagechannelPix16u", "net.orvik.image.class.imagechannelPix16s",
    "net.orvik.image.class.imagechannelPix32u", "net.orvik.image.class.imagechannelPix32s",
    "net.orvik.image.class.imagechannelPix16f", "net.orvik.image.class.imagechannelPix32f",
    "net.orvik.image.class.imagechannelPix64f",
};

template <int I>
Result<ObjectRef> CreateChannel() {
    return ObjectRef(TRY(NewObj<ImageChannelImpl>(static_cast<ComponentType>(I))));
}

class ImageChannelTypeImpl final : public virtual ImageChannelTypeInterface {
public:
    explicit ImageChannelTypeImpl(const ChannelTypeRow& row) : _row(row) {}

    uint32_t GetDefaultFillValue() const override { return _row.fill == 0 ? 0 : 0xFFFFFFFF; }
    ColorSpace GetColorSpace() const override {
        return _row.colorSpace.IsEmpty() ? ColorSpace() : colorspaces::Get(_row.colorSpace);
    }
    Result<ImageChannel> GetChannel(const DataType* dataType) const override {
        const ComponentType component = ComponentTypeOf(dataType);
        if (component == ComponentType::None)
            return IllegalArgumentError("@ is no component type.", dataType ? dataType->name : "nullptr");
        const auto index = static_cast<size_t>(component);
        std::lock_guard guard(_lock);
        if (!_channels[index]) {
            const ObjectRef object = TRY(ClassRef(kChannelClasses[index]).Create());
            auto* channel = dynamic_cast<ImageChannelImpl*>(object.GetPointer());
            if (!channel)
                return UnexpectedError("Class @ makes no channels.", kChannelClasses[index]);
            channel->SetChannelType(ImageChannelType(const_cast<ImageChannelTypeImpl*>(this)));
            _channels[index] = ImageChannel(channel);
        }
        return _channels[index];
    }
    Id GetId() const override { return _row.id; }

private:
    const ChannelTypeRow& _row;
    mutable SpinLock _lock;
    mutable std::array<ImageChannel, kComponentTypeCount> _channels;  ///< made on first use
};

template <int... I>
Result<void> PublishChannelClasses(Publisher& publisher, std::integer_sequence<int, I...>) {
    constexpr CreateFunction kCreate[] = {&CreateChannel<I>...};
    for (int i = 0; i < kComponentTypeCount; ++i)
        TRY(publisher.PublishClass(kChannelClasses[i], kCreate[i]));
    return {};
}

}  // namespace

Result<void> RegisterChannels(Publisher& publisher) {
    TRY(PublishChannelClasses(publisher, std::make_integer_sequence<int, kComponentTypeCount>()));
    for (const ChannelTypeRow& row : kChannelTypes) {
        const ObjectRef type = TRY(NewObj<ImageChannelTypeImpl>(row));
        TRY(publisher.PublishObject(row.id, type));
        TRY(publisher.AddToRegistry(kImageChannelTypeRegistry, row.id, type));
    }
    return {};
}

}  // namespace orvik
