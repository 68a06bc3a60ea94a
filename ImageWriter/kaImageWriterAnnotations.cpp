// What saving adds to an image: the metadata record and the text signature.
#include "kaImageWriter.h"

#include "QImageConverter.h"
#include "kaAnimManager.h"
#include "kaCameraService.h"
#include "kaFile.h"
#include "kaFileIO.h"
#include "kaImage.h"
#include "kaImageMetaData.h"
#include "kaKernelServiceFactory.h"
#include "kaLog.h"
#include "kaNodeUtils.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaQRPCConverter.h"
#include "kaRTSceneHandler.h"
#include "kaRenderPasses.h"

#include <QDateTime>
#include <QPainter>
#include <QTextStream>

#include <mutex>

bool kaImageWriter::metaDataEnabled() const {
    return _metaDataFlags != 0 && kaImageMetaData::isXMPSupported();
}

bool kaImageWriter::imageFormatHasMetaDataSupport(const QString& format) const {
    const QString dotted = "." + format.toLower();
    if (kaImageMetaData::getImageExtensionsWithXMPSupport().count(dotted.toStdString()))
        return true;
    // Compared with the dot in place, so this never matches: PSD and PSB get metadata only
    // when the extension set lists them.
    return dotted == "psd" || dotted == "psb";
}

void kaImageWriter::logMetaDataUnsupported() const {
    QString text;
    QTextStream stream(&text);
    stream << "The chosen image format doesn't support embedding meta data!\n";
    stream << "Please use image format ";
    bool first = true;
    for (const std::string& extension : kaImageMetaData::getImageExtensionsWithXMPSupport()) {
        if (!first)
            stream << ", ";
        stream << QString::fromStdString(extension);
        first = false;
    }
    stream << " to embed meta data in the rendering." << Qt::endl;
    kaLog::warning("%s", text.toUtf8().constData());
}

void kaImageWriter::storeMetaData(const osg::ImagePtr& image, const char* format) {
    if (!image || !format)
        return;
    if (_metaDataFlags == 0 || !kaImageMetaData::isXMPSupported())
        return;
    if (!imageFormatHasMetaDataSupport(QString::fromUtf8(format)))
        return;

    // Background writers share the record: one image's record is built and taken at a time.
    std::lock_guard<std::recursive_mutex> lock(_metaData->lock());
    bool stored =
        _metaData->storeGeneralInformation(kaFileIO::getFilename().toUtf8().toStdString(),
                                           kaPlatform::getAppVersionName().toUtf8().toStdString());
    if (_metaDataFlags & 64)
        stored = _metaData->storeRaytracingSettings(
                     kaRTSceneHandler::getRaytracingSettingsAttachment()) ||
                 stored;
    if (_metaDataFlags & 8)
        stored = _metaData->storeFileOutputImageSettings() || stored;
    if (_metaDataFlags & 16)
        stored =
            _metaData->storeFileOutputAnimationSettings(kaAnimManager::getCurrentFrame()) || stored;
    if (_metaDataFlags & 32) {
        std::vector<std::string> passes;
        const std::vector<bool>& active = kaImageRenderWidget::getActiveRenderPasses();
        for (size_t i = 0; i < active.size() && i < kaRenderPassCount; ++i)
            if (active[i])
                passes.push_back(kaRenderPassNames[i]);
        _metaData->setFileOutputRenderPasses(passes);
        stored = _metaData->storeFileOutputRenderPasses() || stored;
    }
    if (_metaDataFlags & 1) {
        if (auto cameras = kaKernelServiceFactory::get<kaCameraService>("kaCameraService")) {
            const osg::NodePtr camera =
                kaQRPCConverter::idToNode(cameras->getActiveCamera().getId());
            stored = _metaData->storeCamera(camera) || stored;
        }
    }
    if (_metaDataFlags & (2 | 4)) {
        const std::vector<osg::NodePtr> nodes = kaNodeUtils::getSceneNodes();
        if (_metaDataFlags & 2)
            stored = _metaData->storeNodesVisibility(nodes) || stored;
        if (_metaDataFlags & 4)
            stored = _metaData->storeSwitchNodesChoice(nodes) || stored;
    }
    // Computed, but deliberately not counted: switch material choices alone never make a
    // record.
    if (_metaDataFlags & 128)
        _metaData->storeSwitchMaterialsChoice();

    std::string text;
    if (stored && _metaData->getString(text))
        image->setAttachmentField(kaImageMetaData::getAttachmentKey(), text);
    _metaData->reset(false);
}

