// Finished pictures leave the library here: one image to one file, or the pass images of a
// frame to one layered file or one file each, written in parallel.
#include "kaImageWriter.h"

#include "OSGExternalThread.h"
#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "OSGImageScaler.h"
#include "exImageViewer.h"
#include "filetypes/OSGJPGImageFileType.h"
#include "kaFile.h"
#include "kaImageOutStream.h"
#include "kaLog.h"
#include "kaPlatform.h"
#include "kaPreferences.h"
#include "kaRTCryptomatte.h"
#include "kaRenderPasses.h"
#include "kaThreadPool.h"

#include <QApplication>
#include <QDesktopWidget>

#include <cstdio>
#include <cstring>

namespace {

bool isFloatType(const osg::ImagePtr& image) {
    return image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA ||
           image->getDataType() == osg::Image::OSG_FLOAT16_IMAGEDATA;
}

} // namespace

bool kaImageWriter::prepareImage(osg::ImagePtr& image, const char* filename, const char* type,
                                 bool addSignature, bool keepFloat, float dpi, const char* comment,
                                 PreparedImage& prepared) {
    // The text every file carries: who made it, and the caller's comment.
    QString text = kaPlatform::getAppVersionName();
    if (comment)
        text += "\n" + QString::fromUtf8(comment);
    image->setAttachmentField(osg::kCommentAttachment, text.toUtf8().toStdString());

    storeMetaData(image, type);

    prepared.name = kaFile::expandFilename(QString::fromUtf8(filename));
    if (!isStreamOutput())
        kaFile::createPath(kaFile::getFilePath(prepared.name));

    if (addSignature) {
        if (!isFloatType(image)) {
            try {
                QImage picture;
                kaImageRenderWidget::convertToQImage(picture, image);
                addImageSignature(picture, filename);
                kaImageRenderWidget::convertToOSGImage(image, picture);
            } catch (...) {
                kaLog::error("kaImageWriter: Couldn't add image signature (out of memory)!");
            }
        } else {
            // Drawn on the float pixels themselves, so that values above 1 survive.
            try {
                addImageSignature(image, filename);
            } catch (...) {
                kaLog::error("kaImageWriter: Failed to add image signature!");
            }
        }
    }

    // Without the preference the JPEG writer's own quality stands.
    osg::JPGImageFileType& jpeg = osg::JPGImageFileType::the();
    prepared.savedQuality = jpeg.getQuality();
    int quality = int(prepared.savedQuality);
    getFromMessage(kaPreferences::getData(), "ImageExport quality", quality);
    jpeg.setQuality(uint32_t(std::max(quality, 0)));

    embedColorProfile(image);

    image->setResX(dpi);
    image->setResY(dpi);
    image->setResUnit(osg::Image::OSG_RESUNIT_INCH);

    // In this order, on the image as it stands: a float RGBA image for HDR is only reformatted.
    prepared.converted = false;
    const bool isHDR = std::strcmp(type, "HDR") == 0;
    if (image->getDataType() == osg::Image::OSG_FLOAT16_IMAGEDATA && isHDR &&
        image->getPixelFormat() == osg::Image::OSG_RGBA_PF) {
        image->reformat(osg::Image::OSG_RGB_PF);
        prepared.converted = true;
    }
    if (image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA &&
        std::strcmp(type, "EXR") == 0 && !keepFloat && _exportExrHalf) {
        image->convertDataTypeTo(osg::Image::OSG_FLOAT16_IMAGEDATA);
        prepared.converted = true;
    }
    if (image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA && isHDR &&
        image->getPixelFormat() == osg::Image::OSG_RGBA_PF) {
        image->reformat(osg::Image::OSG_RGB_PF);
        prepared.converted = true;
    }
    return true;
}

void kaImageWriter::finishImage(osg::ImagePtr& image, bool noShow, const PreparedImage& prepared) {
    if (prepared.converted) {
        // The converted pixels are dropped: the image gets fresh storage of the render format.
        image->set(kaImageRenderWidget::getPixelFormat(), image->getWidth(), image->getHeight(),
                   image->getDepth(), image->getMipMapCount(), image->getFrameCount(), 0.0, nullptr,
                   kaImageRenderWidget::getDataType(), true, image->getSideCount());
    }
    osg::JPGImageFileType::the().setQuality(prepared.savedQuality);
    showImage(image, noShow);
}

void kaImageWriter::showImage(const osg::ImagePtr& image, bool noShow) {
    const kaMessage& prefs = kaPreferences::getData();
    bool show = false, singleViewer = true;
    getFromMessage(prefs, "ImageExport show image", show);
    getFromMessage(prefs, "ImageExport single viewer", singleViewer);
    if (isFloatType(image) || noShow || !show)
        return;

    // The corners subtracted, without the usual one-pixel addition.
    const QRect desktop = QApplication::desktop()->geometry();
    const int W = desktop.right() - desktop.left();
    const int H = desktop.bottom() - desktop.top();
    const int maxW = W - 9;

    QImage picture;
    if (image->getWidth() > maxW) {
        const int height =
            int(float(maxW) / (float(image->getWidth()) / float(image->getHeight())));
        osg::ImagePtr scaled = osg::Image::create();
        scaled->set(image->getPixelFormat(), maxW, std::max(height, 1), 1, 1, 1, 0.0, nullptr,
                    image->getDataType());
        osg::ImageScaler::scale(image, scaled, osg::ImageLinearFilter(1.0f));
        kaImageRenderWidget::convertToQImage(picture, scaled);
    } else {
        kaImageRenderWidget::convertToQImage(picture, image);
    }
    const int viewerWidth = std::min(image->getWidth(), W - 9);
    const int viewerHeight = std::min(image->getHeight(), H - 39);

    exImageViewer* viewer = nullptr;
    if (singleViewer) {
        viewer = _imageViewer.get();
        viewer->set(picture);
    } else {
        // One window per image; it is the user's to close.
        viewer = new exImageViewer(nullptr, picture);
        viewer->setAttribute(Qt::WA_DeleteOnClose);
    }
    viewer->show();
    viewer->resize(viewerWidth, viewerHeight);
    viewer->move((W - 9 - viewerWidth) / 2, (H - 39 - viewerHeight) / 2);
    viewer->raise();
}

