// Displacements drawn as arrows.
#pragma once

#include "motion.h"

namespace echo2image {

// How many times as long as they are arrows are drawn, so that most do not reach their neighbours; 1 or more.
int arrow_magnification(const std::vector<BlockMotion>& blocks, const MotionOptions& options);

// Arrows as marked white pixels with a black seam, which begin in the middles of the blocks. A pixel of the blocks' picture
// is `zoom` pixels of `image`. Blocks that are not tracked get none.
void draw_arrows(GreyImage& image, int zoom, int magnification, const std::vector<BlockMotion>& blocks,
                 const MotionOptions& options);

// Adds a strip below the image with an arrow of stated length. `pixel_size` is that of the blocks' picture in metres, 0 when
// unknown: the length is then in its pixels.
GreyImage with_arrow_key(const GreyImage& image, int zoom, int magnification, double pixel_size);

} // namespace echo2image
