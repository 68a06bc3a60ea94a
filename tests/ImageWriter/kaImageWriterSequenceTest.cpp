// The sequence export against the built-in scene, rendered and written for real.
#include "kaImageWriter.h"

#include "OSGAnimNodeBase.h"
#include "OSGChangeList.h"
#include "OSGExternalThread.h"
#include "kaAnimManager.h"
#include "kaBuiltinScene.h"
#include "kaConstraintManager.h"
#include "kaController.h"
#include "kaExportProbes.h"
#include "kaImageOutStream.h"
#include "kaNodeUtils.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaRenderPassCatalogue.h"
#include "kaRenderPasses.h"
#include "kaSimulationTime.h"
#include "kaTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <set>

namespace {

// Every simulation time the export sets, in order.
class TimeRecorder {
public:
    TimeRecorder() {
        _id = kaController::getSimulationTimer()->addListener(
            [this](double t) { times.push_back(t); });
    }
    ~TimeRecorder() { kaController::getSimulationTimer()->removeListener(_id); }
    std::vector<double> times;

private:
    int _id;
};

// Counts the calls of a host loop hook while it lives.
class HookCounter {
public:
    explicit HookCounter(int (*add)(kaController::Hook)) {
        _id = add([this](bool) { ++calls; });
    }
    ~HookCounter() { kaController::removeHook(_id); }
    int calls = 0;

private:
    int _id;
};

kaImageRenderWidget* openRenderDialog() {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* dialog = qobject_cast<kaImageRenderWidget*>(widget))
            return dialog;
    return nullptr;
}

} // namespace

class SequenceExport : public testing::Test {
protected:
    void SetUp() override {
        kaOSGWidget::setMainView(&view);
        view.setSize(160, 120);
        kaController::setNoGUI(true);
        kaController::enableSimulation(true);
        kaSimulationTime::setTime(0.0);
        writer.setNoShowImage(true);
        kaMessage& prefs = kaPreferences::getData();
        prefs.set("ImageExport width", 48);
        prefs.set("ImageExport height", 32);
        prefs.set("MovieExport ssfactor", 0);
        prefs.set("MovieExport fps", 25);
    }
    void TearDown() override {
        kaOSGWidget::setMainView(nullptr);
        kaOSGWidget::setRaytracing(false);
        kaController::setNoGUI(false);
        kaController::setSnapshotRendering(false);
        kaImageOutStream::setImageWriteFunction(nullptr);
        kaImageRenderWidget::setActiveRenderPasses({});
        kaImageRenderWidget::resetAbortAndCancelFlag();
        osg::ChangeList::getCurrent()->clear();
        kaSimulationTime::setTime(0.0);
    }
    // A 48 x 32 PNG sequence without alpha or passes.
    void exportPng(const QString& name, int start, int stop, int step) {
        writer.exportImages(dir.file(name), -1, -1, -1, start, stop, -1, 0, false, 0, QString(),
                            step, false);
    }
    std::vector<std::string> files() const { return katest::folderEntries(dir.path()); }
    std::vector<float> pixels(const QString& name) const {
        auto in = OIIO::ImageInput::open(dir.fileStd(name));
        if (!in)
            return {};
        std::vector<float> values(size_t(in->spec().image_pixels()) * size_t(in->spec().nchannels));
        in->read_image(0, 0, 0, in->spec().nchannels, OIIO::TypeDesc::FLOAT, values.data());
        return values;
    }
    std::string description(const QString& name) const {
        auto in = OIIO::ImageInput::open(dir.fileStd(name));
        return in ? std::string(in->spec().get_string_attribute("ImageDescription"))
                  : std::string("missing");
    }

    katest::PreferencesGuard guard;
    katest::TempDir dir;
    kaOSGWidget view;
    kaBuiltinScene scene{view};
    kaImageWriter writer;
};

