#pragma once

#include "OSGNode.h"
#include "OSGStringAttributeMap.h"
#include "OSGXMPToolkit.h"

#include <QString>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// The metadata record that exports put into image files, as an XMP packet: general
// information (Dublin Core and XMP basics: source scene, creator tool, date) and the export's
// settings in this application's own namespace (kaExport). The store...() operations add
// parts to the current record and return whether they stored anything; getString() gives the
// packet. reset(false) forgets the collected parts after an image; reset(true) also forgets the
// export settings set with setFileOutput...Settings().
//
// Thread-safe; a writer that collects a record and takes its packet holds lock() meanwhile,
// so that parallel image writes don't mix their records.
class kaImageMetaData {
public:
    // Namespace of the export settings in the packet.
    static constexpr const char* kNamespace = osg::XMPToolkit::kExportNamespace;
    static constexpr const char* kPrefix = osg::XMPToolkit::kExportPrefix;

    kaImageMetaData();
    ~kaImageMetaData();

    // Whether XMP packets can be made (the XMP toolkit started).
    static bool isXMPSupported();
    // The dotted, lower-case extensions of the file types that embed XMP: ".exr", ".jpeg",
    // ".jpg", ".png", ".tif", ".tiff".
    static const std::set<std::string>& getImageExtensionsWithXMPSupport();
    // The image attachment under which the packet travels to the file types.
    static const char* getAttachmentKey();

    struct ImageSettings {
        float width = 0.0f;
        float height = 0.0f;
        float dpi = 0.0f;
        int superSampling = 0;
        bool tonemapHDR = false;
        bool alpha = false;
        bool premultiplied = false;
        float alphaColor[3] = {0.0f, 0.0f, 0.0f};
        int iccProfile = 0;
        int metaDataFlags = 0;
    };
    struct AnimationSettings {
        bool sequence = false;
        int timeSource = 0; // 1: the scene's timeline, 0: one animation node
        int shot = 0;
        QString animationName;
        int start = 0;
        int stop = 0;
        int step = 1;
        int fps = 0;
    };

    void setFileOutputImageSettings(float width, float height, float dpi, int superSampling,
                                    bool tonemapHDR, bool alpha, bool premultiplied,
                                    const float* alphaColor, int iccProfile, int metaDataFlags);
    bool hasFileOutputImageSettings() const;
    ImageSettings getFileOutputImageSettings() const;
    void setFileOutputAnimationSettings(bool sequence, int timeSource, int shot,
                                        const QString& animationName, int start, int stop, int step,
                                        int fps);
    bool hasFileOutputAnimationSettings() const;

    // Scene file name and application version, as source and creator tool, with the date.
    bool storeGeneralInformation(const std::string& sceneFileName,
                                 const std::string& applicationVersion);
    // The settings given to setFileOutputImageSettings; false when none were given.
    bool storeFileOutputImageSettings();
    // The settings given to setFileOutputAnimationSettings, with the frame being written.
    bool storeFileOutputAnimationSettings(int currentFrame);

    // The camera node: name, position, viewing direction and up vector in world space, and
    // field of view, near and far planes when its core is a camera.
    bool storeCamera(const osg::NodePtr& cameraNode);
    // "name=1" (shown) or "name=0" for every named node.
    bool storeNodesVisibility(const std::vector<osg::NodePtr>& nodes);
    // "name=choice" for every named node whose core is a switch.
    bool storeSwitchNodesChoice(const std::vector<osg::NodePtr>& nodes);
    // "key=value" for every raytracing setting.
    bool storeRaytracingSettings(const osg::StringAttributeMapPtr& settings);
    // The render passes the export writes, by name, as given to setFileOutputRenderPasses.
    void setFileOutputRenderPasses(const std::vector<std::string>& passNames);
    bool storeFileOutputRenderPasses();
    // "name=choice" for every switch material in the scene graph.
    bool storeSwitchMaterialsChoice();

    // The packet of the current record; false when XMP is not supported.
    bool getString(std::string& text) const;
    void reset(bool all);
    // How often reset ran, whatever its argument.
    unsigned getResetCount() const;

    // Held around every use of the record; it is the XMP toolkit's own lock (XMPToolkit), as
    // the toolkit must not be entered from two threads at once.
    std::recursive_mutex& lock() const;

private:
    struct Record;
    std::unique_ptr<Record> _record;
    ImageSettings _imageSettings;
    bool _hasImageSettings = false;
    AnimationSettings _animationSettings;
    bool _hasAnimationSettings = false;
    std::vector<std::string> _renderPasses;
    unsigned _resetCount = 0;
};
