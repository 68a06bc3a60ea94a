#pragma once

#include "OSGCamera.h"
#include "OSGImage.h"

#include <vector>

class kaOSGWidget;

// Renders the main view's viewports, with their current (decorated) cameras, into every
// existing tile image (one per render pass; null entries are skipped), in each image's pixel
// format and data type: with OpenGL (every image gets the picture), or with the raytracer
// when the host raytraces (each image gets its own pass). A tile camera's region is drawn at the
// pixel size it has in the whole picture, in the lower-left corner of the tile image, so a clamped
// last tile is not stretched. GUI thread only; the images must outlive the renderer's use of them.
class kaSharedOffscreenRender {
public:
    // Remembers the view's viewport cameras, and puts them back when it goes: exports decorate
    // them while they render.
    kaSharedOffscreenRender(kaOSGWidget* view, const std::vector<osg::ImagePtr>& tileImages,
                            int sampleQuality);
    ~kaSharedOffscreenRender();
    kaSharedOffscreenRender(const kaSharedOffscreenRender&) = delete;
    kaSharedOffscreenRender& operator=(const kaSharedOffscreenRender&) = delete;

    // The one sample to make on the next updateGL (-1: all of the viewport's samples).
    void setRtSample(int sample) { _rtSample = sample; }
    // Renders. False when rendering failed (logged) or was stopped by the viewport's callback.
    bool updateGL();

private:
    kaOSGWidget* _view;
    std::vector<osg::ImagePtr> _tileImages;
    int _sampleQuality;
    int _rtSample = -1;
    std::vector<osg::CameraPtr> _viewCameras;
};