TEST_F(SequenceExport, FramesBeforeTheStartArePreRolledThenEveryStepIsWritten) {
    kaSimulationTime::setTime(1.5);
    TimeRecorder times;
    HookCounter loops(&kaController::addLoopCallback), behaviours(&kaController::addBehavior);
    const int renders = kaController::getForcedRenderCount();
    katest::LogCapture log;
    exportPng("seq.png", 10, 20, 5);

    EXPECT_EQ(files(),
              (std::vector<std::string>{"seq-00010.png", "seq-00015.png", "seq-00020.png"}));
    // 13 passes of the loop: frames 0..9 one by one, then 10, 15 and 20; 5/25 s each.
    ASSERT_EQ(times.times.size(), 13u);
    for (size_t k = 0; k < times.times.size(); ++k)
        EXPECT_DOUBLE_EQ(times.times[k], 1.5 + double(k) * (5.0 / 25.0)) << "pass " << k;
    EXPECT_EQ(loops.calls, 13);
    EXPECT_EQ(behaviours.calls, 13);
    EXPECT_EQ(kaController::getForcedRenderCount() - renders, 13)
        << "one for each pre-rolled frame and one after each render";
    EXPECT_DOUBLE_EQ(kaSimulationTime::getTime(), 1.5 + 12 * 0.2) << "left at the last frame";
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 20);
    EXPECT_FALSE(writer.wasExportCanceled());
    bool timeLine = false;
    for (const std::string& text : log.texts(kaLog::Info))
        timeLine = timeLine || QString::fromStdString(text).contains(
                                   QRegularExpression("^movie render time [0-9.]+ seconds\\.$"));
    EXPECT_TRUE(timeLine);
    EXPECT_FALSE(kaController::isSnapshotRendering());
    EXPECT_EQ(kaImageRenderWidget::getPixelFormat(), osg::Image::OSG_RGB_PF);
}

TEST_F(SequenceExport, WhatTheFilesListsIsWhatIsWrittenFromTheStartOn) {
    exportPng("list.png", 3, 9, 2);
    QStringList expected;
    for (const QString& name :
         writer.getExportedImageFilenames(dir.file("list.png"), {}, false, 3, 9, 2))
        if (QFileInfo(name).fileName() >= "list-00003.png")
            expected << QFileInfo(name).fileName();
    std::vector<std::string> listed;
    for (const QString& name : expected)
        listed.push_back(name.toStdString());
    EXPECT_EQ(files(), listed);
    EXPECT_EQ(listed.size(), 4u) << "3, 5, 7, 9";
}

TEST_F(SequenceExport, AStopBelowTheStartPreRollsUpToTheStopAndWritesNothing) {
    TimeRecorder times;
    exportPng("none.png", 5, 3, 1);
    EXPECT_TRUE(files().empty());
    EXPECT_EQ(times.times.size(), 4u) << "frames 0 to 3";
    EXPECT_FALSE(kaController::isSnapshotRendering());
}

TEST_F(SequenceExport, AStepOfZeroOrLessIsOne) {
    exportPng("zero.png", 0, 2, 0);
    exportPng("minus.png", 0, 2, -4);
    EXPECT_EQ(files(),
              (std::vector<std::string>{"minus-00000.png", "minus-00001.png", "minus-00002.png",
                                        "zero-00000.png", "zero-00001.png", "zero-00002.png"}));
}

TEST_F(SequenceExport, NegativeArgumentsTakeThePreferences) {
    kaPreferences::getData().set("MovieExport start frame", 1);
    kaPreferences::getData().set("MovieExport stop frame", 2);
    kaPreferences::getData().set("MovieExport fps", 10);
    TimeRecorder times;
    writer.exportImages(dir.file("prefs.png"), -1, -1, -1, -1, -1, -1, -1, false, 0, QString(), 1,
                        false);
    EXPECT_EQ(files(), (std::vector<std::string>{"prefs-00001.png", "prefs-00002.png"}));
    auto in = OIIO::ImageInput::open(dir.fileStd("prefs-00001.png"));
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().width, 48);
    EXPECT_EQ(in->spec().height, 32);
    EXPECT_EQ(in->spec().nchannels, 3) << "\"MovieExport alpha\" is off by default";
    ASSERT_EQ(times.times.size(), 3u);
    EXPECT_DOUBLE_EQ(times.times[2], 0.2) << "1/10 s a frame";
}

class SequenceStereo : public SequenceExport, public testing::WithParamInterface<int> {};

TEST_P(SequenceStereo, EveryEyeHasItsFileAndTheProgressCountsThem) {
    const int mode = GetParam();
    const int eyes = mode == 1 ? 2 : mode == 2 ? 5 : 9;
    kaPreferences::getData().set("ImageExport stereo mode", mode);
    katest::TotalProgressRecorder progress;
    exportPng("eye.png", 1, 3, 2);
    const QStringList expected =
        writer.getExportedImageFilenames(dir.file("eye.png"), {}, false, 1, 3, 2);
    std::set<std::string> written;
    for (const std::string& name : files())
        written.insert(name);
    int count = 0;
    for (const QString& name : expected) {
        if (name.contains("-00000."))
            continue; // pre-rolled
        ++count;
        EXPECT_TRUE(written.count(QFileInfo(name).fileName().toStdString())) << name.toStdString();
    }
    EXPECT_EQ(count, 2 * eyes);
    EXPECT_EQ(int(written.size()), 2 * eyes);
    ASSERT_FALSE(progress.values.empty());
    EXPECT_EQ(progress.values.back(), (1 + 1) * eyes + 1) << "the maximum, (steps + 1) x eyes + 1";
}

