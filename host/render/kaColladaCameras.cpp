#include "kaColladaCameras.h"

#include <QFile>
#include <QXmlStreamReader>

#include <vector>

namespace {

// An <orthographic> element's magnifications: half the width and half the height it shows.
struct Magnification {
    float xmag = 0, ymag = 0, aspect = 0;
    float height() const {
        if (ymag > 0)
            return 2 * ymag;
        return xmag > 0 && aspect > 0 ? 2 * xmag / aspect : 0;
    }
};

} // namespace

std::map<std::string, float> kaColladaOrthographicHeights(const QString& fileName) {
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QXmlStreamReader xml(&file);
    std::map<QString, Magnification> cameras; // by the camera's id
    std::map<std::string, QString> placed;    // the camera id each node instances
    std::vector<QString> nodes;               // the names of the open <node> elements
    QString camera;                           // the id of the open <camera>, if any
    bool orthographic = false;
    while (!xml.atEnd()) {
        xml.readNext();
        const QStringRef name = xml.name();
        if (xml.isStartElement()) {
            const QXmlStreamAttributes attributes = xml.attributes();
            if (name == QLatin1String("node")) {
                const QString nodeName = attributes.value("name").toString();
                nodes.push_back(nodeName.isEmpty() ? attributes.value("id").toString() : nodeName);
            } else if (name == QLatin1String("instance_camera") && !nodes.empty()) {
                placed[nodes.back().toStdString()] = attributes.value("url").toString().mid(1);
            } else if (name == QLatin1String("camera")) {
                camera = attributes.value("id").toString();
            } else if (name == QLatin1String("orthographic") && !camera.isEmpty()) {
                orthographic = true;
            } else if (orthographic &&
                       (name == QLatin1String("xmag") || name == QLatin1String("ymag") ||
                        name == QLatin1String("aspect_ratio"))) {
                const float value = xml.readElementText().toFloat();
                Magnification& m = cameras[camera];
                (name == QLatin1String("xmag")   ? m.xmag
                 : name == QLatin1String("ymag") ? m.ymag
                                                 : m.aspect) = value;
            }
        } else if (xml.isEndElement()) {
            if (name == QLatin1String("node") && !nodes.empty())
                nodes.pop_back();
            else if (name == QLatin1String("camera"))
                camera.clear();
            else if (name == QLatin1String("orthographic"))
                orthographic = false;
        }
    }
    std::map<std::string, float> heights;
    for (const auto& [node, id] : placed) {
        auto found = cameras.find(id);
        if (found != cameras.end() && found->second.height() > 0)
            heights[node] = found->second.height();
    }
    return heights;
}
