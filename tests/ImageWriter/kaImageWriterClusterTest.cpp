// The cluster exports against the built-in scene, raytraced by real ka-render-node processes that
// the cluster service spawns on this machine, written for real and read back.
#include "kaImageWriter.h"
#include "kaImageWriterTestAccess.h"

#include "OSGCameraDecorators.h"
#include "OSGChangeList.h"
#include "kaAnimManager.h"
#include "kaBuiltinScene.h"
#include "kaClusterService.h"
#include "kaController.h"
#include "kaImageViewer.h"
#include "kaMessage.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRaytracer.h"
#include "kaRenderParameter.h"
#include "kaRenderPassCatalogue.h"
#include "kaSimulationTime.h"
#include "kaSnapshotProgressGUII.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QProgressBar>
#include <QRegularExpression>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace {

constexpr int W = 24, H = 16;

double secondsNow() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Runs 'look' every time the export lets the event loop run: at each caption, after each
// sample, and while the cluster window waits for its nodes. A view into a running export.
class ExportProbe {
public:
    explicit ExportProbe(std::function<void()> look)
        : _look(std::move(look)) {
        QObject::connect(&_timer, &QTimer::timeout, [this] { _look(); });
        _timer.start(0);
    }

private:
    std::function<void()> _look;
    QTimer _timer;
};

// Standard output while it lives (the export prints its size and sample count there).
class StdoutCapture {
public:
    StdoutCapture() { testing::internal::CaptureStdout(); }
    ~StdoutCapture() { take(); }
    const std::string& take() {
        if (!_taken) {
            _text = testing::internal::GetCapturedStdout();
            _taken = true;
        }
        return _text;
    }

private:
    bool _taken = false;
    std::string _text;
};

kaSnapshotProgressGUII* openClusterDialog() {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* dialog = qobject_cast<kaSnapshotProgressGUII*>(widget))
            return dialog;
    return nullptr;
}

// The captions a dialog's preview showed, each once, in order.
void noteCaption(kaSnapshotProgressGUII* dialog, std::vector<std::string>& captions) {
    if (!dialog)
        return;
    const auto* viewer = dialog->findChild<kaImageViewer*>();
    if (!viewer)
        return;
    const std::string text = viewer->getText().toStdString();
    if (captions.empty() || captions.back() != text)
        captions.push_back(text);
}

int count(const std::string& text, const std::string& part) {
    int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

// The one log line that matches 'pattern' (its first capture), or "" when none does.
std::string capturedFrom(const katest::LogCapture& log, kaLog::Level level, const char* pattern) {
    const QRegularExpression expression(pattern);
    for (const std::string& text : log.texts(level)) {
        const auto match = expression.match(QString::fromStdString(text));
        if (match.hasMatch())
            return match.captured(1).toStdString();
    }
    return std::string();
}

struct FileImage {
    int width = 0, height = 0, channels = 0;
    std::vector<float> pixels;
};

FileImage readImage(const QString& path) {
    FileImage image;
    auto in = OIIO::ImageInput::open(path.toStdString());
    if (!in)
        return image;
    const OIIO::ImageSpec& spec = in->spec();
    image.width = spec.width;
    image.height = spec.height;
    image.channels = spec.nchannels;
    image.pixels.resize(size_t(spec.image_pixels()) * size_t(spec.nchannels));
    if (!in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.pixels.data()))
        image.pixels.clear();
    return image;
}

// Every channel of every subimage of a file, with the subimage's name in front of a channel
// that does not name its layer itself.
std::map<std::string, OIIO::TypeDesc> channelFormats(const QString& path) {
    std::map<std::string, OIIO::TypeDesc> formats;
    auto in = OIIO::ImageInput::open(path.toStdString());
    if (!in)
        return formats;
    int subimage = 0;
    do {
        const OIIO::ImageSpec& spec = in->spec();
        const std::string layer = spec.get_string_attribute("name");
        for (int c = 0; c < spec.nchannels; ++c) {
            std::string name = spec.channelnames[size_t(c)];
            if (name.find('.') == std::string::npos && !layer.empty())
                name = layer + "." + name;
            formats[name] = spec.channelformat(c);
        }
    } while (in->seek_subimage(++subimage, 0));
    return formats;
}

float maxDifference(const std::vector<float>& a, const std::vector<float>& b) {
    if (a.size() != b.size() || a.empty())
        return INFINITY;
    float most = 0.0f;
    for (size_t i = 0; i < a.size(); ++i)
        most = std::max(most, std::fabs(a[i] - b[i]));
    return most;
}

std::vector<bool> passSet(std::initializer_list<int> passes) {
    std::vector<bool> active(size_t(kaRenderPass::Count), false);
    for (int pass : passes)
        active[size_t(pass)] = true;
    return active;
}

std::string passName(int pass) {
    return kaRenderPass::name(pass);
}

} // namespace

