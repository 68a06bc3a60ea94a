#pragma once

#include "ImageWriterExport.h"

#include "OSGCameraDecorators.h"
#include "OSGImage.h"

#include <QDialog>

#include <atomic>
#include <vector>

class QImage;
class QLabel;
class QProgressBar;
class QPushButton;
class kaOSGWidget;
class kaSharedOffscreenRender;

// The offscreen render dialog: renders the host's main view at any resolution, in tiles that
// fit a memory budget, with supersampling, stereo eyes and render passes, while showing its
// progress and an Abort button. An export makes one (isValid() tells whether it can render),
// calls render() once per image or eye, and deletes it; the destructor gives back to the main
// view what the constructor took.
//
// The class-wide settings (alpha, pixel format, data type, active passes, powerwall) are set by
// the export before construction. The flags that report a user action (wasCanceled,
// wasAllAborted) are cleared by reading them. GUI thread only.
class IMAGEWRITER_EXPORT kaImageRenderWidget : public QDialog {
    Q_OBJECT
public:
    // Number of eyes: 0 one, 1 two, 2 five, 3 nine. A plain integer: other values pass through.
    enum StereoMode : int {
        STEREO_NONE = 0,
        STEREO_TWO_EYES = 1,
        STEREO_FIVE_EYES = 2,
        STEREO_NINE_EYES = 3,
    };

    // 'superSampling' 0..3; 'sharedOffscreen' must be true to render; 'passCount' is 47 when
    // render passes are exported, else 1; 'tonemapHDR' goes to the main camera's tone mapping.
    // 'addSignature' is accepted and not used.
    kaImageRenderWidget(QWidget* parent, int width, int height, StereoMode stereoMode,
                        bool addSignature, int superSampling, bool sharedOffscreen,
                        bool ignoreAspect, unsigned int passCount, bool tonemapHDR);
    ~kaImageRenderWidget() override;

    bool isValid();
    bool wasAborted() const;
    void setAutoProgress(bool autoProgress);
    void setFastMode(bool fastMode);
    bool getFastMode();
    kaOSGWidget* getGLWidget();
    QProgressBar* getProgress();
    QProgressBar* getTotalProgress();
    void setLabelText(const QString& text);
    void setTotalProgressLabelText(const QString& text);
    void setShowTotalProgress(bool show);
    // While the Abort button is hidden no GUI events are processed during rendering.
    void setShowCancelButton(bool show);

    // One image per active render pass (pass 0 always), 'eye' selecting the stereo eye;
    // 'preview', when given, gets an 8-bit copy of the first image. Empty on failure; after an
    // abort the unfinished images as they stand.
    std::vector<osg::ImagePtr> render(QImage* preview, int eye, bool noEventProcessing,
                                      bool showDialog);

    // The tile plan, for diagnostics and tests.
    int getMaxTileWidth() const { return _maxTileWidth; }
    int getMaxTileHeight() const { return _maxTileHeight; }
    int getTileWidth() const { return _tileWidth; }
    int getTileHeight() const { return _tileHeight; }
    float getTileFractionX() const { return _tileFractionX; }
    float getTileFractionY() const { return _tileFractionY; }
    int getSampleQuality() const { return _sampleQuality; }
    float getAspectRatio() const { return _aspectRatio; }
    int getEyeViewports() const { return _eyeViewports; }
    const std::vector<osg::ImagePtr>& getTileImages() const { return _tileImages; }
    const std::vector<osg::ImagePtr>& getImages() const { return _images; }
    osg::MultiStereoCameraDecoratorPtr getMultiStereoCamera() const { return _multiStereoCamera; }
    osg::ProjectionCameraDecoratorPtr getProjectionCamera() const { return _projectionCamera; }
    osg::TileCameraDecoratorPtr getTileCamera(int index) const { return _tileCameras[index]; }

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
    // Passes are active and the host renders with its raytracer.
    static bool hasActiveRenderPasses();
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
    // Gamma correction of a 32-bit image: each colour c becomes (c / 255) ^ (1 / gamma) * 255,
    // truncated; every pixel becomes opaque.
    static void applyGamma(QImage& image, float gamma);

protected:
    void reject() override;

private slots:
    void clickedAbort();

private:
    struct RenderProgressContext {
        bool noEventProcessing;
        bool showDialog;
        int counter;
        kaImageRenderWidget* widget;
        int64_t startTime;
    };

    void createSharedOffscreenWidget();
    void createGUI();
    void createCamera();
    void initStereo();
    void initSuperSampling();
    void calcAspectRatio(bool ignoreAspect);
    void createWidget();
    void initWidget();
    void renderSingleSampled(bool noEventProcessing, bool showDialog);
    static bool eventProcessingCB(int, int, bool advance, void* context);
    bool modifyAspectRatio(osg::ImagePtr& image);
    void calcTotalProgress();
    int getFirstActivePass() const;
    void renderGL();
    void addTileImage(QImage& image, const QImage& tile, int x, int y);
    void selectEye(int eye);
    void reportProgress(int value);

    kaOSGWidget* _glWidget = nullptr;
    kaSharedOffscreenRender* _offscreenRender = nullptr;
    QProgressBar* _progress = nullptr;
    QProgressBar* _totalProgress = nullptr;
    QLabel* _label = nullptr;
    QLabel* _totalLabel = nullptr;
    QPushButton* _abortButton = nullptr;
    bool _aborted = false;
    bool _autoProgress = true;
    StereoMode _stereoMode = STEREO_NONE;
    int _maxTileWidth = 0, _maxTileHeight = 0;
    int _width = 0, _height = 0;
    int _tileWidth = 0, _tileHeight = 0;
    int _superSamplingLevel = 0;
    int _sampleQuality = 0;
    float _tileFractionX = 1.0f, _tileFractionY = 1.0f;
    int _eyeViewports = 1;
    bool _valid = true;
    unsigned int _passCount = 1;
    osg::TileCameraDecoratorPtr _tileCameras[2];
    std::vector<osg::ImagePtr> _tileImages;
    std::vector<osg::ImagePtr> _images;
    osg::CameraPtr _savedCameras[2];
    osg::MultiStereoCameraDecoratorPtr _multiStereoCamera;
    osg::ProjectionCameraDecoratorPtr _projectionCamera;
    float _aspectRatio = 1.0f;
    float _savedAspect = 1.0f;
    bool _sharedOffscreen = false;
    float _viewWidth = 0.0f, _viewHeight = 0.0f;
    bool _savedOcclusionCulling = false;
    bool _savedRedrawEnabled = true;
    bool _fastMode = false;
    bool _tonemapHDR = false;

    static bool _powerwall;
    static bool _alpha;
    static float _alpha_color[3];
    // Read by background image writers too (a converted image gets fresh storage of these).
    static std::atomic<osg::Image::PixelFormat> _pixel_format;
    static std::atomic<osg::Image::Type> _data_type;
    static bool _cancel;
    static bool _allAborted;
    static std::vector<bool> _activePasses;
    static int _nrOfQueuedRenderJobs;
};