INSTANTIATE_TEST_SUITE_P(Modes, SequenceStereo, testing::Values(1, 2, 3));

TEST_F(SequenceExport, AlphaWithJpegOrBmpIsRefusedWhateverTheSpelling) {
    katest::LogCapture log;
    for (const char* name : {"a.JPG", "b.jpeg", "c.bmp"})
        writer.exportImages(dir.file(name), 48, 32, 25, 0, 1, 0, 1, false, 0, QString(), 1, false);
    EXPECT_TRUE(files().empty());
    int refusals = 0;
    for (const std::string& text : log.texts(kaLog::Warning))
        refusals += text == "Movie Export: The chosen image format doesn't support an alpha "
                            "channel!\nChoose another image format, e.g. png, or disable the "
                            "alpha channel export.";
    EXPECT_EQ(refusals, 3);
}

TEST_F(SequenceExport, ViewerStereoIsRefused) {
    view.setStereoEnabled(true);
    view.setStereoMode(1);
    katest::LogCapture log;
    exportPng("st.png", 0, 1, 1);
    view.setStereoEnabled(false);
    EXPECT_TRUE(files().empty());
    bool said = false;
    for (const std::string& text : log.texts(kaLog::Warning))
        said = said || text.find("Please disable stereo rendering!") != std::string::npos;
    EXPECT_TRUE(said);
}

TEST_F(SequenceExport, NoRenderWindowIsRefused) {
    kaOSGWidget::setMainView(nullptr);
    katest::LogCapture log;
    exportPng("x.png", 0, 1, 1);
    EXPECT_TRUE(
        log.contains(kaLog::Error, "For a image export at least one render window is necessary!"));
    EXPECT_TRUE(files().empty());
}

TEST_F(SequenceExport, TheFirstFileOfTheWalkIsCheckedEvenWhenTheStartIsLater) {
    // Frame 0 is never written, but its name is what the export checks: a folder there ends it.
    ASSERT_TRUE(QDir(dir.path()).mkdir("late-00000.png"));
    katest::LogCapture log;
    const bool lights = view.getLightsVisible();
    exportPng("late.png", 3, 4, 1);
    EXPECT_EQ(files(), std::vector<std::string>{"late-00000.png"});
    EXPECT_TRUE(log.contains(kaLog::Error, "kaFile: '" + dir.fileStd("late-00000.png") +
                                               "' is a folder, not a file!"));
    EXPECT_EQ(view.getLightsVisible(), lights) << "the overlays are given back";
    EXPECT_TRUE(kaController::isSnapshotRendering()) << "this exit leaves it on, as it always did";
}

TEST_F(SequenceExport, EachFileRecordsItsFrameAndTimes) {
    const __int64 id = __int64(scene.getAnimation()->getId());
    writer.exportImages(dir.file("note.png"), 48, 32, 25, 2, 3, 0, 0, false, id, QString(), 1,
                        false);
    const std::string text = description("note-00003.png");
    const QRegularExpression pattern(
        "\nDate: \\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\nSimulation time: 0\\.12\n"
        "System time: [0-9.e+]+\nFrame: 3\nAnimation object: BoxAnimation\n$");
    EXPECT_TRUE(QString::fromStdString(text).contains(pattern)) << text;
}

TEST_F(SequenceExport, TheAnimationNodeDrivesTheFramesAndConstraintsFollow) {
    const osg::TransformAnimationPtr animation = scene.getAnimation();
    osg::NodePtr spot =
        osg::Node::create(osg::Transform::create(osg::Matrix::translation(0, 5, 0)), "Spot");
    scene.getRoot()->addChild(spot);
    osg::NodePtr box;
    for (const osg::NodePtr& node : kaNodeUtils::getSceneNodes())
        if (node->getName() == "Box")
            box = node;
    ASSERT_TRUE(box);
    const int constraint = kaConstraintManager::addLookAtConstraint(spot, box);
    const int changesBefore = animation->getEvaluationTimeChanges();
    writer.exportImages(dir.file("anim.png"), 48, 32, 25, 4, 6, 0, 0, false,
                        __int64(animation->getId()), QString(), 2, false);
    kaConstraintManager::removeConstraint(constraint);

    EXPECT_EQ(animation->getEvaluationTimeChanges(), changesBefore + 1)
        << "told once, at the start frame";
    EXPECT_EQ(animation->getLastEvaluationTime(), 6.0f) << "evaluated up to the last frame";
    EXPECT_EQ(animation->getCurrentFrame(), 6);
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 6);
    const osg::Pnt3f at = box->getToWorld().transformPoint({0, 0, 0});
    animation->evaluate(6.0f);
    const osg::Pnt3f expected = box->getToWorld().transformPoint({0, 0, 0});
    EXPECT_NEAR(at.x, expected.x, 1e-6f);
    EXPECT_NEAR(at.z, expected.z, 1e-6f);
    const osg::Vec3f aim = osg::normalize(spot->getToWorld().transformVector({0, 0, -1}));
    const osg::Pnt3f from = spot->getToWorld().transformPoint({0, 0, 0});
    const osg::Vec3f toBox =
        osg::normalize(osg::Vec3f{at.x - from.x, at.y - from.y, at.z - from.z});
    EXPECT_GT(aim.x * toBox.x + aim.y * toBox.y + aim.z * toBox.z, 0.9999f)
        << "the spot was aimed after the box moved";
}