class ClusterExport : public testing::Test {
protected:
    void SetUp() override {
        // The tests may run as root, which Open MPI refuses unless told.
        setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
        setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
        kaOSGWidget::setMainView(&view);
        view.setSize(W, H);
        kaController::setNoGUI(true);
        kaController::setBatchOverwrite(false);
        kaSimulationTime::setTime(0.0);
        writer.setNoShowImage(true);
        kaRenderParameter::setStillFrameSupersampling(1);
        kaRenderParameter::setImageSamples(2);
        kaRenderParameter::setUseRenderTimeLimit(false);
        kaRenderParameter::setRenderTimeInSeconds(10.0);
        kaImageRenderWidget::setActiveRenderPasses({});
        kaController::setAASampleCounts(0);
    }
    void TearDown() override {
        if (service)
            service->stop();
        kaClusterService::the()->stop();
        // A sequence refused at its first file leaves its dialog behind.
        while (kaSnapshotProgressGUII* dialog = openClusterDialog())
            delete dialog;
        if (!_cwd.isEmpty())
            QDir::setCurrent(_cwd);
        kaOSGWidget::setMainView(nullptr);
        kaOSGWidget::setRaytracing(false);
        kaController::setNoGUI(false);
        kaController::setSnapshotRendering(false);
        kaController::setTimerLoops(true);
        kaController::setAASampleCounts(0);
        kaController::setAAProgress(0.0);
        kaController::enableSimulation(false);
        kaRaytracer::setSnapshot(false);
        kaRenderParameter::setStillFrameSupersampling(0);
        kaRenderParameter::setImageSamples(1);
        kaRenderParameter::setUseRenderTimeLimit(false);
        kaRenderParameter::setRenderTimeInSeconds(10.0);
        kaImageRenderWidget::setActiveRenderPasses({});
        kaImageRenderWidget::setAlpha(false);
        kaImageRenderWidget::resetAbortAndCancelFlag();
        osg::ChangeList::getCurrent()->clear();
        kaSimulationTime::setTime(0.0);
    }

    // One render node on this machine, the main view's cluster window while it runs.
    bool startCluster(double timeout = 30.0) {
        service = std::make_shared<kaClusterService>();
        service->setSetup("localhost:1");
        service->setStopNodesOnFailure(true);
        service->setWaitForNodes(true);
        service->setNodeTimeout(timeout);
        return service->start();
    }
    osg::NetWindowPtr window() const { return view.getClusterWindow(); }

    // A snapshot of eye 'eye' (0 mono) on the cluster, W x H unless told.
    bool exportOne(const QString& name, int eye = 0, bool alpha = false, bool passes = false,
                   kaSnapshotProgressGUII* dialog = nullptr, int frame = -1, int width = W,
                   int height = H) {
        return access.exportRTClusterImage(name, width, height, eye, 1, alpha, 72.0f, false, passes,
                                           false, dialog, frame);
    }
    // Frames 'start'..'stop' of the timeline on the cluster, 25 frames a second.
    bool exportFrames(const QString& name, int start, int stop, int step) {
        return access.exportRTClusterImages(name, W, H, 0, 25, start, stop, 0, false, false, false,
                                            0, step);
    }
    std::vector<std::string> files() const { return katest::folderEntries(dir.path()); }
    // Works in the test's folder (names without a folder land there).
    void enterFolder() {
        _cwd = QDir::currentPath();
        QDir::setCurrent(dir.path());
    }

    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
    kaImageWriter writer;
    kaImageWriterTestAccess access{writer};
    std::shared_ptr<kaClusterService> service;

private:
    QString _cwd;
};

// --- Samples ---

