// The render dialog's set-up and teardown: what it decides at construction (tile size under
// the memory budget, sample quality, pass images, aspect correction, camera decoration, GUI)
// and what its destructor gives back to the main view.
#include "kaImageRenderWidget.h"

#include "kaRenderPassCatalogue.h"

#include "OSGNodeCores.h"
#include "kaADPInterface.h"
#include "kaGLInfo.h"
#include "kaImageWriter.h"
#include "kaInterfaceFactory.h"
#include "kaLog.h"
#include "kaOSGWidget.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRenderParameter.h"
#include "kaSharedOffscreenRender.h"
#include "kaUberCameraUtils.h"

#include <QGridLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdio>

namespace {
// A pass of data keeps its alpha channel as it is: only light follows the alpha convention.
void markAlphaOfPass(const osg::ImagePtr& image, int pass) {
    if (!kaRenderPass::holdsLight(pass))
        image->setAlphaMode(osg::Image::AlphaMode::Independent);
}
} // namespace

namespace {

constexpr int kUnlimited = 2147483647;

// Megabytes a w x h tile of 'images' images needs at 16 bytes a pixel, truncated.
uint64_t tileNeed(uint64_t w, uint64_t h, uint64_t images) {
    return (w * h * images * 16) / 1048576;
}

// Looked up on every use: the host may register or replace it at any time, and the total
// progress changes a few times a frame.
kaADPInterface* adpInterface() {
    return kaInterfaceFactory::get<kaADPInterface>("kaADPInterface");
}

} // namespace

