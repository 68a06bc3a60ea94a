#pragma once

#include "ImageWriterExport.h"

#include "OSGImage.h"

#include <vector>

class QImage;

// The offscreen render dialog's class-wide render settings and user-action flags, shared by
// every export. GUI thread only; the flags that report a user action are cleared by reading
// them.
class IMAGEWRITER_EXPORT kaImageRenderWidget {
public:
    // Number of eyes: 0 one, 1 two, 2 five, 3 nine. A plain integer: other values pass through.
    enum StereoMode : int {
        STEREO_NONE = 0,
        STEREO_TWO_EYES = 1,
        STEREO_FIVE_EYES = 2,
        STEREO_NINE_EYES = 3,
    };

    static void setPowerwall(bool powerwall);
    static bool getPowerwall();
    // Also sets the pixel format: RGBA with alpha, RGB without.
    static void setAlpha(bool alpha);
    static bool getAlpha();
    static void setAlphaColor(float r, float g, float b);
    static void getAlphaColor(float& r, float& g, float& b);
    static void setPixelFormat(osg::Image::PixelFormat pixelFormat);
    static osg::Image::PixelFormat getPixelFormat();
    static void setDataType(osg::Image::Type dataType);
    static osg::Image::Type getDataType();
    static void setActiveRenderPasses(const std::vector<bool>& passes);
    static const std::vector<bool>& getActiveRenderPasses();
    static int getNrOfQueuedRenderJobs();
    static void setNrOfQueuedRenderJobs(int jobs);

    // True once after a render was cancelled by the user.
    static bool wasCanceled();
    // True once after abortAllRenderings().
    static bool wasAllAborted();
    static void resetAbortAndCancelFlag();
    static void abortAllRenderings();
    // Lets the GUI handle pending events.
    static void processEvents();

    // An 8-bit QImage of 'image' (rows flipped).
    static void convertToQImage(QImage& out, const osg::ImagePtr& image);
    // 'image' into 'out' (its storage and type kept when the size matches), then reformatted
    // to the class-wide pixel format.
    static void convertToOSGImage(osg::ImagePtr& out, const QImage& image);

private:
    static bool _powerwall;
    static bool _alpha;
    static float _alpha_color[3];
    static osg::Image::PixelFormat _pixel_format;
    static osg::Image::Type _data_type;
    static bool _cancel;
    static bool _allAborted;
    static std::vector<bool> _activePasses;
    static int _nrOfQueuedRenderJobs;
};
