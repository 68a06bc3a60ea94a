#include "kaExportFrames.h"

#include "OSGAnimNodeBase.h"
#include "OSGImageFileHandler.h"
#include "kaAnimManager.h"
#include "kaFile.h"
#include "kaImageWriter.h"
#include "kaPreferences.h"

#include <QFileInfo>

#include <algorithm>

namespace kaapps {

FrameWalk::FrameWalk(const kaImageWriter& writer, int start, int stop, int step)
    : _start(start)
    , _stop(stop)
    , _step(step) {
    writer.validateStartAndStop(_start, _stop);
    writer.validateFrameStep(_step);
}

int FrameWalk::preRolled() const {
    return std::max(0, std::min(_start, _stop + 1));
}

std::vector<int> FrameWalk::written() const {
    std::vector<int> frames;
    for (int f = std::max(_start, 0); f <= _stop; f += _step) {
        frames.push_back(f);
        if (f > _stop - _step)
            break; // the next one would pass the stop (and could overflow)
    }
    return frames;
}

int FrameWalk::passOf(int frame) const {
    if (frame < _start)
        return frame;
    return std::max(_start, 0) + (frame - std::max(_start, 0)) / _step;
}

QStringList writtenFiles(const kaImageWriter& writer, const QString& out,
                         const std::vector<unsigned int>& passes, bool multiLayer,
                         const FrameWalk& walk) {
    const QStringList all = writer.getExportedImageFilenames(out, passes, multiLayer, walk.start(),
                                                             walk.stop(), walk.step());
    // The list holds every frame of the walk for each view and pass, in that order.
    const int skipped = walk.preRolled();
    const int perGroup = skipped + int(walk.written().size());
    QStringList files;
    if (perGroup == 0)
        return files;
    for (int i = 0; i < all.size(); ++i)
        if (i % perGroup >= skipped)
            files << all[i];
    return files;
}

QStringList clusterWrittenFiles(const kaImageWriter& writer, const QString& out,
                                const std::vector<unsigned int>& passes, bool multiLayer,
                                const FrameWalk& walk) {
    QString name = out, extension = kaFile::getExtension(out);
    writer.cleanupFileExtension(name, extension);
    extension = kaFile::getExtension(name);
    const QString base = writer.getBaseFilename(name);
    QStringList views{QString()};
    if (std::get<1>(kaImageWriter::getStereoMode()) == 2)
        views = QStringList{"-left", "-right"};
    // Pass files only when two or more passes render; one layered file holds them all.
    std::vector<int> passFiles{-1};
    const bool layered = multiLayer && kaImageWriter::isMultilayerSupported(name);
    if (passes.size() >= 2 && !layered) {
        passFiles.clear();
        for (unsigned int pass : passes)
            passFiles.push_back(int(pass));
    }
    QStringList files;
    for (const QString& view : views)
        for (int pass : passFiles)
            for (int frame : walk.written())
                files << base + kaImageWriter::getFrameName(frame) + view +
                             (pass >= 0 ? kaImageWriter::getPassName(pass) : QString()) + "." +
                             (pass >= 0 ? extension.toLower() : extension);
    return files;
}

QStringList filesOfFrame(const QStringList& files, const FrameWalk& walk, size_t frameIndex) {
    const size_t frames = walk.written().size();
    QStringList result;
    for (size_t i = frameIndex; frames > 0 && i < size_t(files.size()); i += frames)
        result << files[int(i)];
    return result;
}

int timelineRate(int given) {
    int fps = given;
    if (fps < 1) {
        fps = 25;
        kaImageWriter::getFromMessage(kaPreferences::getData(), "MovieExport fps", fps);
    }
    kaAnimManager::setFramesPerSecond(fps);
    return fps;
}

__int64 animationNamed(const std::string& name, std::string& known) {
    for (const osg::AnimNodeBasePtr& animation :
         osg::FieldContainerFactory::the().getContainersOfType<osg::AnimNodeBase>()) {
        if (animation->getName() == name)
            return __int64(animation->getId());
        known += (known.empty() ? "" : ", ") + ("'" + animation->getName() + "'");
    }
    return 0;
}

QString captureName(const QString& out, int i, int count) {
    if (count <= 1)
        return out;
    const QFileInfo info(out);
    return info.path() + "/" + info.completeBaseName() + kaImageWriter::getFrameName(i) +
           (info.suffix().isEmpty() ? QString() : "." + info.suffix());
}

bool isCompleteImage(const QString& file) {
    if (!QFileInfo(file).isFile())
        return false;
    return bool(osg::ImageFileHandler::the().read(file.toUtf8().constData()));
}

} // namespace kaapps
