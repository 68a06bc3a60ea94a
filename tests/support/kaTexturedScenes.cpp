#include "kaTexturedScenes.h"

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace katest {

bool writeQuadrantPicture(const QString& path) {
    constexpr int side = 64;
    std::vector<uint8_t> pixels(size_t(side) * side * 3);
    for (int y = 0; y < side; ++y) // the top row first, as files store it
        for (int x = 0; x < side; ++x) {
            const bool top = y < side / 2, left = x < side / 2;
            uint8_t* p = &pixels[(size_t(y) * side + size_t(x)) * 3];
            const uint8_t rgb[3] = {uint8_t(top && left     ? 255
                                            : !top && !left ? 128
                                                            : 0),
                                    uint8_t(top && !left    ? 255
                                            : !top && !left ? 128
                                                            : 0),
                                    uint8_t(!top && left    ? 255
                                            : !top && !left ? 128
                                                            : 0)};
            std::memcpy(p, rgb, 3);
        }
    auto out = OIIO::ImageOutput::create(path.toStdString());
    OIIO::ImageSpec spec(side, side, 3, OIIO::TypeDesc::UINT8);
    spec.attribute("Compression", "jpeg:100");
    return out && out->open(path.toStdString(), spec) &&
           out->write_image(OIIO::TypeDesc::UINT8, pixels.data()) && out->close();
}

bool writeFlatPicture(const QString& path, int red, int green, int blue) {
    const uint8_t rgb[3] = {uint8_t(red), uint8_t(green), uint8_t(blue)};
    std::vector<uint8_t> pixels;
    for (int i = 0; i < 16; ++i)
        pixels.insert(pixels.end(), rgb, rgb + 3);
    auto out = OIIO::ImageOutput::create(path.toStdString());
    OIIO::ImageSpec spec(4, 4, 3, OIIO::TypeDesc::UINT8);
    return out && out->open(path.toStdString(), spec) &&
           out->write_image(OIIO::TypeDesc::UINT8, pixels.data()) && out->close();
}

bool writeHalvesPicture(const QString& path) {
    constexpr int side = 64;
    std::vector<uint8_t> pixels(size_t(side) * side * 4);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            uint8_t* p = &pixels[(size_t(y) * side + size_t(x)) * 4];
            const uint8_t rgba[4] = {0, 255, 0, uint8_t(x < side / 2 ? 255 : 64)};
            std::memcpy(p, rgba, 4);
        }
    auto out = OIIO::ImageOutput::create(path.toStdString());
    OIIO::ImageSpec spec(side, side, 4, OIIO::TypeDesc::UINT8);
    spec.attribute("oiio:UnassociatedAlpha", 1);
    return out && out->open(path.toStdString(), spec) &&
           out->write_image(OIIO::TypeDesc::UINT8, pixels.data()) && out->close();
}

namespace {

void append(QByteArray& buffer, const void* data, size_t size) {
    buffer.append(static_cast<const char*>(data), int(size));
}

constexpr int kGeometryBytes = 172;

// The square's one buffer: positions, normals, both coordinate sets, indices, then the
// embedded picture (padded to four bytes).
QByteArray squareBuffer(const TexturedSquare& square) {
    const float positions[12] = {-1, -1, 0, 1, -1, 0, 1, 1, 0, -1, 1, 0};
    const float normals[12] = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1};
    // glTF's coordinates start at the picture's top-left corner.
    const float s = square.uvScale;
    const float uvs[8] = {0, s, s, s, s, 0, 0, 0};
    const float zeros[8] = {};
    const uint16_t indices[6] = {0, 1, 2, 0, 2, 3};
    QByteArray buffer;
    append(buffer, positions, sizeof positions);
    append(buffer, normals, sizeof normals);
    append(buffer, square.texCoord == 0 ? uvs : zeros, sizeof uvs);
    append(buffer, square.texCoord == 1 ? uvs : zeros, sizeof uvs);
    append(buffer, indices, sizeof indices);
    buffer.append(square.embeddedPng);
    while (buffer.size() % 4)
        buffer.append('\0');
    return buffer;
}

} // namespace