TEST_F(SequenceExport, AnIdThatNamesNoAnimationLeavesTheTimelineAlone) {
    kaAnimManager::setCurrentFrame(77, false, false);
    const __int64 rootId = __int64(scene.getRoot()->getId());
    writer.exportImages(dir.file("node.png"), 48, 32, 25, 1, 2, 0, 0, false, rootId, QString(), 1,
                        false);
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 77) << "neither set nor evaluated";
    EXPECT_EQ(files(), (std::vector<std::string>{"node-00001.png", "node-00002.png"}))
        << "the frames are still rendered";
    EXPECT_EQ(description("node-00002.png").find("Animation object"), std::string::npos);
}

TEST_F(SequenceExport, PreRollMakesTheStartFrameWhatPlayingShows) {
    // The balls fall frame by frame: frame 40 after pre-roll is the same every time ...
    exportPng("walk.png", 40, 40, 1);
    kaSimulationTime::setTime(0.0);
    kaController::updateBehavior(true);
    exportPng("again.png", 40, 40, 1);
    const std::vector<float> walked = pixels("walk-00040.png");
    ASSERT_FALSE(walked.empty());
    EXPECT_EQ(walked, pixels("again-00040.png"));

    // ... and not frame 40 jumped to: the same animation frame and simulation time, cold.
    kaSimulationTime::setTime(0.0);
    kaController::updateBehavior(true);
    kaSimulationTime::setTime(40 * 0.04);
    kaController::updateBehavior(true);
    kaAnimManager::setCurrentFrame(40, true, false);
    const __int64 notAnAnimation = __int64(scene.getRoot()->getId());
    writer.exportImages(dir.file("cold.png"), 48, 32, 25, 0, 0, 0, 0, false, notAnAnimation,
                        QString(), 1, false);
    EXPECT_NE(walked, pixels("cold-00000.png"));
}

TEST_F(SequenceExport, AnAbortKeepsTheFinishedFramesWhole) {
    int sets = 0;
    const int listener = kaController::getSimulationTimer()->addListener([&](double) {
        if (++sets == 3)
            if (kaImageRenderWidget* dialog = openRenderDialog())
                static_cast<QDialog*>(dialog)->reject();
    });
    testing::internal::CaptureStdout();
    exportPng("stop.png", 0, 9, 1);
    const std::string out = testing::internal::GetCapturedStdout();
    kaController::getSimulationTimer()->removeListener(listener);
    EXPECT_TRUE(writer.wasExportCanceled());
    EXPECT_NE(out.find("aborted images export!\n"), std::string::npos);
    EXPECT_EQ(files(), (std::vector<std::string>{"stop-00000.png", "stop-00001.png"}));
    for (const char* name : {"stop-00000.png", "stop-00001.png"}) {
        auto in = OIIO::ImageInput::open(dir.fileStd(name));
        ASSERT_TRUE(in);
        std::vector<uint8_t> pixels(48 * 32 * 3);
        EXPECT_TRUE(in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data())) << name;
    }
    EXPECT_FALSE(kaController::isSnapshotRendering()) << "an abort ends normally";
}