TEST_F(ClusterExport, ClusterSnapshotRendersSupersamplingAsSamplesOfOnePicture) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    kaRenderParameter::setStillFrameSupersampling(2);
    kaRenderParameter::setImageSamples(64);
    int stillDuring = -1, samplesDuring = -1, viewportDuring = -1, lastSample = -1;
    bool finalSeen = false;
    katest::LogCapture log;
    StdoutCapture out;
    bool cancelled = true;
    {
        ExportProbe probe([&] {
            if (!kaController::isSnapshotRendering() || !window())
                return;
            stillDuring = kaRenderParameter::getStillFrameSupersampling();
            samplesDuring = kaRenderParameter::getImageSamples();
            viewportDuring = view.getViewport()->getImageSamples();
            lastSample = std::max(lastSample, window()->getRtSample());
            finalSeen = finalSeen || window()->getIsFinalRtSample();
        });
        cancelled = exportOne(dir.file("ss.exr"), 0, false, false, nullptr, -1, 8, 8);
    }
    const std::string printed = out.take();

    EXPECT_FALSE(cancelled);
    EXPECT_EQ(count(printed, "exportRTClusterImage: 8 x 8\n"), 1) << printed;
    EXPECT_EQ(count(printed, "rendering 256 samples.\n"), 1) << printed;
    EXPECT_EQ(stillDuring, 1) << "the cluster renders at supersampling 1";
    EXPECT_EQ(samplesDuring, 256) << "2 x 2 positions of 64 samples each";
    EXPECT_EQ(viewportDuring, 256);
    EXPECT_EQ(lastSample, 255);
    EXPECT_TRUE(finalSeen);
    EXPECT_EQ(
        capturedFrom(log, kaLog::Info,
                     "^Snapshot render time [0-9]+\\.[0-9]{6} seconds \\(([0-9]+) samples\\)\\.$"),
        "256");
    EXPECT_TRUE(log.contains(kaLog::Info, "Snapshot wrote image (256 samples)."));
    EXPECT_FALSE(capturedFrom(log, kaLog::Info,
                              "^Snapshot image writing time ([0-9]+\\.[0-9]{6}) seconds\\.$")
                     .empty());
    EXPECT_EQ(kaRenderParameter::getStillFrameSupersampling(), 2);
    EXPECT_EQ(kaRenderParameter::getImageSamples(), 64);
    EXPECT_EQ(view.getViewport()->getImageSamples(), 64);
    const FileImage image = readImage(dir.file("ss.exr"));
    EXPECT_EQ(image.width, 8);
    EXPECT_EQ(image.height, 8);
    EXPECT_FALSE(image.pixels.empty());
}

TEST_F(ClusterExport, ClusterSnapshotShowsEachStepInTheDialogCaption) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    kaSnapshotProgressGUII dialog(W, H, window());
    std::vector<std::string> captions;
    StdoutCapture out;
    {
        ExportProbe probe([&] { noteCaption(&dialog, captions); });
        EXPECT_FALSE(exportOne(dir.file("caption.png"), 0, false, false, &dialog));
    }
    EXPECT_EQ(count(out.take(), "exportRTClusterImage: 24 x 16\n"), 1);
    EXPECT_EQ(captions,
              (std::vector<std::string>{"Intializing image buffers ...",
                                        "Rendering first sample ...", "Writing image file ..."}));
    EXPECT_EQ(files(), std::vector<std::string>{"caption.png"});
}

TEST_F(ClusterExport, ClusterSnapshotOfPassesSaysFilesAndUsesADialogOfItsOwnWhenGivenNone) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    kaImageRenderWidget::setActiveRenderPasses(
        passSet({kaRenderPass::Beauty, kaRenderPass::Depth}));
    std::vector<std::string> captions;
    {
        ExportProbe probe([&] { noteCaption(openClusterDialog(), captions); });
        EXPECT_FALSE(exportOne(dir.file("own.exr"), 0, false, true));
    }
    EXPECT_EQ(captions,
              (std::vector<std::string>{"Intializing image buffers ...",
                                        "Rendering first sample ...", "Writing image files ..."}));
    EXPECT_EQ(openClusterDialog(), nullptr) << "the export's own dialog goes with it";
}

TEST_F(ClusterExport, ClusterSnapshotStopsAtTheSampleAfterTheTimeLimit) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    constexpr double limit = 0.3;
    constexpr int total = 1000000;
    kaRenderParameter::setUseRenderTimeLimit(true);
    kaRenderParameter::setRenderTimeInSeconds(limit);
    kaRenderParameter::setImageSamples(total);
    struct Seen {
        double last = 0.0;
        bool final = false;
        int sampleCount = 0;
    };
    std::map<int, Seen> seen; // by sample
    katest::LogCapture log;
    bool cancelled = true;
    {
        ExportProbe probe([&] {
            if (!kaController::isSnapshotRendering() || !window())
                return;
            Seen& s = seen[window()->getRtSample()];
            s.last = secondsNow();
            s.final = s.final || window()->getIsFinalRtSample();
            s.sampleCount = std::max(s.sampleCount, kaController::getAASampleCounts());
        });
        cancelled = exportOne(dir.file("limit.exr"));
    }
    const double start = kaController::getRenderStartTime();
    EXPECT_FALSE(cancelled);
    const std::string wrote =
        capturedFrom(log, kaLog::Info, "^Snapshot wrote image \\(([0-9]+) samples\\)\\.$");
    ASSERT_FALSE(wrote.empty()) << "no file written";
    const int samples = std::stoi(wrote);
    EXPECT_GE(samples, 1);
    EXPECT_LT(samples, total);
    const std::string seconds =
        capturedFrom(log, kaLog::Info,
                     "^Snapshot render time ([0-9]+\\.[0-9]{6}) seconds \\([0-9]+ samples\\)\\.$");
    ASSERT_FALSE(seconds.empty());
    EXPECT_GT(std::stod(seconds), limit);
    EXPECT_LT(std::stod(seconds), limit + 5.0) << "the render ran on long after its time";
    EXPECT_FALSE(readImage(dir.file("limit.exr")).pixels.empty());

    ASSERT_FALSE(seen.empty());
    const int last = seen.rbegin()->first;
    EXPECT_EQ(last, samples - 1) << "the last sample seen is the last one rendered";
    EXPECT_TRUE(seen.rbegin()->second.final) << "the sample after the limit is the final one";
    EXPECT_GT(seen.rbegin()->second.last - start, limit);
    for (const auto& [sample, s] : seen) {
        if (sample == last)
            continue;
        EXPECT_FALSE(s.final) << "sample " << sample << " of " << last;
        if (sample < last - 1) {
            EXPECT_LE(s.last - start, limit) << "sample " << sample << " rendered after the limit "
                                             << "and was not the last";
        }
        EXPECT_EQ(s.sampleCount, sample + 1) << "the host counts samples under a time limit";
    }
}

