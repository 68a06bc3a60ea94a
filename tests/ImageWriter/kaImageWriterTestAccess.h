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

private:
    kaImageWriter& w;
};
