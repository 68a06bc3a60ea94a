#include "kaImageMetaData.h"

#include "OSGImageFileType.h"
#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "OSGXMPToolkit.h"

#include <QDateTime>

#include <exempi/xmp.h>

namespace {

const char* const kDublinCore = "http://purl.org/dc/elements/1.1/";
const char* const kXmpBasic = "http://ns.adobe.com/xap/1.0/";

bool toolkitReady() {
    static const bool ready = [] {
        if (!osg::XMPToolkit::ready())
            return false;
        std::lock_guard<std::recursive_mutex> lock(osg::XMPToolkit::mutex());
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
    Record() {
        if (toolkitReady()) {
            std::lock_guard<std::recursive_mutex> lock(osg::XMPToolkit::mutex());
            xmp = xmp_new_empty();
        }
    }
    ~Record() {
        std::lock_guard<std::recursive_mutex> lock(osg::XMPToolkit::mutex());
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
    // An ordered list of text items, replacing any list of that name.
    bool setList(const char* name, const std::vector<std::string>& items) {
        if (!xmp || items.empty())
            return false;
        xmp_delete_property(xmp, kaImageMetaData::kNamespace, name);
        bool ok = true;
        for (const std::string& item : items)
            ok = xmp_append_array_item(xmp, kaImageMetaData::kNamespace, name,
                                       XMP_PROP_VALUE_IS_ARRAY | XMP_PROP_ARRAY_IS_ORDERED,
                                       item.c_str(), 0) &&
                 ok;
        return ok;
    }
};

namespace {
std::string triple(float x, float y, float z) {
    return number(x) + " " + number(y) + " " + number(z);
}
} // namespace

std::recursive_mutex& kaImageMetaData::lock() const {
    return osg::XMPToolkit::mutex();
}

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
    std::lock_guard<std::recursive_mutex> guard(lock());
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
    std::lock_guard<std::recursive_mutex> guard(lock());
    return _hasImageSettings;
}

kaImageMetaData::ImageSettings kaImageMetaData::getFileOutputImageSettings() const {
    std::lock_guard<std::recursive_mutex> guard(lock());
    return _imageSettings;
}

void kaImageMetaData::setFileOutputAnimationSettings(bool sequence, int timeSource, int shot,
                                                     const QString& animationName, int start,
                                                     int stop, int step, int fps) {
    std::lock_guard<std::recursive_mutex> guard(lock());
    _animationSettings = {sequence, timeSource, shot, animationName, start, stop, step, fps};
    _hasAnimationSettings = true;
}

bool kaImageMetaData::hasFileOutputAnimationSettings() const {
    std::lock_guard<std::recursive_mutex> guard(lock());
    return _hasAnimationSettings;
}

bool kaImageMetaData::storeGeneralInformation(const std::string& sceneFileName,
                                              const std::string& applicationVersion) {
    std::lock_guard<std::recursive_mutex> guard(lock());
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
    std::lock_guard<std::recursive_mutex> guard(lock());
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
    std::lock_guard<std::recursive_mutex> guard(lock());
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

bool kaImageMetaData::storeCamera(const osg::NodePtr& cameraNode) {
    std::lock_guard<std::recursive_mutex> guard(lock());
    if (!cameraNode)
        return false;
    const osg::Matrix world = cameraNode->getToWorld();
    const osg::Pnt3f position = world.transformPoint({0.0f, 0.0f, 0.0f});
    const osg::Vec3f direction = osg::normalize(world.transformVector({0.0f, 0.0f, -1.0f}));
    const osg::Vec3f up = osg::normalize(world.transformVector({0.0f, 1.0f, 0.0f}));
    bool ok = _record->set("CameraName", cameraNode->getName());
    ok = _record->set("CameraPosition", triple(position.x, position.y, position.z)) && ok;
    ok = _record->set("CameraDirection", triple(direction.x, direction.y, direction.z)) && ok;
    ok = _record->set("CameraUp", triple(up.x, up.y, up.z)) && ok;
    if (auto* camera = dynamic_cast<const osg::CameraCore*>(cameraNode->getCore().get())) {
        ok = _record->set("CameraFieldOfView", camera->getFov()) && ok;
        ok = _record->set("CameraNear", camera->getNear()) && ok;
        ok = _record->set("CameraFar", camera->getFar()) && ok;
    }
    return ok;
}

bool kaImageMetaData::storeNodesVisibility(const std::vector<osg::NodePtr>& nodes) {
    std::lock_guard<std::recursive_mutex> guard(lock());
    std::vector<std::string> items;
    for (const osg::NodePtr& node : nodes)
        if (node && !node->getName().empty())
            items.push_back(node->getName() + "=" + (node->getActive() ? "1" : "0"));
    return _record->setList("NodeVisibility", items);
}

bool kaImageMetaData::storeSwitchNodesChoice(const std::vector<osg::NodePtr>& nodes) {
    std::lock_guard<std::recursive_mutex> guard(lock());
    std::vector<std::string> items;
    for (const osg::NodePtr& node : nodes)
        if (node && !node->getName().empty())
            if (auto* choice = dynamic_cast<const osg::Switch*>(node->getCore().get()))
                items.push_back(node->getName() + "=" + std::to_string(choice->getChoice()));
    return _record->setList("SwitchChoices", items);
}

bool kaImageMetaData::storeRaytracingSettings(const osg::StringAttributeMapPtr& settings) {
    std::lock_guard<std::recursive_mutex> guard(lock());
    if (!settings)
        return false;
    std::vector<std::string> items;
    for (const auto& [key, value] : settings->getAttributes())
        items.push_back(key + "=" + value);
    return _record->setList("RaytracingSettings", items);
}

void kaImageMetaData::setFileOutputRenderPasses(const std::vector<std::string>& passNames) {
    std::lock_guard<std::recursive_mutex> guard(lock());
    _renderPasses = passNames;
}

bool kaImageMetaData::storeFileOutputRenderPasses() {
    std::lock_guard<std::recursive_mutex> guard(lock());
    return _record->setList("RenderPasses", _renderPasses);
}

bool kaImageMetaData::storeSwitchMaterialsChoice() {
    std::lock_guard<std::recursive_mutex> guard(lock());
    std::vector<std::string> items;
    for (const osg::SwitchMaterialPtr& material :
         osg::FieldContainerFactory::the().getContainersOfType<osg::SwitchMaterial>())
        if (!material->getName().empty())
            items.push_back(material->getName() + "=" + std::to_string(material->getChoice()));
    return _record->setList("SwitchMaterialChoices", items);
}

bool kaImageMetaData::getString(std::string& text) const {
    std::lock_guard<std::recursive_mutex> guard(lock());
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
    std::lock_guard<std::recursive_mutex> guard(lock());
    ++_resetCount;
    _record = std::make_unique<Record>();
    if (all) {
        _imageSettings = ImageSettings();
        _hasImageSettings = false;
        _animationSettings = AnimationSettings();
        _hasAnimationSettings = false;
        _renderPasses.clear();
    }
}

unsigned kaImageMetaData::getResetCount() const {
    std::lock_guard<std::recursive_mutex> guard(lock());
    return _resetCount;
}