bool kaImageWriter::saveImage(osg::ImagePtr image, const char* filename, const char* type,
                              bool addSignature, bool keepFloat, bool noShow, float dpi, bool,
                              bool noErrorMessage, const char* comment) {
    if (!image || !filename || !type || !*type)
        return false;
    PreparedImage prepared;
    prepareImage(image, filename, type, addSignature, keepFloat, dpi, comment, prepared);
    const QByteArray name = prepared.name.toUtf8();

    bool written = false;
    try {
        written = writeImage(image, name.toStdString());
    } catch (const std::exception& e) {
        // Returns at once: the JPEG quality and the converted image stay as they are.
        kaLog::error("kaImageWriter: Error %s occured while writing the image file '%s'!", e.what(),
                     name.constData());
        return false;
    } catch (...) {
        kaLog::error("kaImageWriter: An error occured while writing the image file '%s'!",
                     name.constData());
        return false;
    }
    if (!written && !noErrorMessage)
        kaLog::error("kaImageWriter: Couldn't save image '%s'!", name.constData());

    finishImage(image, noShow, prepared);
    return written;
}

bool kaImageWriter::saveImages(std::vector<osg::ImagePtr> images, std::string filename,
                               const char* type, bool addSignature, bool keepFloat, bool noShow,
                               float dpi, bool, bool noErrorMessage, const char* comment) {
    if (!type || !*type)
        return false;
    if (images.empty())
        return true;
    // Element i is render pass i: there is no name, and no layer, for more images than passes.
    if (images.size() > size_t(kaRenderPassCount)) {
        kaLog::error("kaImageWriter: Couldn't save images '%s': %zu images, but only %d render "
                     "passes!",
                     filename.c_str(), images.size(), int(kaRenderPassCount));
        return false;
    }

    osg::ImageFileType* fileType =
        osg::ImageFileHandler::the().getFileType(nullptr, filename.c_str());
    if (_exportMultiLayer && fileType &&
        (fileType->getFlags() & osg::ImageFileType::OSG_LAYER_SUPPORTED)) {
        std::printf("filetype %s supports LAYERs\n", fileType->getMimeType().c_str());
        std::fflush(stdout);
        osg::ImagePtr base;
        for (const osg::ImagePtr& image : images)
            if (image) {
                base = image;
                break;
            }
        if (!base)
            return false;
        PreparedImage prepared;
        prepareImage(base, filename.c_str(), type, addSignature, keepFloat, dpi, comment, prepared);
        kaRTCryptomatte::setStaticMetadata(true, true);
        const QByteArray name = prepared.name.toUtf8();
        const bool written =
            writeLayeredImage(fileType, base, name.toStdString(), images, kaRenderPassNames.data());
        if (!written && !noErrorMessage)
            kaLog::error("kaImageWriter: Couldn't save image '%s'!", name.constData());
        finishImage(base, noShow, prepared);
        return written;
    }

    // One file per pass, written in parallel. Each job writes only its own entry.
    kaThreadPool pool(-1, nullptr);
    std::vector<unsigned char> results(images.size(), 0);
    const size_t dot = filename.rfind('.');
    const std::string stem = dot == std::string::npos ? filename : filename.substr(0, dot);
    const std::string typeName = type;
    const QString lowerType = QString::fromUtf8(type).toLower();
    for (size_t i = 0; i < images.size(); ++i) {
        if (!images[i])
            continue;
        kaImageRenderWidget::processEvents();
        const std::string passFile =
            stem + (getPassName(int(i)) + "." + lowerType).toUtf8().toStdString();
        pool.run([this, i, images, passFile, typeName, addSignature, keepFloat, dpi, &results] {
            const osg::ExternalThreadRefPtr thread =
                osg::ExternalThread::attachCurrentThread("imagewriter" + std::to_string(i));
            results[i] = saveImage(images[i], passFile.c_str(), typeName.c_str(), addSignature,
                                   keepFloat, true, dpi, false, true, nullptr);
        });
    }
    pool.wait();
    // A null element's entry stays false, so the result is false whenever a pass is missing.
    bool all = true;
    for (unsigned char result : results)
        all = all && result;
    return all;
}

bool kaImageWriter::writeImage(osg::ImagePtr image, std::string filename) {
    if (kaImageOutStream::ImageWriteFunction stream = kaImageOutStream::getImageWriteFunction())
        return stream(image, filename);
    return image->write(filename.c_str());
}

bool kaImageWriter::writeLayeredImage(osg::ImageFileType* fileType, const osg::ImagePtr& image,
                                      std::string filename, std::vector<osg::ImagePtr> layers,
                                      const std::string* layerNames) {
    if (kaImageOutStream::LayeredImageWriteFunction stream =
            kaImageOutStream::getLayeredImageWriteFunction())
        return stream(fileType, image, filename, layers, layerNames);
    return fileType && fileType->writeLayered(image, filename, layers, layerNames);
}

void kaImageWriter::waitForBackgroundJobs(kaThreadPool& pool) {
    while (pool.count() != 0) {
        std::fprintf(stderr, "waiting for %u jobs to end\n", pool.count());
        std::fflush(stderr);
        kaThreadPool::sleep(100);
    }
    pool.wait();
}
