#include "kaImageMetaData.h"

#include "OSGImageFileType.h"

#include <QDateTime>

#include <exempi/xmp.h>

namespace {

const char* const kDublinCore = "http://purl.org/dc/elements/1.1/";
const char* const kXmpBasic = "http://ns.adobe.com/xap/1.0/";

bool toolkitReady() {
    static const bool ready = [] {
        if (!xmp_init())
            return false;
        XmpStringPtr registered = xmp_string_new();
        xmp_register_namespace(kaImageMetaData::kNamespace, kaImageMetaData::kPrefix, registered);
        xmp_string_free(registered);
        return true;
    }();
    return ready;
}

std::string number(double value) {
    return QString::number(value, 'g', 9).toStdString();
}

} // namespace

// The packet under construction; empty until something is stored.
struct kaImageMetaData::Record {
    XmpPtr xmp = nullptr;
    Record()
        : xmp(toolkitReady() ? xmp_new_empty() : nullptr) {}
    ~Record() {
        if (xmp)
            xmp_free(xmp);
    }
    bool set(const char* schema, const char* name, const std::string& value) {
        return xmp && xmp_set_property(xmp, schema, name, value.c_str(), 0);
    }
    bool set(const char* name, const std::string& value) {
        return set(kaImageMetaData::kNamespace, name, value);
    }
    bool set(const char* name, int value) { return set(name, std::to_string(value)); }
    bool set(const char* name, bool value) {
        return set(name, std::string(value ? "True" : "False"));
    }
    bool set(const char* name, float value) { return set(name, number(value)); }
};

kaImageMetaData::kaImageMetaData()
    : _record(std::make_unique<Record>()) {}
kaImageMetaData::~kaImageMetaData() = default;

bool kaImageMetaData::isXMPSupported() {
    return toolkitReady();
}

const std::set<std::string>& kaImageMetaData::getImageExtensionsWithXMPSupport() {
    static const std::set<std::string> extensions = {".exr", ".jpeg", ".jpg",
                                                     ".png", ".tif",  ".tiff"};
    return extensions;
}

const char* kaImageMetaData::getAttachmentKey() {
    return osg::kXMPAttachment;
}

void kaImageMetaData::setFileOutputImageSettings(float width, float height, float dpi,
                                                 int superSampling, bool tonemapHDR, bool alpha,
                                                 bool premultiplied, const float* alphaColor,
                                                 int iccProfile, int metaDataFlags) {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    _imageSettings.width = width;
    _imageSettings.height = height;
    _imageSettings.dpi = dpi;
    _imageSettings.superSampling = superSampling;
    _imageSettings.tonemapHDR = tonemapHDR;
    _imageSettings.alpha = alpha;
    _imageSettings.premultiplied = premultiplied;
    for (int i = 0; i < 3; ++i)
        _imageSettings.alphaColor[i] = alphaColor ? alphaColor[i] : 0.0f;
    _imageSettings.iccProfile = iccProfile;
    _imageSettings.metaDataFlags = metaDataFlags;
    _hasImageSettings = true;
}

bool kaImageMetaData::hasFileOutputImageSettings() const {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    return _hasImageSettings;
}

kaImageMetaData::ImageSettings kaImageMetaData::getFileOutputImageSettings() const {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    return _imageSettings;
}

void kaImageMetaData::setFileOutputAnimationSettings(bool sequence, int timeSource, int shot,
                                                     const QString& animationName, int start,
                                                     int stop, int step, int fps) {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    _animationSettings = {sequence, timeSource, shot, animationName, start, stop, step, fps};
    _hasAnimationSettings = true;
}

bool kaImageMetaData::hasFileOutputAnimationSettings() const {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    return _hasAnimationSettings;
}

bool kaImageMetaData::storeGeneralInformation(const std::string& sceneFileName,
                                              const std::string& applicationVersion) {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    const std::string now = QDateTime::currentDateTime()
                                .toOffsetFromUtc(QDateTime::currentDateTime().offsetFromUtc())
                                .toString(Qt::ISODate)
                                .toStdString();
    bool ok = _record->set(kXmpBasic, "CreatorTool", applicationVersion);
    ok = _record->set(kXmpBasic, "CreateDate", now) && ok;
    if (!sceneFileName.empty())
        ok = _record->set(kDublinCore, "source", sceneFileName) && ok;
    return ok;
}

bool kaImageMetaData::storeFileOutputImageSettings() {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    if (!_hasImageSettings)
        return false;
    const ImageSettings& s = _imageSettings;
    bool ok = _record->set("ImageWidth", s.width);
    ok = _record->set("ImageHeight", s.height) && ok;
    ok = _record->set("Resolution", s.dpi) && ok;
    ok = _record->set("SuperSampling", s.superSampling) && ok;
    ok = _record->set("TonemapHDR", s.tonemapHDR) && ok;
    ok = _record->set("Alpha", s.alpha) && ok;
    ok = _record->set("PremultipliedAlpha", s.premultiplied) && ok;
    ok = _record->set("AlphaColor", number(s.alphaColor[0]) + " " + number(s.alphaColor[1]) + " " +
                                        number(s.alphaColor[2])) &&
         ok;
    ok = _record->set("ColorSpace", s.iccProfile) && ok;
    ok = _record->set("MetaDataFlags", s.metaDataFlags) && ok;
    return ok;
}

bool kaImageMetaData::storeFileOutputAnimationSettings(int currentFrame) {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    if (!_hasAnimationSettings)
        return false;
    const AnimationSettings& a = _animationSettings;
    bool ok = _record->set("Sequence", a.sequence);
    ok = _record->set("TimeSource", a.timeSource) && ok;
    ok = _record->set("Shot", a.shot) && ok;
    if (!a.animationName.isEmpty())
        ok = _record->set("Animation", a.animationName.toStdString()) && ok;
    ok = _record->set("StartFrame", a.start) && ok;
    ok = _record->set("StopFrame", a.stop) && ok;
    ok = _record->set("FrameStep", a.step) && ok;
    ok = _record->set("FramesPerSecond", a.fps) && ok;
    ok = _record->set("Frame", currentFrame) && ok;
    return ok;
}

bool kaImageMetaData::getString(std::string& text) const {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    if (!_record->xmp)
        return false;
    XmpStringPtr buffer = xmp_string_new();
    bool ok = xmp_serialize(_record->xmp, buffer, 0, 0);
    if (ok)
        text = xmp_string_cstr(buffer);
    xmp_string_free(buffer);
    return ok;
}

void kaImageMetaData::reset(bool all) {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    ++_resetCount;
    _record = std::make_unique<Record>();
    if (all) {
        _imageSettings = ImageSettings();
        _hasImageSettings = false;
        _animationSettings = AnimationSettings();
        _hasAnimationSettings = false;
    }
}

unsigned kaImageMetaData::getResetCount() const {
    std::lock_guard<std::recursive_mutex> guard(_mutex);
    return _resetCount;
}