kaImageRenderWidget::kaImageRenderWidget(QWidget* parent, int width, int height,
                                         StereoMode stereoMode, bool, int superSampling,
                                         bool sharedOffscreen, bool ignoreAspect,
                                         unsigned int passCount, bool tonemapHDR)
    : QDialog(parent, Qt::Dialog) {
    setObjectName("ImageRenderWidget");
    _cancel = false;
    setModal(true);
    _width = width;
    _height = height;
    _stereoMode = stereoMode;
    _passCount = passCount;
    _sharedOffscreen = sharedOffscreen;
    _tonemapHDR = tonemapHDR;

    _superSamplingLevel = std::min(std::max(superSampling, 0), 3);
    switch (superSampling) {
    case 0:
        _sampleQuality = 0;
        break;
    case 1:
        _sampleQuality = 2;
        break;
    case 2:
        _sampleQuality = 3;
        break;
    default:
        _sampleQuality = 4;
    }

    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view) {
        _valid = false;
        return;
    }
    _savedRedrawEnabled = view->isRedrawEnabled();
    view->setRedrawEnabled(false);

    int budget = 2048;
    kaImageWriter::getFromMessage(kaPreferences::getData(), "Image Export Max Framebuffer Memory",
                                  budget);
    if (budget == 0)
        budget = kUnlimited;

    if (!kaOSGWidget::getRaytracing()) {
        const int videoMemory = kaGLInfo::getVideoMemorySizeMB();
        if (videoMemory > 0 && budget > videoMemory) {
            budget = videoMemory / 2;
            std::printf("kaImageRenderWidget: reduced maximum frame buffer size to %d MB memory!\n",
                        budget);
            std::fflush(stdout);
        }
        const int maxTexture = kaGLInfo::getMaxTextureSize();
        if (kaRenderParameter::getUseRenderTimeLimit() &&
            (width > maxTexture || height > maxTexture)) {
            _valid = false;
            QMessageBox::warning(
                nullptr, kaPlatform::getAppVersionName(),
                tr("Resolution too large for time based rendering in OpenGL mode!\nTime based "
                   "rendering is only supported for\nresolutions up to %1x%1 pixels on this "
                   "GPU.\nPlease turn off time based rendering or turn on raytracing to render.\n")
                    .arg(maxTexture),
                QMessageBox::Ok);
            return;
        }
    }
    // Time-based and denoised renders need the whole frame at once: never tiled.
    const bool denoiser = kaRenderParameter::getDenoiseFilter() >= 2;
    if (kaRenderParameter::getUseRenderTimeLimit() || denoiser)
        budget = kUnlimited;

    uint64_t images = 1;
    for (bool active : _activePasses)
        images += active ? 1 : 0;
    if (denoiser)
        images += uint64_t(std::max(kaRenderParameter::getDenoiserInput(), 0));

    bool wholeFrame = false;
    const osg::CameraPtr mainCamera = view->getViewport()->getCamera();
    if (osg::TonemappingSettingsPtr tonemapping =
            kaUberCameraUtils::getTonemappingSettings(mainCamera)) {
        wholeFrame = tonemapping->hasPostprocessingFlag(1) || tonemapping->hasPostprocessingFlag(2);
        tonemapping->setTonemapHDR(tonemapHDR);
    }

    _maxTileWidth = width;
    _maxTileHeight = height;
    if (!wholeFrame && !(tileNeed(uint64_t(width), uint64_t(height), images) <= uint64_t(budget) ||
                         unsigned(width) < 257u || unsigned(height) < 257u)) {
        int w = width, h = height;
        for (;;) {
            const int heightBefore = h;
            h /= 2;
            if (tileNeed(uint64_t(w), uint64_t(h), images) <= uint64_t(budget))
                break;
            const int widthBefore = w;
            w /= 2;
            if (tileNeed(uint64_t(w), uint64_t(h), images) <= uint64_t(budget) || widthBefore < 514)
                break;
            if (heightBefore <= 513)
                break;
        }
        _maxTileWidth = w;
        _maxTileHeight = h;
    }

    _viewWidth = float(view->width());
    _viewHeight = float(view->height());

    _tileWidth = width;
    while (_tileWidth > _maxTileWidth)
        _tileWidth = (_tileWidth + 1) / 2;
    _tileHeight = height;
    while (_tileHeight > _maxTileHeight)
        _tileHeight = (_tileHeight + 1) / 2;
    _tileFractionX = float(double(_tileWidth) * (1.0 / double(width)));
    _tileFractionY = float(double(_tileHeight) * (1.0 / double(height)));

    std::vector<bool> wanted(passCount, false);
    for (unsigned int i = 0; i < passCount; ++i)
        wanted[i] = i < _activePasses.size() && _activePasses[i];
    if (!wanted.empty() && std::none_of(wanted.begin(), wanted.end(), [](bool w) { return w; }))
        wanted[0] = true; // pass 0 always renders
    for (unsigned int i = 0; i < passCount; ++i) {
        osg::ImagePtr tile;
        if (wanted[i]) {
            tile = osg::Image::create();
            tile->set(_pixel_format, _tileWidth, _tileHeight, 1, 1, 1, 0.0, nullptr, _data_type,
                      true);
            markAlphaOfPass(tile, int(i));
        }
        _tileImages.push_back(tile);
    }

    if (auto* perspective = dynamic_cast<osg::PerspectiveCamera*>(mainCamera.get()))
        _savedAspect = perspective->getAspect();
    calcAspectRatio(ignoreAspect);

    if (sharedOffscreen) {
        _savedOcclusionCulling = view->getOcclusionCulling();
        view->setOcclusionCulling(false);
        createSharedOffscreenWidget();
    }

    createGUI();
    createCamera();
    initStereo();
    initSuperSampling();
}

void kaImageRenderWidget::calcAspectRatio(bool ignoreAspect) {
    if (ignoreAspect)
        return;
    const float viewAspect = _viewWidth / _viewHeight;
    const float imageAspect = float(_width) / float(_height);
    _aspectRatio = viewAspect < imageAspect ? 1.0f : viewAspect;
}

void kaImageRenderWidget::createSharedOffscreenWidget() {
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    _offscreenRender = new kaSharedOffscreenRender(view, _tileImages, _sampleQuality);
    if (view && view->getCamera()) {
        view->getCamera()->setAspect(_savedAspect);
        osg::recordChange(view->getCamera(), osg::PerspectiveCamera::AspectFieldMask);
    }
}

