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
    // Offers images of the whole picture, alike to the tile images one by one, with the tile's
    // lower-left corner at (x, y) in them: a view drawn whole by one viewport with OpenGL is
    // then drawn straight into them, and the tile images are left as they were. That spares a
    // large picture's copy from its tile, and the tile's memory. An empty list withdraws the
    // offer.
    void offerPicture(const std::vector<osg::ImagePtr>& images, int x, int y);
    // Whether the last updateGL drew into the offered picture instead of the tile images.
    bool drewIntoPicture() const { return _drewIntoPicture; }
    // Renders. False when rendering failed (logged) or was stopped by the viewport's callback.
    bool updateGL();

private:
    bool pictureTakesTheView() const;

    kaOSGWidget* _view;
    std::vector<osg::ImagePtr> _tileImages;
    std::vector<osg::ImagePtr> _picture;
    int _pictureX = 0, _pictureY = 0;
    bool _drewIntoPicture = false;
    int _sampleQuality;
    int _rtSample = -1;
    std::vector<osg::CameraPtr> _viewCameras;
};
