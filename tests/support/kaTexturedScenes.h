#pragma once

#include <QByteArray>
#include <QString>

// Scene files with a base-colour picture, as authoring tools export them, for the tests of
// textures in both renderers.
namespace katest {

// The quadrant picture, 64 x 64 as it is seen: top-left red, top-right green, bottom-left
// blue, bottom-right the sRGB grey 128 (linear 0.2159). Written in the format of the file's
// suffix (png, jpg); false when it can't be.
bool writeQuadrantPicture(const QString& path);
constexpr float kQuadrantGreyLinear = 0.21586f;

// A 4 x 4 picture of one colour (8-bit values), as PNG.
bool writeFlatPicture(const QString& path, int red, int green, int blue);

// The halves picture, 64 x 64 RGBA PNG: green, opaque on its left half and of alpha 0.25 on
// its right half.
bool writeHalvesPicture(const QString& path);

// A 2 x 2 square in the XY plane facing +Z, centred at the origin, its material "Painted"
// (white base colour, not metallic, fully rough) showing the picture upright from the front:
// the picture's top-left corner at the square's (-1, 1).
struct TexturedSquare {
    QByteArray imageUri = "quadrants.png"; // a file beside the scene or a data URI
    QByteArray embeddedPng; // when given, the picture in the binary buffer instead (for glb)
    int texCoord = 0;       // the coordinate set the material reads; the other holds zeros
    // glTF sampler wrap modes: 10497 repeat, 33071 clamp to edge, 33648 mirrored repeat.
    int wrapS = 10497, wrapT = 10497;
    float uvScale = 1; // the coordinates run 0..uvScale across the square
    bool textured = true;
    float baseColor = 1;  // the base colour factor, grey
    QByteArray alphaMode; // OPAQUE, MASK or BLEND; left out when empty
    float alphaCutoff = 0.5f;
    float metallic = 0, roughness = 1;
    QByteArray metallicRoughnessUri; // a metallic-roughness picture, when given
    float emissive = 0;              // the emissive factor, grey
    QByteArray emissiveUri;          // an emissive picture, when given
};
// As a .gltf file (text, buffers as data URIs) or, with 'embeddedPng', as the parts of a .glb.
QByteArray texturedSquareGltf(const TexturedSquare& square);
// The same as a binary .glb file, the picture inside it.
QByteArray texturedSquareGlb(TexturedSquare square, const QByteArray& png);

// The square as an OBJ file with its MTL file "square.mtl", whose map_Kd is 'picture'.
QByteArray texturedSquareObj();
QByteArray texturedSquareMtl(const QByteArray& picture);

} // namespace katest
