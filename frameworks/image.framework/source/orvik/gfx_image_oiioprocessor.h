#pragma once
/// @file
/// Colour processors of an optional framework, out of which colour profiles can be baked.

#include <array>

#include "orvik/errortypes.h"
#include "orvik/objectbase.h"
#include "orvik/string.h"

namespace orvik {

/// A colour processing between RGB numbers of a device and CIE XYZ: three values in, three out, in both directions.
/// "net.orvik.image_oiio.framework" provides such processors where it is loaded; none ships with this module.
class OiioProcessorInterface : public virtual Object {
    ORVIK_INTERFACE(OiioProcessorInterface, "net.orvik.image.interface.oiioprocessor");

public:
    using Triple = std::array<float, 3>;

    /// For the description of a profile.
    virtual String GetName() const { return Unbound(); }
    /// For the copyright of a profile.
    virtual String GetCopyright() const { return Unbound(); }
    /// @param rgb  0 ... 1
    /// @return XYZ relative to D50, the white of a profile's connection space, where Y = 1; outside 0 ... 2 is clamped
    virtual Result<Triple> Forward(const Triple& rgb) const {
        (void)rgb;
        return Unbound();
    }
    /// @param xyz  as `Forward` returns it, 0 ... 2
    /// @return RGB; outside 0 ... 1 is clamped
    virtual Result<Triple> Inverse(const Triple& xyz) const {
        (void)xyz;
        return Unbound();
    }
};
using OiioProcessor = Ref<OiioProcessorInterface>;

}  // namespace orvik
