// The writer object: construction, copies and the simple settings.
#include "kaImageWriter.h"

#include "kaRenderPasses.h"

#include "OSGImageFileHandler.h"
#include "OSGImageFileType.h"
#include "exImageViewer.h"
#include "kaImageMetaData.h"
#include "kaImageOutStream.h"
#include "kaPreferences.h"

#include <QImage>

kaImageWriter::kaImageWriter()
    : _noProgress(false)
    , _noShowImage(false)
    , _noOverwriteMessage(false)
    , _exportCanceled(false)
    , _exportTiffHDR(false)
    , _exportExrHalf(false)
    , _exportMultiLayer(false)
    , _iccProfile(0)
    , _alphaColor{0.0f, 0.0f, 0.0f}
    , _metaDataFlags(0) {
    resetExportSettings();

    // The scene graph's own formats (raw dumps and scene files) are no export formats.
    for (const std::string& suffix :
         osg::ImageFileHandler::the().getSuffixList(osg::ImageFileType::OSG_WRITE_SUPPORTED)) {
        if (suffix == "mtd" || suffix == "opensg" || suffix == "opensgimage" || suffix == "dat")
            continue;
        _formatsOpenSG.insert(suffix);
    }

    setAlphaColor(1.0f, 1.0f, 1.0f);
    _imageViewer = std::make_shared<exImageViewer>(nullptr, QImage());
    _metaData = std::make_shared<kaImageMetaData>();
}

kaImageWriter::kaImageWriter(const kaImageWriter& other) = default;
kaImageWriter& kaImageWriter::operator=(const kaImageWriter& other) = default;

kaImageWriter::~kaImageWriter() {
    // Released in this order; the objects go when no copy holds them any more.
    _fastRenderWidget.reset();
    _imageViewer.reset();
    _metaData.reset();
    _formatsOpenSG.clear();
    _formatsQt.clear();
}

void kaImageWriter::resetExportSettings() {
    const kaMessage& prefs = kaPreferences::getData();
    getFromMessage(prefs, "ImageExport tiff hdr", _exportTiffHDR);
    getFromMessage(prefs, "ImageExport exr half", _exportExrHalf);
    getFromMessage(prefs, "ImageExport multi layer exr", _exportMultiLayer);
}

void kaImageWriter::setNoProgress(bool noProgress) {
    _noProgress = noProgress;
}
void kaImageWriter::setNoShowImage(bool noShowImage) {
    _noShowImage = noShowImage;
}
void kaImageWriter::setNoOverwriteMessage(bool noOverwriteMessage) {
    _noOverwriteMessage = noOverwriteMessage;
}
bool kaImageWriter::wasExportCanceled() const {
    return _exportCanceled;
}
void kaImageWriter::setICCProfile(int colorSpace) {
    _iccProfile = colorSpace;
}

void kaImageWriter::setAlphaColor(float r, float g, float b) {
    _alphaColor[0] = r;
    _alphaColor[1] = g;
    _alphaColor[2] = b;
}

void kaImageWriter::getAlphaColor(float& r, float& g, float& b) {
    r = _alphaColor[0];
    g = _alphaColor[1];
    b = _alphaColor[2];
}

void kaImageWriter::setMetaDataFlags(int flags) {
    _metaDataFlags = flags;
    if (_metaData)
        _metaData->reset(true);
}

void kaImageWriter::setExportTiffHDR(bool tiffHDR) {
    _exportTiffHDR = tiffHDR;
}
bool kaImageWriter::getExportTiffHDR() const {
    return _exportTiffHDR;
}
void kaImageWriter::setExportExrHalf(bool exrHalf) {
    _exportExrHalf = exrHalf;
}
bool kaImageWriter::getExportExrHalf(bool) const {
    return _exportExrHalf;
}
void kaImageWriter::setExportMultiLayer(bool multiLayer) {
    _exportMultiLayer = multiLayer;
}
bool kaImageWriter::getExportMultiLayer() const {
    return _exportMultiLayer;
}

bool kaImageWriter::allowPassConversionTo16Bit(size_t pass) const {
    return !kaRenderPass::keepsFullFloat((long long)(pass));
}

const std::set<std::string>& kaImageWriter::getFormatsOpenSG() const {
    return _formatsOpenSG;
}
const std::set<std::string>& kaImageWriter::getFormatsQt() const {
    return _formatsQt;
}

kaImageMetaData* kaImageWriter::getMetaData() const {
    return _metaData.get();
}
exImageViewer* kaImageWriter::getImageViewer() const {
    return _imageViewer.get();
}

bool kaImageWriter::isStreamOutput() {
    return static_cast<bool>(kaImageOutStream::getImageWriteFunction());
}
