// A thing from all sides, as one picture.
#pragma once

#include <vector>

#include "render/renderer.h"

namespace sds_render {

// Cameras at `count` azimuths evenly around the committed scene, the first at the view's own. All stand equally far
// away: so far that the scene stays inside a picture of width x height pixels while it turns about its middle.
std::vector<Camera> surround_scene(const Scene& scene, const CameraView& view, unsigned int count, unsigned int width,
                                   unsigned int height);

// Cells of a sheet of pictures, row by row: the grid whose cells have the longest smaller side.
struct SheetGrid {
    // `count` is at least 1.
    SheetGrid(unsigned int count, unsigned int width, unsigned int height);

    unsigned int columns, rows;
    unsigned int cell_width, cell_height;  // 0 when the sheet is too small

    // Of picture i.
    ImageArea get_area(unsigned int i) const {
        return {i % columns * cell_width, i / columns * cell_height, cell_width, cell_height};
    }
};

// The pictures of cameras, such as those of `surround_scene`, side by side on one of width x height pixels, whose cells
// they are made for. What no cell covers is 0 in every channel. Statistics are those of all views together. `progress`
// may be null; its innermost task goes to its end.
Rendering render_turntable(const Scene& scene, const std::vector<Camera>& cameras, unsigned int width,
                           unsigned int height, const RenderOptions& options, AppProgressBar* progress);

}  // namespace sds_render
