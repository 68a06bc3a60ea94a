#include "kaClusterSceneCodec.h"

#include "OSGGeometry.h"
#include "OSGImage.h"
#include "OSGMaterial.h"
#include "OSGNodeCores.h"
#include "OSGSceneEffects.h"

#include <QDataStream>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr quint32 kMagic = 0x4b415343; // "KASC"
constexpr quint32 kVersion = 2;
constexpr osg::BitVector kEverything = ~osg::BitVector(0);

// Raw copies of plain arrays: meshes of millions of triangles go through as one block each.
template <typename T>
void writeArray(QDataStream& out, const std::vector<T>& values) {
    out << quint64(values.size());
    out.writeRawData(reinterpret_cast<const char*>(values.data()), int(values.size() * sizeof(T)));
}

template <typename T>
bool readArray(QDataStream& in, std::vector<T>& values) {
    quint64 count = 0;
    in >> count;
    if (in.status() != QDataStream::Ok || count > (quint64(1) << 34) / sizeof(T))
        return false;
    values.resize(size_t(count));
    const int bytes = int(count * sizeof(T));
    return in.readRawData(reinterpret_cast<char*>(values.data()), bytes) == bytes;
}

void writeColor(QDataStream& out, const osg::Color3f& c) {
    out << c.r << c.g << c.b;
}
osg::Color3f readColor(QDataStream& in) {
    osg::Color3f c;
    in >> c.r >> c.g >> c.b;
    return c;
}

uint32_t idOf(const osg::FieldContainer* container) {
    return container ? container->getId() : 0;
}

} // namespace

class kaClusterSceneEncoder::Writer {
public:
    Writer()
        : stream(&bytes, QIODevice::WriteOnly) {
        stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
        stream << kMagic << kVersion;
    }
    QByteArray bytes;
    QDataStream stream;
};

QByteArray kaClusterSceneEncoder::encodeScene(const osg::UberViewport& viewport) {
    _sent.clear();
    Writer out;
    ensure(out, viewport.getRoot().get());
    ensure(out, viewport.getBackground().get());
    return finish(out, viewport);
}

QByteArray
kaClusterSceneEncoder::encodeChanges(const osg::UberViewport& viewport,
                                     const std::vector<osg::ChangeList::Entry>& changes) {
    Writer out;
    // One record per object, with the masks of all its changes.
    std::map<uint32_t, std::pair<const osg::FieldContainer*, osg::BitVector>> changed;
    for (const osg::ChangeList::Entry& entry : changes)
        if (entry.container && _sent.count(entry.container->getId())) {
            auto& slot = changed[entry.container->getId()];
            slot.first = entry.container.get();
            slot.second |= entry.mask;
        }
    for (const auto& [id, change] : changed)
        write(out, change.first, change.second);
    ensure(out, viewport.getRoot().get());
    ensure(out, viewport.getBackground().get());
    return finish(out, viewport);
}

QByteArray kaClusterSceneEncoder::finish(Writer& out, const osg::UberViewport& viewport) {
    out.stream << quint32(0) << idOf(viewport.getRoot().get())
               << idOf(viewport.getBackground().get());
    return out.bytes;
}

void kaClusterSceneEncoder::ensure(Writer& out, const osg::FieldContainer* container) {
    if (!container || _sent.count(container->getId()))
        return;
    write(out, container, kEverything);
}

