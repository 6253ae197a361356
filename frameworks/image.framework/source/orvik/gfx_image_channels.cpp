#include "orvik/gfx_image_channels.h"

#include "orvik/registrybase.h"

namespace orvik {

namespace {
const DataType* const* GetComponentDataTypes() {
    static const DataType* const types[kComponentTypeCount] = {
        &GetDataType<Pix8u>(),  &GetDataType<Pix8s>(),  &GetDataType<Pix16u>(),
        &GetDataType<Pix16s>(), &GetDataType<Pix32u>(), &GetDataType<Pix32s>(),
        &GetDataType<Pix16f>(), &GetDataType<Pix32f>(), &GetDataType<Pix64f>(),
    };
    return types;
}
}  // namespace

ComponentType ComponentTypeOf(const DataType* type) noexcept {
    const DataType* const* types = GetComponentDataTypes();
    for (int i = 0; type && i < kComponentTypeCount; ++i) {
        if (*types[i] == *type)
            return static_cast<ComponentType>(i);
    }
    return ComponentType::None;
}

const DataType* DataTypeOf(ComponentType type) noexcept {
    return type < ComponentType::None ? GetComponentDataTypes()[static_cast<int>(type)] : nullptr;
}

namespace channeltypes {

ImageChannelType Get(const Id& id) { return FindPublished<ImageChannelTypeInterface>(id); }

ImageChannel GetChannel(const Id& typeId, ComponentType component) {
    return Get(typeId)->GetChannel(DataTypeOf(component)).GetValueOr(ImageChannel());
}

}  // namespace channeltypes
}  // namespace orvik