TEST_F(SequenceExport, PassFilesAreWrittenInParallelAndAllBeforeTheNextFrame) {
    kaOSGWidget::setRaytracing(true);
    std::vector<bool> active(kaRenderPassCount, false);
    for (int pass : {0, 1, 2, 3, 33})
        active[size_t(pass)] = true;
    kaImageRenderWidget::setActiveRenderPasses(active);

    std::mutex mutex;
    std::map<std::string, std::string> threadOf;
    std::atomic<int> written{0};
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr, std::string name) {
        const osg::ExternalThreadRefPtr thread = osg::ExternalThread::getCurrent();
        std::lock_guard<std::mutex> lock(mutex);
        threadOf[QFileInfo(QString::fromStdString(name)).fileName().toStdString()] =
            thread ? thread->getName() : "";
        ++written;
        return true;
    });
    std::vector<int> writtenAtFrameStart;
    const int listener = kaController::getSimulationTimer()->addListener(
        [&](double) { writtenAtFrameStart.push_back(written); });
    writer.exportImages(dir.file("pass.png"), 32, 24, 25, 1, 3, 0, 0, true, 0, QString(), 1, false);
    kaController::getSimulationTimer()->removeListener(listener);

    EXPECT_EQ(written, 15) << "5 passes for frames 1, 2 and 3";
    EXPECT_EQ(writtenAtFrameStart, (std::vector<int>{0, 0, 5, 10}))
        << "every pass file of a frame is written before the next frame begins";
    for (const auto& [name, thread] : threadOf) {
        const QRegularExpression pattern("^pass-(\\w+)-0000(\\d)\\.png$");
        const auto match = pattern.match(QString::fromStdString(name));
        ASSERT_TRUE(match.hasMatch()) << name;
        const QString pass = match.captured(1);
        int index = -1;
        for (unsigned int i = 0; i < kaRenderPassCount; ++i)
            if (kaRenderPassNames[i] == pass.toStdString())
                index = int(i);
        EXPECT_EQ(thread, "imagewriter" + std::to_string(index)) << name;
    }
}

TEST_F(SequenceExport, LayeredExrIsHalfOnlyForTheCapitalExtension) {
    kaOSGWidget::setRaytracing(true);
    std::vector<bool> active(kaRenderPassCount, false);
    active[0] = active[kaRenderPass::Depth] = true;
    kaImageRenderWidget::setActiveRenderPasses(active);
    writer.setExportMultiLayer(true);
    writer.setExportExrHalf(true);
    writer.exportImages(dir.file("upper.EXR"), 32, 24, 25, 0, 0, 0, 0, true, 0, QString(), 1,
                        false);
    writer.exportImages(dir.file("lower.exr"), 32, 24, 25, 0, 0, 0, 0, true, 0, QString(), 1,
                        false);
    EXPECT_EQ(files(), (std::vector<std::string>{"lower-00000.exr", "upper-00000.exr"}))
        << "one layered file per frame, named with the lower-case extension";

    auto formatOf = [&](const char* file, const char* channel) {
        auto in = OIIO::ImageInput::open(dir.fileStd(file));
        if (!in)
            return OIIO::TypeDesc();
        const OIIO::ImageSpec& spec = in->spec();
        for (int c = 0; c < spec.nchannels; ++c)
            if (spec.channelnames[size_t(c)] == channel)
                return spec.channelformat(c);
        return OIIO::TypeDesc();
    };
    const std::string beauty = kaRenderPassNames[0] + ".R";
    const std::string depth = kaRenderPassNames[kaRenderPass::Depth] + ".R";
    EXPECT_EQ(formatOf("upper-00000.exr", beauty.c_str()), OIIO::TypeDesc::HALF);
    EXPECT_EQ(formatOf("lower-00000.exr", beauty.c_str()), OIIO::TypeDesc::FLOAT);
    EXPECT_EQ(formatOf("upper-00000.exr", depth.c_str()), OIIO::TypeDesc::FLOAT)
        << "depth keeps its precision";
    EXPECT_EQ(kaImageRenderWidget::getDataType(), osg::Image::OSG_UINT8_IMAGEDATA) << "restored";

    // Per-pass files keep their float data: the half conversion belongs to layered files.
    writer.setExportMultiLayer(false);
    writer.exportImages(dir.file("each.EXR"), 32, 24, 25, 0, 0, 0, 0, true, 0, QString(), 1, false);
    auto in = OIIO::ImageInput::open(dir.fileStd("each-beauty-00000.exr"));
    ASSERT_TRUE(in);
    EXPECT_EQ(in->spec().format, OIIO::TypeDesc::FLOAT);
}

TEST_F(SequenceExport, TheMachineStaysAwakeInTheExportColourSpace) {
    writer.setICCProfile(2);
    unsigned int seenSpace = 99;
    kaImageOutStream::setImageWriteFunction([&](osg::ImagePtr, std::string) {
        seenSpace = view.getDisplayColorspace();
        return true;
    });
    exportPng("icc.png", 0, 0, 1);
    EXPECT_EQ(seenSpace, 2u);
    EXPECT_EQ(view.getDisplayColorspace(), 0u) << "given back";
}