// Objects a record refers to are written before it, so that the nodes can link them at once.
void kaClusterSceneEncoder::write(Writer& out, const osg::FieldContainer* container,
                                  osg::BitVector mask) {
    _sent.insert(container->getId());
    QDataStream& s = out.stream;
    if (auto* node = dynamic_cast<const osg::Node*>(container)) {
        ensure(out, node->getCore().get());
        for (size_t i = 0; i < node->getNChildren(); ++i)
            ensure(out, node->getChild(i).get());
        s << container->getId() << QByteArray("Node") << quint64(mask);
        s << idOf(node->getCore().get()) << QByteArray::fromStdString(node->getName())
          << node->getActive() << quint32(node->getNChildren());
        for (size_t i = 0; i < node->getNChildren(); ++i)
            s << node->getChild(i)->getId();
    } else if (auto* transform = dynamic_cast<const osg::Transform*>(container)) {
        s << container->getId() << QByteArray("Transform") << quint64(mask);
        for (const auto& row : transform->getMatrix().m)
            for (float v : row)
                s << v;
    } else if (auto* choice = dynamic_cast<const osg::Switch*>(container)) {
        s << container->getId() << QByteArray("Switch") << quint64(mask)
          << qint32(choice->getChoice());
    } else if (auto* geometry = dynamic_cast<const osg::Geometry*>(container)) {
        ensure(out, geometry->getMaterial().get());
        const bool mesh = (mask & osg::Geometry::MeshFieldMask) != 0;
        s << container->getId() << QByteArray("Geometry") << quint64(mask)
          << idOf(geometry->getMaterial().get()) << mesh;
        if (mesh) {
            const osg::Geometry::Mesh& m = geometry->getMesh();
            writeArray(s, m.positions);
            writeArray(s, m.normals);
            writeArray(s, m.texCoords);
            writeArray(s, m.colors);
            writeArray(s, m.indices);
        }
    } else if (auto* light = dynamic_cast<const osg::Light*>(container)) {
        s << container->getId() << QByteArray(light->getTypeName()) << quint64(mask);
        writeColor(s, light->getColor());
        s << light->getIntensity();
        auto* point = dynamic_cast<const osg::PointLight*>(light);
        s << (point ? point->getInnerConeAngle() : float(M_PI))
          << (point ? point->getOuterConeAngle() : float(M_PI));
    } else if (auto* fog = dynamic_cast<const osg::Fog*>(container)) {
        s << container->getId() << QByteArray("Fog") << quint64(mask);
        writeColor(s, fog->getColor());
        s << fog->getDensity();
    } else if (auto* flare = dynamic_cast<const osg::LensFlare*>(container)) {
        s << container->getId() << QByteArray("LensFlare") << quint64(mask) << flare->getIntensity()
          << flare->getSize();
    } else if (auto* plate = dynamic_cast<const osg::ImagePlate*>(container)) {
        ensure(out, plate->getImage().get());
        s << container->getId() << QByteArray("ImagePlate") << quint64(mask)
          << idOf(plate->getImage().get()) << plate->isFront() << plate->getLeft()
          << plate->getBottom() << plate->getRight() << plate->getTop() << plate->getOpacity();
    } else if (auto* image = dynamic_cast<const osg::Image*>(container)) {
        s << container->getId() << QByteArray("Image") << quint64(mask) << image->getPixelFormat()
          << image->getDataType() << image->getWidth() << image->getHeight()
          << quint64(image->getSize());
        if (image->hasData())
            s.writeRawData(reinterpret_cast<const char*>(image->getData()), int(image->getSize()));
    } else if (auto* material = dynamic_cast<const osg::SimpleMaterial*>(container)) {
        ensure(out, material->baseColorMap.get());
        ensure(out, material->metallicRoughnessMap.get());
        ensure(out, material->emissionMap.get());
        s << container->getId() << QByteArray("SimpleMaterial") << quint64(mask)
          << QByteArray::fromStdString(material->getName());
        writeColor(s, material->baseColor);
        s << material->metallic << material->roughness;
        writeColor(s, material->emission);
        s << material->opacity << material->translucency << idOf(material->baseColorMap.get())
          << qint32(material->wrapU) << qint32(material->wrapV) << qint32(material->alphaMode)
          << material->alphaCutoff << idOf(material->metallicRoughnessMap.get())
          << idOf(material->emissionMap.get());
    } else if (auto* switched = dynamic_cast<const osg::SwitchMaterial*>(container)) {
        for (size_t i = 0; i < switched->getNMaterials(); ++i)
            ensure(out, switched->getMaterial(i).get());
        s << container->getId() << QByteArray("SwitchMaterial") << quint64(mask)
          << QByteArray::fromStdString(switched->getName()) << qint32(switched->getChoice())
          << quint32(switched->getNMaterials());
        for (size_t i = 0; i < switched->getNMaterials(); ++i)
            s << idOf(switched->getMaterial(i).get());
    } else if (auto* solid = dynamic_cast<const osg::SolidBackground*>(container)) {
        s << container->getId() << QByteArray("SolidBackground") << quint64(mask);
        writeColor(s, solid->getColor());
        writeColor(s, solid->getAlphaColor());
        s << solid->getAlpha() << solid->getBackplateMode();
    } else if (auto* gradient = dynamic_cast<const osg::Gradient2Background*>(container)) {
        s << container->getId() << QByteArray("Gradient2Background") << quint64(mask);
        writeColor(s, gradient->getBottomColor());
        writeColor(s, gradient->getTopColor());
        writeColor(s, gradient->getAlphaColor());
        s << gradient->getAlpha() << gradient->getBackplateMode();
    } else {
        // Cores the raytracer does not read (cameras in the scene, animations) only group.
        s << container->getId() << QByteArray("Group") << quint64(mask);
    }
}