void kaImageWriter::getSignatureSettings(const char* filename, QString& text,
                                         std::vector<int>& position, int& fontSize,
                                         std::vector<int>& color) {
    const kaMessage& prefs = kaPreferences::getData();
    // The lists may be shorter than the code needs; missing elements keep these values.
    std::vector<int> readPosition, readColor;
    position = {10, 10};
    color = {255, 255, 255};
    fontSize = 12;
    QString comment;
    bool addFilename = false, addDate = false, addTime = false;
    if (getFromMessage(prefs, "ImageExport sig position", readPosition))
        for (size_t i = 0; i < std::min<size_t>(2, readPosition.size()); ++i)
            position[i] = readPosition[i];
    getFromMessage(prefs, "ImageExport sig font size", fontSize);
    if (getFromMessage(prefs, "ImageExport sig color", readColor))
        for (size_t i = 0; i < std::min<size_t>(3, readColor.size()); ++i)
            color[i] = readColor[i];
    getFromMessage(prefs, "ImageExport sig comment", comment);
    getFromMessage(prefs, "ImageExport sig add filename", addFilename);
    getFromMessage(prefs, "ImageExport sig add date", addDate);
    getFromMessage(prefs, "ImageExport sig add time", addTime);

    const QDateTime now = QDateTime::currentDateTime();
    text.clear();
    if (addFilename) {
        text = kaFile::getFileName(QString::fromUtf8(filename ? filename : ""));
        if (addDate || addTime || !comment.isEmpty())
            text += " - ";
    }
    if (addDate) {
        text += now.toString("dd.MM.yyyy");
        if (addTime || !comment.isEmpty())
            text += " - ";
    }
    if (addTime) {
        text += now.toString("hh:mm");
        if (!comment.isEmpty())
            text += " - ";
    }
    if (!comment.isEmpty())
        text += comment;
}

void kaImageWriter::addImageSignature(QImage& image, const char* filename) {
    QString text;
    std::vector<int> position, color;
    int fontSize = 0;
    getSignatureSettings(filename, text, position, fontSize, color);
    addImageText(image, text, position, fontSize, color);
}

void kaImageWriter::addImageSignature(osg::ImagePtr& image, const char* filename) {
    QString text;
    std::vector<int> position, color;
    int fontSize = 0;
    getSignatureSettings(filename, text, position, fontSize, color);
    addImageText(image, text, position, fontSize, color);
}

namespace {
void drawText(QImage& image, const QString& text, const std::vector<int>& position, int fontSize,
              const std::vector<int>& color) {
    QPainter painter(&image);
    QFont font = painter.font();
    font.setPixelSize(std::max(fontSize, 1));
    painter.setFont(font);
    painter.setPen(QColor(color.at(0), color.at(1), color.at(2), 255));
    // The position counts from the lower-left corner, QImage rows from the top.
    painter.drawText(QPoint(position.at(0), image.height() - position.at(1)), text);
    painter.end();
}

// Lists from the caller may be short: complete them as the signature settings do.
std::vector<int> completed(std::vector<int> values, std::vector<int> defaults) {
    for (size_t i = 0; i < std::min(values.size(), defaults.size()); ++i)
        defaults[i] = values[i];
    return defaults;
}
} // namespace

void kaImageWriter::addImageText(QImage& image, const QString& text, std::vector<int> position,
                                 int fontSize, std::vector<int> color) {
    drawText(image, text, completed(position, {10, 10}), fontSize,
             completed(color, {255, 255, 255}));
}

void kaImageWriter::addImageText(osg::ImagePtr& image, const QString& text,
                                 std::vector<int> position, int fontSize, std::vector<int> color) {
    if (!image)
        return;
    // A transparent overlay of the image's size (a QImage, not a QPixmap: background writers
    // sign float images off the GUI thread).
    QImage overlay(image->getWidth(), image->getHeight(), QImage::Format_ARGB32_Premultiplied);
    overlay.fill(Qt::transparent);
    drawText(overlay, text, completed(position, {10, 10}), fontSize,
             completed(color, {255, 255, 255}));
    // The overlay keeps its alpha channel: it is converted as RGBA whatever the render format.
    osg::ImagePtr overlayImage = osg::Image::create();
    if (!QImageConverter::convertToOSGImage(overlayImage, overlay))
        throw std::bad_alloc();
    kaImage::blendImage(image, overlayImage, {0, 0, 0}, {1.0f, 1.0f, 1.0f, 1.0f}, 1.0f, 0.0f);
}