// --- Formats and refusals ---

TEST_F(ClusterExport, ClusterSnapshotDropsAlphaForHdrWithAWarning) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    katest::LogCapture log;
    EXPECT_FALSE(exportOne(dir.file("alpha.HDR"), 0, true));
    EXPECT_TRUE(log.contains(
        kaLog::Warning,
        "Snapshot: alpha channel is not supported in HDR image format disabled alpha channel!"));
    EXPECT_EQ(readImage(dir.file("alpha.HDR")).channels, 3);

    // The same request for a format that holds alpha keeps it.
    katest::LogCapture exrLog;
    EXPECT_FALSE(exportOne(dir.file("alpha.exr"), 0, true));
    EXPECT_EQ(readImage(dir.file("alpha.exr")).channels, 4);
    EXPECT_TRUE(exrLog.texts(kaLog::Warning).empty());
}

TEST_F(ClusterExport, ClusterSnapshotOfPassesWithNoneActiveWritesNothing) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    katest::LogCapture log;
    StdoutCapture out;
    EXPECT_TRUE(exportOne(dir.file("none.exr"), 0, false, true));
    const std::string printed = out.take();
    EXPECT_TRUE(log.contains(kaLog::Error, "No renderpass active, exiting.\n"));
    EXPECT_EQ(files(), std::vector<std::string>());
    EXPECT_EQ(count(printed, "rendering "), 0) << "nothing was rendered";
}

// --- File names ---

TEST_F(ClusterExport, ClusterSnapshotNamesFramesAndEyes) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    view.setEyeSeparation(2.0f);
    EXPECT_FALSE(exportOne(dir.file("eye.exr"), 1));
    EXPECT_FALSE(exportOne(dir.file("eye.exr"), 2));
    EXPECT_FALSE(exportOne(dir.file("frame.exr"), 0, false, false, nullptr, 7));
    EXPECT_FALSE(exportOne(dir.file("frame.exr"), 2, false, false, nullptr, 12));
    EXPECT_EQ(files(), (std::vector<std::string>{"eye-left.exr", "eye-right.exr", "frame-00007.exr",
                                                 "frame-00012-right.exr"}));
    const FileImage left = readImage(dir.file("eye-left.exr"));
    const FileImage right = readImage(dir.file("eye-right.exr"));
    ASSERT_EQ(left.pixels.size(), size_t(W * H * 3));
    EXPECT_GT(maxDifference(left.pixels, right.pixels), 0.01f) << "the eyes see differently";
}

TEST_F(ClusterExport, ClusterSnapshotOfANameWithoutFolderLandsInTheCurrentFolder) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    enterFolder();
    EXPECT_FALSE(exportOne("plain.png"));
    EXPECT_EQ(files(), std::vector<std::string>{"plain.png"});
    EXPECT_EQ(readImage(dir.file("plain.png")).width, W);
}

TEST_F(ClusterExport, ClusterSnapshotWritesOneFilePerActivePass) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    kaImageRenderWidget::setActiveRenderPasses(
        passSet({kaRenderPass::Beauty, kaRenderPass::DiffuseLight, kaRenderPass::Depth}));
    EXPECT_FALSE(exportOne(dir.file("pass.exr"), 0, false, true));
    const std::vector<std::string> expected = {"pass-" + passName(kaRenderPass::Beauty) + ".exr",
                                               "pass-" + passName(kaRenderPass::Depth) + ".exr",
                                               "pass-" + passName(kaRenderPass::DiffuseLight) +
                                                   ".exr"};
    EXPECT_EQ(files(), expected);
    for (const std::string& name : expected)
        EXPECT_EQ(readImage(dir.file(QString::fromStdString(name))).width, W) << name;
    // The depth pass holds distances, not the beauty picture.
    EXPECT_GT(maxDifference(readImage(dir.file(QString::fromStdString(expected[0]))).pixels,
                            readImage(dir.file(QString::fromStdString(expected[1]))).pixels),
              0.5f);
}