class kaClusterSceneDecoder::Reader {
public:
    explicit Reader(const QByteArray& bytes)
        : stream(bytes) {
        stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
    }
    QDataStream stream;
};

osg::FieldContainerPtr kaClusterSceneDecoder::find(uint32_t masterId) const {
    const auto it = _objects.find(masterId);
    return it == _objects.end() ? osg::FieldContainerPtr() : it->second;
}

bool kaClusterSceneDecoder::apply(const QByteArray& message, std::string& error) {
    Reader in(message);
    quint32 magic = 0, version = 0;
    in.stream >> magic >> version;
    if (magic != kMagic || version != kVersion) {
        error = "not a scene message of this version";
        return false;
    }
    return read(in, error);
}

namespace {

template <typename T>
osg::RefPtr<T> existingOr(const osg::FieldContainerPtr& found, osg::RefPtr<T> (*make)()) {
    if (auto* typed = dynamic_cast<T*>(found.get()))
        return osg::RefPtr<T>(typed);
    return make();
}

} // namespace

bool kaClusterSceneDecoder::read(Reader& in, std::string& error) {
    QDataStream& s = in.stream;
    for (;;) {
        quint32 id = 0;
        s >> id;
        if (s.status() != QDataStream::Ok) {
            error = "the scene message ends early";
            return false;
        }
        if (id == 0)
            break;
        QByteArray type;
        quint64 mask = 0;
        s >> type >> mask;
        const osg::FieldContainerPtr found = find(id);
        osg::FieldContainerPtr made;
        if (type == "Node") {
            quint32 coreId = 0, children = 0;
            QByteArray name;
            bool active = true;
            s >> coreId >> name >> active >> children;
            osg::NodePtr node = existingOr<osg::Node>(found, [] { return osg::Node::create(); });
            auto core = find(coreId);
            node->setCore(osg::NodeCorePtr(dynamic_cast<osg::NodeCore*>(core.get())));
            node->setName(name.toStdString());
            node->setActive(active);
            while (node->getNChildren() > 0)
                node->subChild(node->getChild(node->getNChildren() - 1));
            for (quint32 i = 0; i < children; ++i) {
                quint32 childId = 0;
                s >> childId;
                if (auto* child = dynamic_cast<osg::Node*>(find(childId).get()))
                    node->addChild(osg::NodePtr(child));
            }
            made = node;
        } else if (type == "Transform") {
            osg::Matrix m;
            for (auto& row : m.m)
                for (float& v : row)
                    s >> v;
            auto transform =
                existingOr<osg::Transform>(found, [] { return osg::Transform::create(); });
            transform->setMatrix(m);
            made = transform;
        } else if (type == "Switch") {
            qint32 choice = 0;
            s >> choice;
            auto node = existingOr<osg::Switch>(found, [] { return osg::Switch::create(); });
            node->setChoice(choice);
            made = node;
        } else if (type == "Geometry") {
            quint32 materialId = 0;
            bool hasMesh = false;
            s >> materialId >> hasMesh;
            auto geometry =
                existingOr<osg::Geometry>(found, [] { return osg::Geometry::create(); });
            if (hasMesh) {
                osg::Geometry::Mesh mesh;
                if (!readArray(s, mesh.positions) || !readArray(s, mesh.normals) ||
                    !readArray(s, mesh.texCoords) || !readArray(s, mesh.colors) ||
                    !readArray(s, mesh.indices)) {
                    error = "a mesh of the scene message is cut short";
                    return false;
                }
                geometry->setMesh(std::move(mesh));
            }
            geometry->setMaterial(
                osg::MaterialPtr(dynamic_cast<osg::Material*>(find(materialId).get())));
            made = geometry;
        } else if (type == "DirectionalLight" || type == "PointLight" ||
                   type == "EnvironmentLight") {
            const osg::Color3f color = readColor(s);
            float intensity = 1, inner = float(M_PI), outer = float(M_PI);
            s >> intensity >> inner >> outer;
            osg::LightPtr light(dynamic_cast<osg::Light*>(found.get()));
            if (!light || type != light->getTypeName()) {
                if (type == "DirectionalLight")
                    light = osg::DirectionalLight::create();
                else if (type == "PointLight")
                    light = osg::PointLight::create();
                else
                    light = osg::EnvironmentLight::create();
            }
            light->setColor(color);
            light->setIntensity(intensity);
            if (auto* point = dynamic_cast<osg::PointLight*>(light.get()))
                point->setCone(inner, outer);
            made = light;
        } else if (type == "Fog") {
            const osg::Color3f color = readColor(s);
            float density = 0;
            s >> density;
            auto fog = existingOr<osg::Fog>(found, [] { return osg::Fog::create(); });
            fog->setColor(color);
            fog->setDensity(density);
            made = fog;
        } else if (type == "LensFlare") {
            float intensity = 0, size = 0;
            s >> intensity >> size;
            auto flare = existingOr<osg::LensFlare>(found, [] { return osg::LensFlare::create(); });
            flare->setIntensity(intensity);
            flare->setSize(size);
            made = flare;
        } else if (type == "ImagePlate") {
            quint32 imageId = 0;
            bool front = false;
            float left = 0, bottom = 0, right = 1, top = 1, opacity = 1;
            s >> imageId >> front >> left >> bottom >> right >> top >> opacity;
            osg::ImagePtr image(dynamic_cast<osg::Image*>(find(imageId).get()));
            auto plate = existingOr<osg::ImagePlate>(
                found, [] { return osg::ImagePlate::create(osg::ImagePtr(), false); });
            plate->setImage(image);
            plate->setFront(front);
            plate->setRect(left, bottom, right, top);
            plate->setOpacity(opacity);
            made = plate;
        } else if (type == "Image") {
            quint32 format = 0;
            qint32 dataType = 0, width = 0, height = 0;
            quint64 size = 0;
            s >> format >> dataType >> width >> height >> size;
            auto image = existingOr<osg::Image>(found, [] { return osg::Image::create(); });
            std::vector<uint8_t> pixels{};
            pixels.resize(size_t(size));
            if (size > 0 &&
                s.readRawData(reinterpret_cast<char*>(pixels.data()), int(size)) != int(size)) {
                error = "an image of the scene message is cut short";
                return false;
            }
            image->set(format, width, height, 1, 1, 1, 0.0, size ? pixels.data() : nullptr,
                       dataType, size > 0);
            made = image;
        } else if (type == "SimpleMaterial") {
            QByteArray name;
            s >> name;
            auto material = existingOr<osg::SimpleMaterial>(
                found, [] { return osg::SimpleMaterial::create(); });
            material->setName(name.toStdString());
            material->baseColor = readColor(s);
            s >> material->metallic >> material->roughness;
            material->emission = readColor(s);
            quint32 mapId = 0;
            qint32 wrapU = 0, wrapV = 0, alphaMode = 0;
            s >> material->opacity >> material->translucency >> mapId >> wrapU >> wrapV >>
                alphaMode >> material->alphaCutoff;
            quint32 metallicRoughnessId = 0, emissionId = 0;
            s >> metallicRoughnessId >> emissionId;
            material->metallicRoughnessMap =
                osg::ImagePtr(dynamic_cast<osg::Image*>(find(metallicRoughnessId).get()));
            material->emissionMap =
                osg::ImagePtr(dynamic_cast<osg::Image*>(find(emissionId).get()));
            material->alphaMode = osg::AlphaMode(std::min(std::max(alphaMode, 0), 2));
            material->baseColorMap = osg::ImagePtr(dynamic_cast<osg::Image*>(find(mapId).get()));
            material->wrapU = osg::TextureWrap(std::min(std::max(wrapU, 0), 2));
            material->wrapV = osg::TextureWrap(std::min(std::max(wrapV, 0), 2));
            made = material;
        } else if (type == "SwitchMaterial") {
            QByteArray name;
            qint32 choice = -1;
            quint32 count = 0;
            s >> name >> choice >> count;
            // The list is rebuilt whole: a switch material is made anew when its list changed.
            osg::SwitchMaterialPtr material = osg::SwitchMaterial::create(name.toStdString());
            for (quint32 i = 0; i < count; ++i) {
                quint32 materialId = 0;
                s >> materialId;
                material->addMaterial(
                    osg::MaterialPtr(dynamic_cast<osg::Material*>(find(materialId).get())));
            }
            material->setChoice(choice);
            made = material;
        } else if (type == "SolidBackground") {
            const osg::Color3f color = readColor(s), alphaColor = readColor(s);
            float alpha = 1;
            bool backplate = false;
            s >> alpha >> backplate;
            auto background = existingOr<osg::SolidBackground>(
                found, [] { return osg::SolidBackground::create(); });
            background->setColor(color);
            background->setAlphaColor(alphaColor, alpha);
            background->setBackplateMode(backplate);
            made = background;
        } else if (type == "Gradient2Background") {
            const osg::Color3f bottom = readColor(s), top = readColor(s), alphaColor = readColor(s);
            float alpha = 1;
            bool backplate = false;
            s >> alpha >> backplate;
            auto background = existingOr<osg::Gradient2Background>(
                found, [] { return osg::Gradient2Background::create(); });
            background->setColors(bottom, top);
            background->setAlphaColor(alphaColor);
            background->setAlpha(alpha);
            background->setBackplateMode(backplate);
            made = background;
        } else if (type == "Group") {
            made = existingOr<osg::Group>(found, [] { return osg::Group::create(); });
        } else {
            error = "unknown object type '" + type.toStdString() + "' in the scene message";
            return false;
        }
        if (s.status() != QDataStream::Ok) {
            error = "the scene message ends early";
            return false;
        }
        _objects[id] = made;
    }
    quint32 rootId = 0, backgroundId = 0;
    s >> rootId >> backgroundId;
    if (s.status() != QDataStream::Ok) {
        error = "the scene message ends early";
        return false;
    }
    _root = osg::NodePtr(dynamic_cast<osg::Node*>(find(rootId).get()));
    _background = osg::BackgroundPtr(dynamic_cast<osg::Background*>(find(backgroundId).get()));
    return true;
}