void kaImageRenderWidget::createGUI() {
    const float scale = kaPlatform::getDpiScaleX();
    setWindowTitle(tr("Image Render"));
    auto* grid = new QGridLayout;
    grid->setSpacing(4);
    _label = new QLabel(tr("Creating image ..."));
    _label->setMinimumWidth(int(96 * scale));
    _progress = new QProgressBar;
    _progress->setMinimumWidth(int(128 * scale));
    _abortButton = new QPushButton(tr("Abort"));
    grid->addWidget(_label, 1, 0);
    grid->addWidget(_progress, 1, 1);
    grid->addWidget(_abortButton, 1, 2);
    _totalLabel = new QLabel(tr("Creating movie ..."));
    _totalLabel->setMinimumWidth(int(96 * scale));
    _totalProgress = new QProgressBar;
    _totalProgress->setMinimumWidth(int(128 * scale));
    grid->addWidget(_totalLabel, 0, 0);
    grid->addWidget(_totalProgress, 0, 1);
    _totalLabel->hide();
    _totalProgress->hide();
    connect(_abortButton, &QPushButton::clicked, this, &kaImageRenderWidget::clickedAbort);
    connect(_totalProgress, &QProgressBar::valueChanged, this, [](int value) {
        if (kaADPInterface* adp = adpInterface())
            adp->imageRenderTotalProgressChanged(value);
    });
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    setMinimumWidth(int(400 * scale));
    resize(int(400 * scale), int(1 * scale));
    calcTotalProgress();
}

void kaImageRenderWidget::createCamera() {
    _savedCameras[0] = _savedCameras[1] = osg::CameraPtr();
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view)
        return;
    _eyeViewports = 1;
    if (view->isStereoEnabled() && view->getStereoMode() != 2 && view->getStereoMode() != 3)
        _eyeViewports = 2;
    const osg::WindowPtr& window = view->getWindow();
    for (int i = 0; i < _eyeViewports && size_t(i) < window->getNViewports(); ++i) {
        const osg::UberViewportPtr& viewport = window->getViewport(size_t(i));
        _savedCameras[i] = viewport->getCamera();
        _tileCameras[i] = osg::TileCameraDecorator::create();
        _tileCameras[i]->setFullSize(uint32_t(_width), uint32_t(_height));
        _tileCameras[i]->setDecoratee(_savedCameras[i]);
        osg::recordChange(_tileCameras[i], osg::TileCameraDecorator::DecorateeFieldMask);
        viewport->setCamera(_tileCameras[i]);
        osg::recordChange(viewport, osg::UberViewport::CameraFieldMask);
    }
}

void kaImageRenderWidget::initSuperSampling() {
    std::vector<bool> wanted(_passCount, false);
    for (unsigned int i = 0; i < _passCount; ++i)
        wanted[i] = i < _activePasses.size() && _activePasses[i];
    if (!wanted.empty() && std::none_of(wanted.begin(), wanted.end(), [](bool w) { return w; }))
        wanted[0] = true; // pass 0 always renders
    for (unsigned int i = 0; i < _passCount; ++i) {
        osg::ImagePtr image;
        if (wanted[i]) {
            image = osg::Image::create();
            if (!image->set(_pixel_format, _width, _height, 1, 1, 1, 0.0, nullptr, _data_type,
                            true)) {
                image = nullptr;
                QMessageBox::warning(
                    nullptr, tr("Image Export"),
                    tr("Couldn't allocate enough memory (%1 MB), try to reduce the resolution or "
                       "the supersampling factor!")
                        .arg(double(_width) * double(_height) * 3.0 / 1048576.0, 6, 'f', 1));
                _valid = false;
            }
            if (image)
                markAlphaOfPass(image, int(i));
        }
        _images.push_back(image);
    }
}

void kaImageRenderWidget::createWidget() {
    _glWidget = new kaOSGWidget();
    _glWidget->setSize(_tileWidth, _tileHeight);
    if (_alpha)
        _glWidget->getBackground()->setColors({0, 0, 0}, {0, 0, 0});
    initWidget();
}

