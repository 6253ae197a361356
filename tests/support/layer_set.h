#pragma once
// Layer sets from lists of paths.

#include <gtest/gtest.h>
#include <vector>

#include "orvik/layerset.h"

namespace orvik {

/// A set of paths; an empty one means all layers.
inline LayerSet MakeLayerSet(const std::vector<const char*>& paths, LAYERSETMODE mode = LAYERSETMODE::LAYERS,
                             const char* image = "") {
    LayerSet set;
    HashSet<String> selected;
    for (const char* path : paths)
        EXPECT_TRUE(selected.Insert(path));
    EXPECT_TRUE(set.SetSelectedLayers(selected));
    EXPECT_TRUE(set.SetMode(mode));
    EXPECT_TRUE(set.SetSelectedImage(image));
    return set;
}

}  // namespace orvik
