// The five colour spaces.

#include "base/registration.h"

#include "orvik/gfx_image_colorprofile.h"

namespace orvik {
namespace {

struct ColorSpaceRow {
    Id id;
    Id nonlinear;  ///< default profile of integer pixels
    Id linear;     ///< default profile of float pixels
};

constexpr ColorSpaceRow kColorSpaces[] = {
    {colorspaces::kRgb, colorprofiles::kSrgb, colorprofiles::kLinearRgb},
    {colorspaces::kGrey, colorprofiles::kSgrey, colorprofiles::kLinearGrey},
    {colorspaces::kCmyk, colorprofiles::kCmykDefault, colorprofiles::kCmykDefault},
    {colorspaces::kYuv, colorprofiles::kYuvDefault, colorprofiles::kYuvDefault},
    {colorspaces::kAlpha, colorprofiles::kNone, colorprofiles::kNone},
};

class ColorSpaceImpl final : public virtual ColorSpaceInterface {
public:
    explicit ColorSpaceImpl(const ColorSpaceRow& row) : _row(row) {}

    ColorProfile GetDefaultNonlinearColorProfile() const override { return colorprofiles::Get(_row.nonlinear); }
    ColorProfile GetDefaultLinearColorProfile() const override { return colorprofiles::Get(_row.linear); }
    Id GetId() const override { return _row.id; }

private:
    const ColorSpaceRow& _row;
};

}  // namespace

Result<void> RegisterColorSpaces(Publisher& publisher) {
    for (const ColorSpaceRow& row : kColorSpaces) {
        const ObjectRef space = TRY(NewObj<ColorSpaceImpl>(row));
        TRY(publisher.PublishObject(row.id, space));
        TRY(publisher.AddToRegistry(kColorSpaceRegistry, row.id, space));
    }
    return {};
}

}  // namespace orvik
