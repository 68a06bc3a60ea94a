// Names of the files an export writes:
//   base [stereo suffix] [pass suffix] [frame suffix] "." extension
#include "kaImageWriter.h"

#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "kaFile.h"
#include "kaImage.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"

#include <QRegularExpression>

#include <limits>

namespace {
const char* const kTwoViews[] = {"-left", "-right"};
const char* const kFiveViews[] = {"-left2", "-left1", "-middle", "-right1", "-right2"};
const char* const kNineViews[] = {"-left4",  "-left3",  "-left2",  "-left1", "-middle",
                                  "-right1", "-right2", "-right3", "-right4"};

template <size_t N>
QString viewSuffix(const char* const (&table)[N], int view) {
    return view >= 0 && size_t(view) < N ? QString(table[view]) : QString();
}
} // namespace

QString kaImageWriter::getBaseFilename(const QString& filename) const {
    QString base = filename;
    int dot = base.lastIndexOf('.');
    if (dot >= 0)
        base.truncate(dot);
    if (base.size() < 6)
        return base;
    static const QRegularExpression frameDigits("[0-9][0-9][0-9][0-9][0-9]");
    if (!frameDigits.match(base.right(5)).hasMatch())
        return base;
    base.chop(5);
    if (base.endsWith('-'))
        base.chop(1);
    return base;
}

QString kaImageWriter::getFrameName(int frame) {
    // The sign counts as one of the five characters: -5 gives "-000-5".
    return "-" + QString::number(frame).rightJustified(5, '0');
}

QString kaImageWriter::getStereoName(int mode, int view) {
    switch (mode) {
    case kaImageRenderWidget::STEREO_TWO_EYES:
        return viewSuffix(kTwoViews, view);
    case kaImageRenderWidget::STEREO_FIVE_EYES:
        return viewSuffix(kFiveViews, view);
    case kaImageRenderWidget::STEREO_NINE_EYES:
        return viewSuffix(kNineViews, view);
    default:
        return QString();
    }
}

QString kaImageWriter::getPassName(int pass) {
    if (pass < 0 || unsigned(pass) >= kaRenderPassCount || kaRenderPassNames[pass].empty())
        return QString();
    return "-" + QString::fromStdString(kaRenderPassNames[pass]);
}

QString kaImageWriter::getFilename(const QString& base, kaImageRenderWidget::StereoMode mode,
                                   int view, const QString& middle,
                                   const QString& extension) const {
    return base + getStereoName(mode, view) + middle + "." + extension;
}

void kaImageWriter::cleanupFileExtension(QString& filename, QString& extension) const {
    if (extension.isEmpty()) {
        extension = QString::fromUtf8(kaImage::getDefaultImageFormat().c_str());
        filename += "." + extension;
    }
    // Only the exact upper-case spelling is rewritten; "jpg" and "Jpg" stay as they are.
    if (extension == "JPG")
        extension = "JPEG";
}

bool kaImageWriter::isMultilayer(const QString& filename) const {
    return isMultilayerSupported(filename) && _exportMultiLayer;
}

bool kaImageWriter::isMultilayerSupported(const QString& filename) {
    const osg::ImageFileType* type =
        osg::ImageFileHandler::the().getFileType(nullptr, filename.toUtf8().constData());
    return type && (type->getFlags() & osg::ImageFileType::OSG_LAYER_SUPPORTED);
}

void kaImageWriter::validateFrameStep(int& step) const {
    if (step < 1)
        step = 1;
}

void kaImageWriter::validateStartAndStop(int& start, int& stop) const {
    const kaMessage& prefs = kaPreferences::getData();
    if (start < 0)
        getFromMessage(prefs, "MovieExport start frame", start);
    if (stop < 0)
        getFromMessage(prefs, "MovieExport stop frame", stop);
}

std::tuple<kaImageRenderWidget::StereoMode, int> kaImageWriter::getStereoMode() {
    int mode = 0;
    getFromMessage(kaPreferences::getData(), "ImageExport stereo mode", mode);
    int views = 1;
    if (mode == kaImageRenderWidget::STEREO_TWO_EYES)
        views = 2;
    else if (mode == kaImageRenderWidget::STEREO_FIVE_EYES)
        views = 5;
    else if (mode == kaImageRenderWidget::STEREO_NINE_EYES)
        views = 9;
    return {kaImageRenderWidget::StereoMode(mode), views};
}

QStringList kaImageWriter::getExportedImageFilenames(const QString& filename,
                                                     const std::vector<unsigned int>& passes,
                                                     bool multiLayer) const {
    return getExportedImageFilenames(filename, passes, multiLayer, false, -1, -1, -1);
}

QStringList kaImageWriter::getExportedImageFilenames(const QString& filename,
                                                     const std::vector<unsigned int>& passes,
                                                     bool multiLayer, int start, int stop,
                                                     int step) const {
    return getExportedImageFilenames(filename, passes, multiLayer, true, start, stop, step);
}

QStringList kaImageWriter::getExportedImageFilenames(const QString& filename,
                                                     const std::vector<unsigned int>& passes,
                                                     bool multiLayer, bool sequence, int start,
                                                     int stop, int step) const {
    QString cleaned = kaFile::expandFilename(filename);
    QString extension = kaFile::getExtension(cleaned);
    cleanupFileExtension(cleaned, extension);
    const QString base = getBaseFilename(cleaned);
    // Taken again from the name: a "JPG" -> "JPEG" rewrite does not reach the list.
    extension = kaFile::getExtension(cleaned);
    const QString lowerExtension = extension.toLower();

    const auto [mode, views] = getStereoMode();
    validateStartAndStop(start, stop);
    validateFrameStep(step);

    // Frames before the start are pre-rolled one by one, so the walk starts at 0.
    std::vector<int> frames;
    if (sequence) {
        for (int f = 0; f <= stop;) {
            frames.push_back(f);
            const int advance = f < start ? 1 : step;
            if (f > std::numeric_limits<int>::max() - advance)
                break;
            f += advance;
        }
    }

    const bool onePerPass = !passes.empty() && !(isMultilayerSupported(cleaned) && multiLayer);
    QStringList names;
    for (int view = 0; view < views; ++view) {
        const QString viewBase = base + getStereoName(mode, view);
        if (onePerPass) {
            for (unsigned int pass : passes) {
                const QString passBase = viewBase + getPassName(int(pass));
                if (sequence) {
                    for (int f : frames)
                        names << passBase + getFrameName(f) + "." + lowerExtension;
                } else {
                    names << passBase + "." + lowerExtension;
                }
            }
        } else if (sequence) {
            for (int f : frames)
                names << getFilename(base, mode, view, getFrameName(f), extension);
        } else {
            names << getFilename(base, mode, view, QString(), extension);
        }
    }
    return names;
}
