#pragma once
/// @file
/// Line access to a selection of layers.

#include "image/layers/gfx_image_layerselection.h"
#include "image/layers/gfx_image_placement.h"

namespace orvik {

/// Line access to what a layer set picks below a node. One layer that needs no blending, an alpha and a mask are read
/// directly; layers that need it are composited in runs of 64 pixels, as RGBA of floats, or of doubles for a caller
/// with doubles. Nothing is allocated while lines are read.
/// Errors: those of `SelectLayers`, of the nodes' own handlers, of missing conversions.
Result<GetPixelHandlerStruct> GetSelectedPixelHandler(const ImageBaseRef& owner, const PixelRequest& request,
                                                      const LayerSet& layers);

}  // namespace orvik