TEST_F(ClusterExport, ClusterSnapshotWithOneActivePassWritesOnePicture) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    kaImageRenderWidget::setActiveRenderPasses(passSet({kaRenderPass::Beauty}));
    EXPECT_FALSE(exportOne(dir.file("single.exr"), 0, false, true));
    EXPECT_EQ(files(), std::vector<std::string>{"single.exr"});
}

TEST_F(ClusterExport, ClusterSnapshotWritesMultiLayerExrWithThePassesAsLayers) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    kaImageRenderWidget::setActiveRenderPasses(
        passSet({kaRenderPass::Beauty, kaRenderPass::DiffuseLight, kaRenderPass::Depth}));
    writer.setExportMultiLayer(true);
    EXPECT_FALSE(exportOne(dir.file("layers.exr"), 0, false, true));
    EXPECT_EQ(files(), std::vector<std::string>{"layers.exr"});
    std::set<std::string> channels;
    for (const auto& [channel, format] : channelFormats(dir.file("layers.exr")))
        channels.insert(channel);
    std::set<std::string> expected;
    for (int pass : {kaRenderPass::Beauty, kaRenderPass::DiffuseLight, kaRenderPass::Depth})
        for (const char* channel : {".R", ".G", ".B"})
            expected.insert(passName(pass) + channel);
    EXPECT_EQ(channels, expected);
    const FileImage file = readImage(dir.file("layers.exr"));
    EXPECT_EQ(file.width, W);
    EXPECT_EQ(file.height, H);
}

TEST_F(ClusterExport, ClusterSnapshotExrHalfKeepsDepthCryptomatteAndPositionFloat) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    const std::vector<int> half = {kaRenderPass::Beauty, kaRenderPass::DiffuseLight,
                                   kaRenderPass::Normal};
    const std::vector<int> full = {kaRenderPass::Depth, kaRenderPass::CryptoObject00,
                                   kaRenderPass::CryptoMaterial02, kaRenderPass::Position};
    std::vector<bool> active(size_t(kaRenderPass::Count), false);
    for (int pass : half)
        active[size_t(pass)] = true;
    for (int pass : full)
        active[size_t(pass)] = true;
    kaImageRenderWidget::setActiveRenderPasses(active);
    writer.setExportMultiLayer(true);
    writer.setExportExrHalf(true);
    EXPECT_FALSE(exportOne(dir.file("half.exr"), 0, false, true));
    const auto formats = channelFormats(dir.file("half.exr"));
    ASSERT_FALSE(formats.empty()) << "no layered file";
    auto formatOf = [&](int pass) {
        const auto found = formats.find(passName(pass) + ".R");
        return found == formats.end() ? OIIO::TypeDesc() : found->second;
    };
    for (int pass : half)
        EXPECT_EQ(formatOf(pass), OIIO::TypeDesc::HALF) << passName(pass);
    for (int pass : full)
        EXPECT_EQ(formatOf(pass), OIIO::TypeDesc::FLOAT) << passName(pass);

    // One file per pass: the same rule per file.
    writer.setExportMultiLayer(false);
    EXPECT_FALSE(exportOne(dir.file("each.exr"), 0, false, true));
    auto fileFormat = [&](int pass) {
        auto in = OIIO::ImageInput::open(
            dir.fileStd("each-" + QString(kaRenderPass::name(pass)) + ".exr"));
        return in ? in->spec().format : OIIO::TypeDesc();
    };
    for (int pass : half)
        EXPECT_EQ(fileFormat(pass), OIIO::TypeDesc::HALF) << passName(pass);
    for (int pass : full)
        EXPECT_EQ(fileFormat(pass), OIIO::TypeDesc::FLOAT) << passName(pass);
}

// --- Failure and restoration ---

TEST_F(ClusterExport, ClusterFailureIsHandedToTheHostAndWritesNothing) {
    ASSERT_TRUE(startCluster(3.0)) << service->getLastError();
    EXPECT_FALSE(exportOne(dir.file("before.png")));
    std::vector<kaMessage> messages;
    const int handler = kaController::addCallHandler(
        "kaClusterClusterWindowException",
        [&](const kaMessage& message) { messages.push_back(message); });
    const auto nodes = service->getNodes();
    ASSERT_EQ(nodes.size(), 1u);
    ::kill(nodes[0].pid, SIGKILL);
    const double start = secondsNow();
    const bool cancelled = exportOne(dir.file("after.png"));
    kaController::removeCallHandler(handler);
    EXPECT_TRUE(cancelled);
    EXPECT_LT(secondsNow() - start, 10.0);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].getId(), 0);
    const boost::any error = messages[0].get("error");
    ASSERT_EQ(kaMessage::typeName(error), "QString");
    EXPECT_FALSE(boost::any_cast<QString>(error).isEmpty());
    EXPECT_EQ(files(), std::vector<std::string>{"before.png"});
}

