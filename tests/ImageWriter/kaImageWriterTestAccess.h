#pragma once

#include "kaImageWriter.h"

#include <QImage>

// Reaches the writer's private operations for tests.
class kaImageWriterTestAccess {
public:
    explicit kaImageWriterTestAccess(kaImageWriter& writer)
        : w(writer) {}
    bool metaDataEnabled() const { return w.metaDataEnabled(); }
    bool imageFormatHasMetaDataSupport(const QString& f) const {
        return w.imageFormatHasMetaDataSupport(f);
    }
    void logMetaDataUnsupported() const { w.logMetaDataUnsupported(); }
    void storeMetaData(const osg::ImagePtr& image, const char* format) {
        w.storeMetaData(image, format);
    }
    void getSignatureSettings(const char* filename, QString& text, std::vector<int>& position,
                              int& fontSize, std::vector<int>& color) {
        w.getSignatureSettings(filename, text, position, fontSize, color);
    }
    void addImageSignature(QImage& image, const char* filename) {
        w.addImageSignature(image, filename);
    }
    void addImageSignature(osg::ImagePtr& image, const char* filename) {
        w.addImageSignature(image, filename);
    }
    void addImageText(QImage& image, const QString& text, std::vector<int> position, int size,
                      std::vector<int> color) {
        w.addImageText(image, text, position, size, color);
    }
    void addImageText(osg::ImagePtr& image, const QString& text, std::vector<int> position,
                      int size, std::vector<int> color) {
        w.addImageText(image, text, position, size, color);
    }

    kaImageRenderWidget* fastWidget() const { return w._fastRenderWidget.get(); }

    bool exportRTClusterImage(const QString& filename, int width, int height, int eye,
                              int superSampling, bool alpha, float dpi, bool addSignature,
                              bool exportRenderPasses, bool forwarded,
                              kaSnapshotProgressGUII* progress, int frame) {
        return w.exportRTClusterImage(filename, width, height, eye, superSampling, alpha, dpi,
                                      addSignature, exportRenderPasses, forwarded, progress, frame);
    }
    bool exportRTClusterImages(const QString& filename, int width, int height, int eye, int fps,
                               int startFrame, int stopFrame, int superSampling, bool alpha,
                               bool exportRenderPasses, bool option, __int64 animationNodeId,
                               int frameStep) {
        return w.exportRTClusterImages(filename, width, height, eye, fps, startFrame, stopFrame,
                                       superSampling, alpha, exportRenderPasses, option,
                                       animationNodeId, frameStep);
    }

private:
    kaImageWriter& w;
};
