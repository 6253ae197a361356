#pragma once
/// @file
/// `--profile`: conversion of a picture's colours into another profile.

#include "picture.h"

namespace orvik::cli {

/// A file with an ICC profile, or "srgb" or "linear" for the built-in ones, which have a variant for grey pictures.
class TargetProfile {
public:
    /// Errors: those of opening the file, "found invalid magic number in color profile.", and "the profile is for no
    /// colours that pixels can have".
    static Result<TargetProfile> Open(const std::string& name);

    /// The profile for pixels of a colour space. If it is of another space, the pixels have to change to that.
    const ColorProfile& Get(const ColorSpace& space) const;

private:
    ColorProfile _profile, _greyProfile;
};

/// Converts the pixels of all images and layers and sets their profile; alphas and masks stay. A node keeps its pixel
/// format if that can hold the profile's colours; otherwise it gets the format with the same component type in the
/// profile's space. Perceptual intent, with black point compensation.
Result<void> ConvertColors(const Picture& picture, const TargetProfile& target);

}  // namespace orvik::cli