QByteArray texturedSquareGltf(const TexturedSquare& square) {
    const QByteArray buffer = squareBuffer(square);
    const bool inside = !square.embeddedPng.isEmpty();
    const QByteArray bufferJson =
        inside ? QByteArray(R"({"byteLength": )") + QByteArray::number(buffer.size()) + "}"
               : QByteArray(R"({"byteLength": )") + QByteArray::number(buffer.size()) +
                     R"(, "uri": "data:application/octet-stream;base64,)" + buffer.toBase64() +
                     R"("})";
    const QByteArray imageJson = inside
                                     ? QByteArray(R"({"bufferView": 5, "mimeType": "image/png"})")
                                     : QByteArray(R"({"uri": ")") + square.imageUri + R"("})";
    const QByteArray pictureView =
        inside
            ? QByteArray(R"(, {"buffer": 0, "byteOffset": )") + QByteArray::number(kGeometryBytes) +
                  R"(, "byteLength": )" + QByteArray::number(square.embeddedPng.size()) + "}"
            : QByteArray();
    const QByteArray base = QByteArray::number(double(square.baseColor));
    const QByteArray alpha = square.alphaMode.isEmpty()
                                 ? QByteArray()
                                 : QByteArray(R"(, "alphaMode": ")") + square.alphaMode +
                                       R"(", "alphaCutoff": )" +
                                       QByteArray::number(double(square.alphaCutoff));
    const QByteArray texture =
        square.textured ? QByteArray(R"(, "baseColorTexture": {"index": 0, "texCoord": )") +
                              QByteArray::number(square.texCoord) + "}"
                        : QByteArray();
    // The other pictures follow the base colour's, a texture each.
    QByteArray images = imageJson, textures = R"({"source": 0, "sampler": 0})", otherMaps, emissive;
    auto addPicture = [&](const QByteArray& uri) {
        const int index = textures.count("source");
        images += QByteArray(R"(, {"uri": ")") + uri + R"("})";
        textures +=
            QByteArray(R"(, {"source": )") + QByteArray::number(index) + R"(, "sampler": 0})";
        return QByteArray(R"({"index": )") + QByteArray::number(index) + R"(, "texCoord": )" +
               QByteArray::number(square.texCoord) + "}";
    };
    if (!square.metallicRoughnessUri.isEmpty())
        otherMaps = ", \"metallicRoughnessTexture\": " + addPicture(square.metallicRoughnessUri);
    const QByteArray glow = QByteArray::number(double(square.emissive));
    if (square.emissive > 0)
        emissive = ", \"emissiveFactor\": [" + glow + ", " + glow + ", " + glow + "]";
    if (!square.emissiveUri.isEmpty())
        emissive += ", \"emissiveTexture\": " + addPicture(square.emissiveUri);
    return QByteArray(R"({
  "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
  "nodes": [{"name": "Canvas", "mesh": 0}],
  "meshes": [{"name": "Plane", "primitives": [{"attributes": {"POSITION": 0, "NORMAL": 1,
              "TEXCOORD_0": 2, "TEXCOORD_1": 3}, "indices": 4, "material": 0}]}],
  "materials": [{"name": "Painted", "pbrMetallicRoughness": {"baseColorFactor": [)") +
           base + ", " + base + ", " + base + R"(, 1],
                 "metallicFactor": )" +
           QByteArray::number(double(square.metallic)) + R"(, "roughnessFactor": )" +
           QByteArray::number(double(square.roughness)) + texture + otherMaps + "}" + alpha +
           emissive + R"(}],
  "textures": [)" +
           textures + R"(],
  "samplers": [{"magFilter": 9729, "minFilter": 9987, "wrapS": )" +
           QByteArray::number(square.wrapS) + R"(, "wrapT": )" + QByteArray::number(square.wrapT) +
           R"(}],
  "images": [)" +
           images + R"(],
  "buffers": [)" +
           bufferJson + R"(],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 48}, {"buffer": 0, "byteOffset": 48, "byteLength": 48},
                  {"buffer": 0, "byteOffset": 96, "byteLength": 32}, {"buffer": 0, "byteOffset": 128, "byteLength": 32},
                  {"buffer": 0, "byteOffset": 160, "byteLength": 12})" +
           pictureView + R"(],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 4, "type": "VEC3", "min": [-1, -1, 0], "max": [1, 1, 0]},
                {"bufferView": 1, "componentType": 5126, "count": 4, "type": "VEC3"},
                {"bufferView": 2, "componentType": 5126, "count": 4, "type": "VEC2"},
                {"bufferView": 3, "componentType": 5126, "count": 4, "type": "VEC2"},
                {"bufferView": 4, "componentType": 5123, "count": 6, "type": "SCALAR"}]
}
)";
}

QByteArray texturedSquareGlb(TexturedSquare square, const QByteArray& png) {
    square.embeddedPng = png;
    QByteArray json = texturedSquareGltf(square);
    while (json.size() % 4)
        json.append(' ');
    // The binary chunk is the one buffer.
    const QByteArray bin = squareBuffer(square);
    auto word = [](QByteArray& out, uint32_t value) { append(out, &value, 4); };
    QByteArray glb("glTF");
    word(glb, 2);
    word(glb, uint32_t(12 + 8 + json.size() + 8 + bin.size()));
    word(glb, uint32_t(json.size()));
    glb.append("JSON");
    glb.append(json);
    word(glb, uint32_t(bin.size()));
    glb.append("BIN", 4);
    glb.append(bin);
    return glb;
}

QByteArray texturedSquareObj() {
    // OBJ's coordinates start at the picture's bottom-left corner.
    return "mtllib square.mtl\n"
           "o Canvas\n"
           "v -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\n"
           "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
           "vn 0 0 1\n"
           "usemtl Painted\n"
           "f 1/1/1 2/2/1 3/3/1\n"
           "f 1/1/1 3/3/1 4/4/1\n";
}

QByteArray texturedSquareMtl(const QByteArray& picture) {
    return "newmtl Painted\nKd 1 1 1\nKs 0 0 0\nmap_Kd " + picture + "\n";
}

} // namespace katest