TEST_F(ClusterExport, ClusterSnapshotPutsBackTheViewerAndTheClusterWindow) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    const osg::NetWindowPtr net = window();
    net->setImageOps(0x40);
    net->setRenderPasses(1 | (uint64_t(1) << 3));
    net->setDownscale(3);
    net->setSize(7, 5);
    net->setSnapshot(false);
    net->setPixelFormat(12345);
    net->setDebug(7);
    kaOSGWidget::setRaytracing(false);
    view.setSnapshotMode(false);
    view.enableRender(false);
    view.setNavigationEnabled(true);
    view.enableRaytracingDownscale(true);
    view.getViewport()->setDownscale(1);
    view.getViewport()->setRenderPasses(1);
    const osg::CameraPtr camera = view.getViewport()->getCamera();

    struct During {
        bool seen = false, raytracing = false, snapshotMode = false, renderEnabled = false,
             navigation = true, timerLoops = true, snapshotRendering = false, rtSnapshot = false,
             windowSnapshot = false, leftEye = false;
        int viewportDownscale = 0;
        std::string cameraType;
    } during;
    {
        ExportProbe probe([&] {
            if (!kaController::isSnapshotRendering() || !net->getIsFinalRtSample())
                return; // the last sample: everything is set up
            during.seen = true;
            during.raytracing = kaOSGWidget::getRaytracing();
            during.snapshotMode = view.getSnapshotMode();
            during.renderEnabled = view.isRenderEnabled();
            during.navigation = view.isNavigationEnabled();
            during.timerLoops = kaController::getTimerLoops();
            during.snapshotRendering = kaController::isSnapshotRendering();
            during.rtSnapshot = kaRaytracer::getSnapshot();
            during.windowSnapshot = net->getSnapshot();
            during.viewportDownscale = view.getViewport()->getDownscale();
            const osg::CameraPtr current = view.getViewport()->getCamera();
            during.cameraType = current ? current->getTypeName() : "";
            if (auto* stereo = dynamic_cast<osg::ShearedStereoCameraDecorator*>(current.get()))
                during.leftEye = stereo->getLeftEye();
        });
        EXPECT_FALSE(exportOne(dir.file("restore.png"), 1));
    }
    ASSERT_TRUE(during.seen);
    EXPECT_TRUE(during.raytracing);
    EXPECT_TRUE(during.snapshotMode);
    EXPECT_TRUE(during.renderEnabled);
    EXPECT_FALSE(during.navigation);
    EXPECT_FALSE(during.timerLoops);
    EXPECT_TRUE(during.snapshotRendering);
    EXPECT_TRUE(during.rtSnapshot);
    EXPECT_TRUE(during.windowSnapshot);
    EXPECT_EQ(during.viewportDownscale, 2);
    EXPECT_EQ(during.cameraType, "ShearedStereoCameraDecorator");
    EXPECT_TRUE(during.leftEye);

    EXPECT_FALSE(kaOSGWidget::getRaytracing());
    EXPECT_FALSE(view.getSnapshotMode());
    EXPECT_FALSE(view.isRenderEnabled());
    EXPECT_TRUE(view.isNavigationEnabled());
    EXPECT_TRUE(kaController::getTimerLoops());
    EXPECT_FALSE(kaController::isSnapshotRendering());
    EXPECT_FALSE(kaRaytracer::getSnapshot());
    EXPECT_FALSE(net->getRendering());
    EXPECT_EQ(net->getImageOps(), 0x40u);
    EXPECT_EQ(net->getRenderPasses(), 1 | (uint64_t(1) << 3));
    EXPECT_EQ(net->getDownscale(), 3);
    EXPECT_EQ(net->getWidth(), 7u);
    EXPECT_EQ(net->getHeight(), 5u);
    EXPECT_FALSE(net->getSnapshot());
    EXPECT_EQ(net->getPixelFormat(), 12345u);
    EXPECT_EQ(net->getDebug(), 7u);
    EXPECT_EQ(view.getViewport()->getDownscale(), 1);
    EXPECT_EQ(view.getViewport()->getRenderPasses(), 1u);
    EXPECT_EQ(view.getViewport()->getCamera(), camera) << "the eye's camera is gone again";
    EXPECT_EQ(kaController::getAASampleCounts(), 0);
    EXPECT_EQ(kaController::getAAProgress(), 0.0);
    EXPECT_EQ(readImage(dir.file("restore-left.png")).width, W);
}

// --- Sequences ---