void kaImageRenderWidget::initWidget() {
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (!view || !_glWidget)
        return;
    _glWidget->setSceneRoot(view->getSceneRoot());
    _glWidget->setStereoEnabled(view->isStereoEnabled());
    _glWidget->setStereoMode(view->getStereoMode());
    _glWidget->setEyeSeparation(view->getEyeSeparation());
    _glWidget->setZeroParallaxDistance(view->getZeroParallaxDistance());
    _glWidget->getCamera()->setNear(view->getCamera()->getNear());
    _glWidget->getCamera()->setFar(view->getCamera()->getFar());
    _glWidget->getCamera()->setFov(view->getCamera()->getFov());
    _glWidget->getCamera()->setOrthographicHeight(view->getCamera()->getOrthographicHeight());
    _glWidget->getCamera()->setAspect(view->getCamera()->getAspect());
    // The navigator's state is the camera's pose.
    auto mine = osg::dynamic_pointer_cast<osg::Transform>(_glWidget->getCameraBeacon()->getCore());
    auto theirs = osg::dynamic_pointer_cast<osg::Transform>(view->getCameraBeacon()->getCore());
    if (mine && theirs)
        mine->setMatrix(theirs->getMatrix());
}

kaImageRenderWidget::~kaImageRenderWidget() {
    kaOSGWidget* view = kaOSGWidget::getMGLW(-1);
    if (_sharedOffscreen && view) {
        view->getCamera()->setAspect(_savedAspect);
        osg::recordChange(view->getCamera(), osg::PerspectiveCamera::AspectFieldMask);
        view->setRedrawEnabled(_savedRedrawEnabled);
        if (osg::TonemappingSettingsPtr tonemapping =
                kaUberCameraUtils::getTonemappingSettings(view->getCamera())) {
            tonemapping->setTonemapHDR(false);
        }
    }
    auto release = [](auto& decorator) {
        if (decorator) {
            decorator->setDecoratee(osg::CameraPtr());
            osg::recordChange(decorator, osg::CameraDecorator::DecorateeFieldMask);
            decorator = nullptr;
        }
    };
    release(_tileCameras[0]);
    release(_tileCameras[1]);
    release(_projectionCamera);
    release(_multiStereoCamera);
    _tileImages.clear();
    _images.clear();
    _savedCameras[0] = _savedCameras[1] = osg::CameraPtr();
    delete _glWidget;
    delete _offscreenRender;
    if (_sharedOffscreen && view) {
        view->setOcclusionCulling(_savedOcclusionCulling);
        kaMaterials::reinitCamera();
    }
}

bool kaImageRenderWidget::isValid() {
    return _valid;
}
bool kaImageRenderWidget::wasAborted() const {
    return _aborted;
}
void kaImageRenderWidget::setAutoProgress(bool autoProgress) {
    _autoProgress = autoProgress;
}
void kaImageRenderWidget::setFastMode(bool fastMode) {
    _fastMode = fastMode;
}
bool kaImageRenderWidget::getFastMode() {
    return _fastMode;
}
kaOSGWidget* kaImageRenderWidget::getGLWidget() {
    return _glWidget;
}
QProgressBar* kaImageRenderWidget::getProgress() {
    return _progress;
}
QProgressBar* kaImageRenderWidget::getTotalProgress() {
    return _totalProgress;
}
void kaImageRenderWidget::setLabelText(const QString& text) {
    if (_label)
        _label->setText(text);
}
void kaImageRenderWidget::setTotalProgressLabelText(const QString& text) {
    if (_totalLabel)
        _totalLabel->setText(text);
}
void kaImageRenderWidget::setShowTotalProgress(bool show) {
    if (_totalProgress && _totalLabel) {
        _totalProgress->setVisible(show);
        _totalLabel->setVisible(show);
    }
}
void kaImageRenderWidget::setShowCancelButton(bool show) {
    if (_abortButton)
        _abortButton->setVisible(show);
}
