// Cameras for what is really there: a box says little about the outline of a round or slanted thing.
#pragma once

#include "render/camera.h"
#include "render/scene.h"

namespace sds_render {

// Frames what a coarse look at the committed scene from the view's side meets, at the shutter's ends and middle; the
// box of the scene when it meets next to nothing.
Camera frame_scene(const Scene& scene, const CameraView& view, unsigned int width, unsigned int height);

}  // namespace sds_render