TEST_F(ClusterExport, ClusterSequenceChecksTheFrameZeroNameWithoutTheTrailingFrameNumber) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    // A folder where the first file would go: the overwrite check refuses it.
    ASSERT_TRUE(QDir(dir.path()).mkdir("shot_-00000.png"));
    const int renders = kaController::getForcedRenderCount();
    view.setSnapshotMode(false);
    view.enableRender(true);
    katest::LogCapture log;
    StdoutCapture out;
    EXPECT_FALSE(exportFrames(dir.file("shot_00012.png"), 12, 12, 1));
    EXPECT_EQ(count(out.take(), "exportRTClusterImage"), 0) << "nothing rendered";
    const std::string refused =
        "kaFile: '" + dir.fileStd("shot_-00000.png") + "' is a folder, not a file!";
    EXPECT_TRUE(log.contains(kaLog::Error, refused))
        << testing::PrintToString(log.texts(kaLog::Error));
    EXPECT_EQ(files(), std::vector<std::string>{"shot_-00000.png"});
    EXPECT_EQ(kaController::getForcedRenderCount(), renders);
    EXPECT_FALSE(view.getSnapshotMode());
    EXPECT_TRUE(view.isRenderEnabled());

    // The name with its digits is not the one checked.
    ASSERT_TRUE(QDir(dir.path()).rmdir("shot_-00000.png"));
    ASSERT_TRUE(QDir(dir.path()).mkdir("shot_00012-00000.png"));
    EXPECT_FALSE(exportFrames(dir.file("shot_00012.png"), 12, 12, 1));
    EXPECT_TRUE(QFileInfo(dir.file("shot_00012-00012.png")).isFile())
        << testing::PrintToString(files());
}

TEST_F(ClusterExport, ClusterSequenceKeepsTheDigitsOfAFiveCharacterStem) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    enterFolder();
    ASSERT_TRUE(QDir(dir.path()).mkdir("00012-00000.png"));
    katest::LogCapture log;
    StdoutCapture out;
    EXPECT_FALSE(exportFrames("00012.png", 12, 12, 1));
    EXPECT_EQ(count(out.take(), "exportRTClusterImage"), 0) << "nothing rendered";
    EXPECT_TRUE(log.contains(kaLog::Error, "kaFile: '" + dir.fileStd("00012-00000.png") +
                                               "' is a folder, not a file!"))
        << testing::PrintToString(log.texts(kaLog::Error));
    EXPECT_EQ(files(), std::vector<std::string>{"00012-00000.png"});
}

TEST_F(ClusterExport, ClusterSequencePreRollsFramesBeforeTheStartAndRendersEveryStep) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    std::vector<double> times;
    const int listener =
        kaController::getSimulationTimer()->addListener([&](double t) { times.push_back(t); });
    int loops = 0;
    const int loopHook = kaController::addLoopCallback([&](bool) { ++loops; });
    const int renders = kaController::getForcedRenderCount();
    view.setSnapshotMode(false);
    view.enableRender(true);
    std::set<int> maxima;
    std::vector<int> framesRendered;
    katest::LogCapture log;
    StdoutCapture out;
    bool cancelled = true;
    {
        ExportProbe probe([&] {
            kaSnapshotProgressGUII* dialog = openClusterDialog();
            if (!dialog)
                return;
            maxima.insert(dialog->_progress->maximum());
            if (kaController::isSnapshotRendering() &&
                (framesRendered.empty() ||
                 framesRendered.back() != kaAnimManager::getCurrentFrame()))
                framesRendered.push_back(kaAnimManager::getCurrentFrame());
        });
        cancelled = exportFrames(dir.file("seq.png"), 3, 9, 3);
    }
    kaController::removeHook(loopHook);
    kaController::getSimulationTimer()->removeListener(listener);

    EXPECT_FALSE(cancelled);
    EXPECT_EQ(files(),
              (std::vector<std::string>{"seq-00003.png", "seq-00006.png", "seq-00009.png"}));
    EXPECT_EQ(count(out.take(), "exportRTClusterImage: 24 x 16\n"), 3);
    EXPECT_EQ(framesRendered, (std::vector<int>{3, 6, 9}));
    EXPECT_EQ(maxima, std::set<int>{4}) << "(9 - 3) / 3 + 2";
    EXPECT_EQ(loops, 6) << "frames 0, 1, 2 pre-rolled, then 3, 6, 9";
    EXPECT_EQ(kaController::getForcedRenderCount() - renders, 6);
    ASSERT_EQ(times.size(), 6u);
    for (size_t k = 0; k < times.size(); ++k)
        EXPECT_NEAR(times[k], double(k) * 3.0 / 25.0, 1e-12) << "pass " << k;
    EXPECT_NEAR(kaSimulationTime::getTime(), 5 * 3.0 / 25.0, 1e-12) << "left at the last frame";
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 9);
    EXPECT_FALSE(view.getSnapshotMode());
    EXPECT_TRUE(view.isRenderEnabled());
    EXPECT_EQ(openClusterDialog(), nullptr);
    EXPECT_FALSE(
        capturedFrom(log, kaLog::Info, "^movie render time ([0-9]+\\.[0-9]{6}) seconds\\.$")
            .empty());
}

