#pragma once
/// @file
/// `--profile`: colours on the way into another profile.

#include "picture.h"

namespace orvik::cli {

/// What a user may name: a file with an ICC profile, or "srgb" or "linear" for the built-in ones, of which grey
/// pictures get the grey variant.
class TargetProfile {
public:
    /// Errors: those of opening the file, "found invalid magic number in color profile." and "the profile is for no
    /// colours that pixels can have" for what is of no use there.
    static Result<TargetProfile> Open(const std::string& name);

    /// The profile for pixels of a colour space. It may be of another space, and the pixels have to follow it then.
    const ColorProfile& Get(const ColorSpace& space) const;

private:
    ColorProfile _profile, _greyProfile;
};

/// Converts the pixels of all images and layers and gives them the profile. Alphas and masks are no colours. A picture
/// keeps its pixel format as long as that can hold the profile's colours; otherwise it gets the format of the same
/// components in the profile's space. Perceptual intent, with black point compensation.
Result<void> ConvertColors(const Picture& picture, const TargetProfile& target);

}  // namespace orvik::cli