TEST_F(ClusterExport, ClusterSequenceCancelledInTheSecondFrameKeepsTheFirst) {
    ASSERT_TRUE(startCluster()) << service->getLastError();
    view.setSnapshotMode(false);
    view.enableRender(true);
    std::vector<int> progressValues;
    katest::LogCapture log;
    StdoutCapture out;
    bool cancelled = false;
    {
        ExportProbe probe([&] {
            kaSnapshotProgressGUII* dialog = openClusterDialog();
            if (!dialog)
                return;
            if (progressValues.empty() || progressValues.back() != dialog->_progress->value())
                progressValues.push_back(dialog->_progress->value());
            if (kaController::isSnapshotRendering() && kaAnimManager::getCurrentFrame() == 1 &&
                !dialog->isCancel())
                dialog->clickedCancelSave();
        });
        cancelled = exportFrames(dir.file("cut.png"), 0, 3, 1);
    }
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(count(out.take(), "exportRTClusterImage: 24 x 16\n"), 2) << "no third frame";
    EXPECT_EQ(files(), std::vector<std::string>{"cut-00000.png"});
    EXPECT_TRUE(log.contains(kaLog::Warning, "Cluster rendering aborted"));
    EXPECT_NE(std::find(progressValues.begin(), progressValues.end(), 1), progressValues.end())
        << "one frame done: " << testing::PrintToString(progressValues);
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 1) << "left at the frame being done";
    EXPECT_NEAR(kaSimulationTime::getTime(), 1.0 / 25.0, 1e-12);
    EXPECT_FALSE(view.getSnapshotMode());
    EXPECT_TRUE(view.isRenderEnabled());
    EXPECT_EQ(openClusterDialog(), nullptr);
}

TEST_F(ClusterExport, ClusterSequenceEqualsTheLocalRaytracedSequence) {
    // The public export starts the registered cluster service for the set-up string and stops
    // it again.
    kaClusterService::the();
    kaOSGWidget::setRaytracing(true);
    kaController::enableSimulation(true);
    kaRenderParameter::setImageSamples(4);
    kaRenderParameter::setStillFrameSupersampling(1);
    const QString clusterDir = dir.file("cluster"), localDir = dir.file("local");
    ASSERT_TRUE(QDir().mkpath(clusterDir));
    ASSERT_TRUE(QDir().mkpath(localDir));

    // The local sequence first: see
    // ClusterExportLeavesLocalRaytracedExportsRenderingEverySample.
    kaSimulationTime::setTime(0.0);
    writer.exportImages(localDir + "/balls.exr", W, H, 25, 0, 4, 0, 0, false, 0, QString(), 1,
                        false);

    kaSimulationTime::setTime(0.0);
    StdoutCapture out;
    writer.exportImages(clusterDir + "/balls.exr", W, H, 25, 0, 4, 0, 0, false, 0, "localhost:1", 1,
                        false);
    EXPECT_EQ(count(out.take(), "exportRTClusterImage: 24 x 16\n"), 5) << "on the cluster";
    EXPECT_FALSE(view.getClusterWindow()) << "the export stopped the cluster it started";
    EXPECT_FALSE(kaClusterService::the()->isRunning());
    EXPECT_FALSE(writer.wasExportCanceled());

    std::vector<std::vector<float>> frames;
    for (int frame = 0; frame <= 4; ++frame) {
        const QString name = "balls" + kaImageWriter::getFrameName(frame) + ".exr";
        const FileImage cluster = readImage(clusterDir + "/" + name);
        const FileImage local = readImage(localDir + "/" + name);
        ASSERT_EQ(cluster.pixels.size(), size_t(W * H * 3)) << name.toStdString();
        ASSERT_EQ(local.pixels.size(), cluster.pixels.size()) << name.toStdString();
        EXPECT_EQ(maxDifference(cluster.pixels, local.pixels), 0.0f) << name.toStdString();
        frames.push_back(cluster.pixels);
    }
    EXPECT_GT(maxDifference(frames.front(), frames.back()), 0.01f) << "the balls moved";
}

TEST_F(ClusterExport, ClusterExportLeavesLocalRaytracedExportsRenderingEverySample) {
    kaOSGWidget::setRaytracing(true);
    kaRenderParameter::setImageSamples(4);
    const int rtSampleBefore = view.getViewport()->getRtSample();
    writer.exportImage(dir.file("before.exr"), W, H, 0, 0, -1.0f, false, QString(), false, false);

    ASSERT_TRUE(startCluster()) << service->getLastError();
    EXPECT_FALSE(exportOne(dir.file("cluster.exr")));
    service->stop();

    writer.exportImage(dir.file("after.exr"), W, H, 0, 0, -1.0f, false, QString(), false, false);
    const FileImage before = readImage(dir.file("before.exr"));
    const FileImage after = readImage(dir.file("after.exr"));
    ASSERT_EQ(before.pixels.size(), size_t(W * H * 3));
    EXPECT_EQ(maxDifference(before.pixels, after.pixels), 0.0f)
        << "the same scene raytraced here before and after a cluster export; the viewport's "
           "sample was "
        << rtSampleBefore << " before and is " << view.getViewport()->getRtSample() << " after";
}
