#include "kaGLSceneRenderer.h"

#include "kaDefaultLights.h"
#include "kaExposure.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaGLMeshChunks.h"
#include "kaGLPlatform.h"
#include "kaPixelEncoder.h"

#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <type_traits>

namespace {

const char* const kSurfaceVertex = R"(#version 450 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec4 color;
layout(location = 3) in vec2 texCoord;
uniform mat4 model;
uniform mat3 normalMatrix;
uniform mat4 viewProjection;
out vec3 worldPosition;
out vec3 worldNormal;
out vec4 vertexColor;
out vec2 uv;
void main() {
    vec4 world = model * vec4(position, 1.0);
    worldPosition = world.xyz;
    worldNormal = normalMatrix * normal;
    vertexColor = color;
    uv = texCoord;
    gl_Position = viewProjection * world;
}
)";

// Lambert diffuse and normalised Blinn-Phong highlights from the lights, the environment as
// ambient light on diffuse and specular colour, plus emission (which may exceed 1). The second
// output is the blend weight of the colour (the surface's opacity), so that the alpha written
// is the coverage of geometry: 1 on every surface, see-through ones included.
const char* const kSurfaceFragment = R"(
in vec3 worldPosition;
in vec3 worldNormal;
in vec4 vertexColor;
in vec2 uv;
layout(location = 0, index = 0) out vec4 fragColor;
layout(location = 0, index = 1) out vec4 blendWeight;
uniform vec3 baseColor;
uniform float metallic;
uniform float roughness;
uniform vec3 emission;
uniform float opacity;
uniform bool useVertexColor;
// sRGB texels: the sampler returns them linear, filtered after decoding.
uniform bool useBaseColorMap;
uniform sampler2D baseColorMap;
uniform bool useMetallicRoughnessMap; // linear: roughness in green, metallic in blue
uniform sampler2D metallicRoughnessMap;
uniform bool useEmissionMap; // sRGB
uniform sampler2D emissionMap;
uniform int alphaMode; // 0 opaque, 1 cut out below alphaCutoff, 2 blended
uniform float alphaCutoff;
uniform vec3 ambient;
uniform vec3 eye;
// The light counts are constants of each program: loops of a uniform length cost the
// software rasteriser several times the shading itself.
const int directionalCount = DIRECTIONAL_LIGHTS;
uniform vec3 directionalDirection[8];
uniform vec3 directionalColor[8];
const int pointCount = POINT_LIGHTS;
uniform vec3 pointPosition[8];
uniform vec3 pointColor[8];
// Spot cones: the axis, and the cosines of the inner and outer angles (-1, -1: no cone).
uniform vec3 pointDirection[8];
uniform vec2 pointCone[8];
void main() {
    vec3 n = normalize(worldNormal);
    if (!gl_FrontFacing)
        n = -n;
    vec3 albedo = useVertexColor ? baseColor * vertexColor.rgb : baseColor;
    float alpha = opacity;
#ifdef BASE_COLOR_MAPS
    if (useBaseColorMap) {
        vec4 texel = texture(baseColorMap, uv);
        albedo *= texel.rgb;
        alpha *= texel.a;
    }
#endif
#ifdef CUT_OUT
    if (alphaMode == 1 && alpha < alphaCutoff)
        discard;
#endif
    float coverage = alphaMode == 2 ? alpha : 1.0;
    float metal = metallic, rough = roughness;
#ifdef METALLIC_ROUGHNESS_MAPS
    if (useMetallicRoughnessMap) {
        vec4 metalRough = texture(metallicRoughnessMap, uv);
        rough *= metalRough.g;
        metal *= metalRough.b;
    }
#endif
    vec3 glow = emission;
#ifdef EMISSION_MAPS
    if (useEmissionMap)
        glow *= texture(emissionMap, uv).rgb;
#endif
    vec3 diffuse = albedo * (1.0 - metal);
    vec3 specular = mix(vec3(0.04), albedo, metal);
    float shininess = max(2.0 / max(pow(rough, 4.0), 1e-4) - 2.0, 1.0);
    vec3 v = normalize(eye - worldPosition);
    // The environment lights diffuse surfaces and is mirrored by glossy ones (metals).
    vec3 color = glow + ambient * (diffuse + specular);
    for (int i = 0; i < directionalCount; ++i) {
        vec3 l = -directionalDirection[i];
        float ndl = max(dot(n, l), 0.0);
        float highlight = pow(max(dot(n, normalize(l + v)), 0.0), shininess) * (shininess + 8.0) / 8.0;
        color += directionalColor[i] * ndl * (diffuse + specular * highlight);
    }
    for (int i = 0; i < pointCount; ++i) {
        vec3 toLight = pointPosition[i] - worldPosition;
        float d2 = max(dot(toLight, toLight), 1e-6);
        vec3 l = toLight * inversesqrt(d2);
        float ndl = max(dot(n, l), 0.0);
        float highlight = pow(max(dot(n, normalize(l + v)), 0.0), shininess) * (shininess + 8.0) / 8.0;
        float cone = 1.0;
        if (pointCone[i].y > -1.0) {
            float t = clamp((dot(-l, pointDirection[i]) - pointCone[i].y) /
                                max(pointCone[i].x - pointCone[i].y, 1e-6), 0.0, 1.0);
            cone = t * t;
        }
        color += pointColor[i] * (cone / d2) * ndl * (diffuse + specular * highlight);
    }
#ifdef ENCODED
    fragColor = encodePixel(vec4(color, 1.0), ivec2(gl_FragCoord.xy));
#else
    fragColor = vec4(color, 1.0);
#endif
    blendWeight = vec4(coverage);
}
)";

const char* const kBackgroundVertex = R"(#version 450 core
void main() {
    vec2 corner = vec2((gl_VertexID << 1) & 2, gl_VertexID & 2);
    gl_Position = vec4(corner * 2.0 - 1.0, 1.0, 1.0);
}
)";

const char* const kBackgroundFragment = R"(
out vec4 fragColor;
uniform vec4 bottomColor;
uniform vec4 topColor;
uniform float vOffset;
uniform float vScale;
void main() {
    float v = clamp(vOffset + gl_FragCoord.y * vScale, 0.0, 1.0);
    vec4 c = mix(bottomColor, topColor, v);
    // Premultiplied, as every colour the renderer writes: a transparent background is nothing.
#ifdef ENCODED
    fragColor = encodePixel(vec4(c.rgb * c.a, c.a), ivec2(gl_FragCoord.xy));
#else
    fragColor = vec4(c.rgb * c.a, c.a);
#endif
}
)";

// Adds one sample, or copies the first, from the sample target into the sum.
const char* const kAccumulateFragment = R"(
out vec4 fragColor;
uniform sampler2D sampleColor;
void main() {
    fragColor = texelFetch(sampleColor, ivec2(gl_FragCoord.xy), 0);
}
)";

// A premultiplied linear pixel as an 8-bit image holds it: straight colour where the image has
// alpha (the alpha colour where nothing was drawn), clamped at black, into the colour space's
// primaries, encoded by its curves (sampled at squares, dense near black), dithered by the
// pixel's place in the whole picture, rounded to codes - as the CPU encoder does.
const char* const kEncoding = R"(
uniform bool straight;
uniform vec3 alphaColor;
uniform mat3 toSpace;
uniform sampler2D curves;
uniform int curveSize;
uniform bool dithers;
uniform sampler2D dither;
uniform int ditherSize;
uniform ivec2 pictureOrigin;
float encodeChannel(int channel, float linear) {
    float s = sqrt(clamp(linear, 0.0, 1.0)) * float(curveSize - 1);
    int i = min(int(s), curveSize - 2);
    vec2 ends = texelFetch(curves, ivec2(i, channel), 0).rg;
    float low = ends.x, high = ends.y;
    return low + (high - low) * (s - float(i));
}
vec4 encodePixel(vec4 p, ivec2 pixel) {
    vec3 c = p.rgb;
    if (straight)
        c = p.a > 0.0 ? c / p.a : alphaColor;
    c = toSpace * max(c, vec3(0.0));
    // Lifted by a millionth of full scale, so that white, which float arithmetic may leave a
    // hair below 1, stays white under every dither value.
    vec3 e = vec3(encodeChannel(0, c.r), encodeChannel(1, c.g), encodeChannel(2, c.b));
    e = clamp(e + 1e-6, 0.0, 1.0);
    vec3 d = vec3(0.0);
    if (dithers) {
        // The remainder in float arithmetic, exact for pixel centres: integer division costs a
        // software rasteriser a scalar loop per pixel.
        vec2 centre = vec2(pictureOrigin + pixel) + 0.5;
        float size = float(ditherSize);
        d = texelFetch(dither, ivec2(centre - size * floor(centre / size)), 0).rgb - 0.5;
    }
    vec3 codes = clamp(floor(e * 255.0 + 0.5 + d), 0.0, 255.0);
    float alpha = floor(clamp(p.a, 0.0, 1.0) * 255.0 + 0.5);
    return vec4(codes, alpha) / 255.0;
}
)";

// The mean of the summed samples, encoded.
const char* const kEncodeFragment = R"(
out vec4 fragColor;
uniform sampler2D sum;
uniform float scale;
void main() {
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    fragColor = encodePixel(texelFetch(sum, pixel, 0) * scale, pixel);
}
)";

// A fragment shader's source: the version, the light counts of a surface shader, and the
// encoding when the shader encodes.
// What the surfaces of a render need of the surface program beyond plain colours. Each is
// compiled in only for renders that need it: the software rasteriser runs both sides of a
// branch for every fragment, and discarding costs every fragment the early depth test.
enum SurfaceFeature : int {
    kCutOuts = 1,
    kBaseColorMaps = 2,
    kMetallicRoughnessMaps = 4,
    kEmissionMaps = 8,
    kSurfaceFeatureCount = 16
};

std::string fragmentSource(const char* body, bool encoded, int directional = 0, int point = 0,
                           int features = 0) {
    std::string defines;
    if (features & kCutOuts)
        defines += "#define CUT_OUT\n";
    if (features & kBaseColorMaps)
        defines += "#define BASE_COLOR_MAPS\n";
    if (features & kMetallicRoughnessMaps)
        defines += "#define METALLIC_ROUGHNESS_MAPS\n";
    if (features & kEmissionMaps)
        defines += "#define EMISSION_MAPS\n";
    return std::string("#version 450 core\n") + "#define DIRECTIONAL_LIGHTS " +
           std::to_string(directional) + "\n#define POINT_LIGHTS " + std::to_string(point) + "\n" +
           defines + (encoded ? std::string("#define ENCODED\n") + kEncoding : std::string()) +
           body;
}

// Surfaces drawn over what lies behind them, blended by their coverage.
bool seeThrough(const osg::SimpleMaterial* material) {
    return material && material->alphaMode == osg::AlphaMode::Blend &&
           (material->opacity < 1.0f || material->baseColorMap);
}

// What the surface program needs for 'material'.
int featuresOf(const osg::SimpleMaterial* material) {
    if (!material)
        return 0;
    return (material->alphaMode == osg::AlphaMode::Mask ? kCutOuts : 0) |
           (material->baseColorMap ? kBaseColorMaps : 0) |
           (material->metallicRoughnessMap ? kMetallicRoughnessMaps : 0) |
           (material->emissionMap ? kEmissionMaps : 0);
}

GLuint compile(GLenum kind, const char* source, std::string& error) {
    GLuint shader = glCreateShader(kind);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    GLint ok = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (!ok) {
        char log[2048];
        glGetShaderInfoLog(shader, sizeof log, nullptr, log);
        error = std::string("shader: ") + log;
    }
    return shader;
}

GLuint link(const char* vertex, const std::string& fragment, std::string& error) {
    GLuint program = glCreateProgram();
    GLuint vs = compile(GL_VERTEX_SHADER, vertex, error);
    GLuint fs = compile(GL_FRAGMENT_SHADER, fragment.c_str(), error);
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glLinkProgram(program);
    glDeleteShader(vs);
    glDeleteShader(fs);
    GLint ok = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    if (!ok && error.empty())
        error = "the shaders don't link";
    return ok ? program : 0;
}

GLint at(GLuint program, const char* name) {
    return glGetUniformLocation(program, name);
}

void uniformMatrix(GLuint program, const char* name, const osg::Matrix& m) {
    // Ours are row-major: OpenGL transposes them.
    glUniformMatrix4fv(glGetUniformLocation(program, name), 1, GL_TRUE, &m.m[0][0]);
}

struct DrawItem {
    osg::Geometry* geometry;
    osg::Matrix world;
};

struct Lights {
    osg::Color3f ambient;
    std::vector<osg::Vec3f> directions;
    std::vector<osg::Color3f> directionalColors;
    std::vector<osg::Pnt3f> positions;
    std::vector<osg::Color3f> pointColors;
    std::vector<osg::Vec3f> pointDirections;
    std::vector<float> pointCones; // inner and outer cosines of each
    size_t added = 0;              // lights of every kind
    // The lights a surface program takes, at most eight of each kind.
    int directionalCount() const { return int(std::min<size_t>(directions.size(), 8)); }
    int pointCount() const { return int(std::min<size_t>(positions.size(), 8)); }

    float exposure = kaExposure::scale();

    void add(const osg::WorldLight& light) {
        ++added;
        osg::WorldLight l = light;
        l.power = {l.power.r * exposure, l.power.g * exposure, l.power.b * exposure};
        switch (l.kind) {
        case osg::WorldLight::Directional:
            directions.push_back(l.direction);
            directionalColors.push_back(l.power);
            break;
        case osg::WorldLight::Point:
            positions.push_back(l.position);
            pointColors.push_back(l.power);
            pointDirections.push_back(l.direction);
            pointCones.insert(pointCones.end(), {l.coneInner, l.coneOuter});
            break;
        case osg::WorldLight::Environment:
            ambient = {ambient.r + l.power.r, ambient.g + l.power.g, ambient.b + l.power.b};
            break;
        }
    }
};

// Shown geometry and lights.
void collect(const osg::NodePtr& root, std::vector<DrawItem>& items, Lights& lights) {
    osg::forEachShownNode(root, [&](const osg::NodePtr& node, const osg::Matrix& world) {
        osg::NodeCore* core = node->getCore().get();
        if (auto* geometry = dynamic_cast<osg::Geometry*>(core))
            items.push_back({geometry, world});
        if (auto* light = dynamic_cast<const osg::Light*>(core))
            lights.add(osg::worldLightOf(*light, world));
    });
}

} // namespace

struct kaGLSceneRenderer::Impl {
    // Programs: the scene and the background in linear float, and encoding as they draw; the
    // sum of samples; the encoding of a sum.
    GLuint background = 0, backgroundEncoded = 0, accumulate = 0, encode = 0, emptyVao = 0;
    std::map<int, GLuint> surfaces; // by light counts and encoding
    // Targets, each growing to the largest piece asked for and then kept: a sample (float
    // colour and depth), the sum of samples (float), the encoded piece (8-bit with its own
    // depth, drawn into directly when one opaque sample makes a pixel).
    GLuint sampleFbo = 0, sampleColor = 0, sampleDepth = 0;
    GLuint sumFbo = 0, sumColor = 0;
    // Two encoded targets, drawn in turn: one piece is read back while the next is drawn.
    GLuint encodedFbo[2] = {0, 0}, encodedColor[2] = {0, 0}, encodedDepth[2] = {0, 0};
    int slot = 0; // the encoded target being drawn
    // The encoded background of a cell, copied into the next cells that show the same one:
    // those of the same row whose dither pattern starts at the same phase.
    GLuint backgroundFbo = 0, backgroundColor = 0;
    int sampleSize[2] = {0, 0}, sumSize[2] = {0, 0}, encodedSize[2][2] = {{0, 0}, {0, 0}};
    int backgroundSize[2] = {0, 0};
    struct BackgroundKey {
        uint64_t render = 0;
        int bottom = -1, phase = -1, width = 0, height = 0;
        bool operator==(const BackgroundKey& o) const {
            return render == o.render && bottom == o.bottom && phase == o.phase &&
                   width == o.width && height == o.height;
        }
    } backgroundKey;
    uint64_t renders = 0;
    GLuint curves = 0, dither = 0;
    uint64_t encodingUploaded = 0; // the encoder whose curves and dither are uploaded
    struct Mesh {
        osg::GeometryPtr keep; // the cache holds the geometry so that its address stays its own
        uint64_t version = ~0ull;
        GLuint vao = 0, buffers[5] = {0, 0, 0, 0, 0};
        kaGLMeshChunks chunks;
        bool hasColors = false, hasTexCoords = false;
    };
    std::map<const osg::Geometry*, Mesh> meshes;
    // Material pictures, uploaded once however many meshes and materials use them (by
    // picture, and whether it is sRGB-encoded colour or linear data).
    struct Texture {
        osg::ImagePtr keep; // as for meshes
        GLuint name = 0;
    };
    std::map<std::pair<const osg::Image*, bool>, Texture> textures;
    std::vector<int> runCounts;
    std::vector<const void*> runOffsets;

    bool init(std::string& error) {
        if (background)
            return true;
        background = link(kBackgroundVertex, fragmentSource(kBackgroundFragment, false), error);
        backgroundEncoded =
            link(kBackgroundVertex, fragmentSource(kBackgroundFragment, true), error);
        accumulate = link(kBackgroundVertex, fragmentSource(kAccumulateFragment, false), error);
        encode = link(kBackgroundVertex, fragmentSource(kEncodeFragment, true), error);
        glGenVertexArrays(1, &emptyVao);
        glGenFramebuffers(1, &sampleFbo);
        glGenFramebuffers(1, &sumFbo);
        glGenFramebuffers(2, encodedFbo);
        glGenFramebuffers(1, &backgroundFbo);
        return background && backgroundEncoded && accumulate && encode;
    }

    // The surface program for these light counts and features, made when first asked for.
    GLuint surface(int directional, int point, bool encoded, int features, std::string& error) {
        const int key =
            ((directional * 16 + point) * 2 + int(encoded)) * kSurfaceFeatureCount + features;
        auto found = surfaces.find(key);
        if (found != surfaces.end())
            return found->second;
        const GLuint program =
            link(kSurfaceVertex,
                 fragmentSource(kSurfaceFragment, encoded, directional, point, features), error);
        if (program)
            surfaces[key] = program;
        return program;
    }

    static bool complete(int width, int height, const char* what, std::string& error) {
        if (glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE)
            return true;
        error = std::string("the ") + what + " framebuffer of " + std::to_string(width) + " x " +
                std::to_string(height) + " is not complete";
        return false;
    }

    static GLuint texture(GLenum format, int width, int height) {
        GLuint name = 0;
        glGenTextures(1, &name);
        glBindTexture(GL_TEXTURE_2D, name);
        glTexStorage2D(GL_TEXTURE_2D, 1, format, width, height);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        return name;
    }

    static GLuint depthBuffer(GLenum format, int width, int height) {
        GLuint name = 0;
        glGenRenderbuffers(1, &name);
        glBindRenderbuffer(GL_RENDERBUFFER, name);
        glRenderbufferStorage(GL_RENDERBUFFER, format, width, height);
        return name;
    }

    // Grows 'size' to hold width x height; true when it had to.
    static bool grows(int (&size)[2], int width, int height) {
        if (width <= size[0] && height <= size[1])
            return false;
        size[0] = std::max(size[0], width);
        size[1] = std::max(size[1], height);
        return true;
    }

    // (Re)makes framebuffer 'fbo' of 'size' with a colour texture and, when asked, a depth
    // buffer, if width x height does not fit.
    static bool target(GLuint fbo, int (&size)[2], GLuint& color, GLenum colorFormat, GLuint* depth,
                       GLenum depthFormat, int width, int height, const char* what,
                       std::string& error) {
        if (!grows(size, width, height))
            return true;
        glDeleteTextures(1, &color);
        color = texture(colorFormat, size[0], size[1]);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, color, 0);
        if (depth) {
            glDeleteRenderbuffers(1, depth);
            *depth = depthBuffer(depthFormat, size[0], size[1]);
            glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, *depth);
        }
        if (complete(size[0], size[1], what, error))
            return true;
        size[0] = size[1] = 0;
        return false;
    }

    bool sampleTarget(int width, int height, std::string& error) {
        return target(sampleFbo, sampleSize, sampleColor, GL_RGBA32F, &sampleDepth,
                      GL_DEPTH_COMPONENT32F, width, height, "float", error);
    }

    bool sumTarget(int width, int height, std::string& error) {
        return target(sumFbo, sumSize, sumColor, GL_RGBA32F, nullptr, 0, width, height, "sum",
                      error);
    }

    bool encodedTarget(int width, int height, std::string& error) {
        return target(encodedFbo[slot], encodedSize[slot], encodedColor[slot], GL_RGBA8,
                      &encodedDepth[slot], GL_DEPTH_COMPONENT32F, width, height, "8-bit", error);
    }

    // Puts the cell's encoded background into the encoded target: drawn when no earlier cell
    // of this render had the same one, copied otherwise.
    bool encodedBackground(const osg::UberViewport& viewport, const kaPixelEncoder& encoder,
                           bool straight, int cellLeft, int cellBottom, int width, int height,
                           int fullHeight, std::string& error) {
        const int ditherSize = encoder.getDither() ? encoder.getDitherSize() : 0;
        const BackgroundKey key{renders, cellBottom, ditherSize ? cellLeft % ditherSize : 0, width,
                                height};
        if (!(key == backgroundKey)) {
            if (!target(backgroundFbo, backgroundSize, backgroundColor, GL_RGBA8, nullptr, 0, width,
                        height, "background", error))
                return false;
            glBindFramebuffer(GL_FRAMEBUFFER, backgroundFbo);
            glViewport(0, 0, width, height);
            glDisable(GL_SCISSOR_TEST);
            glDisable(GL_DEPTH_TEST);
            encodingUniforms(backgroundEncoded, encoder, straight, cellLeft, cellBottom);
            drawBackground(backgroundEncoded, viewport, float(cellBottom) / float(fullHeight),
                           1.0f / float(fullHeight));
            glEnable(GL_SCISSOR_TEST);
            backgroundKey = key;
        }
        glCopyImageSubData(backgroundColor, GL_TEXTURE_2D, 0, 0, 0, 0, encodedColor[slot],
                           GL_TEXTURE_2D, 0, 0, 0, 0, width, height, 1);
        return true;
    }

    Mesh& upload(osg::Geometry* geometry) {
        Mesh& mesh = meshes[geometry];
        if (mesh.version == geometry->getVersion())
            return mesh;
        mesh.keep = osg::GeometryPtr(geometry);
        mesh.version = geometry->getVersion();
        const osg::Geometry::Mesh& data = geometry->getMesh();
        if (!mesh.vao) {
            glGenVertexArrays(1, &mesh.vao);
            glGenBuffers(5, mesh.buffers);
        }
        glBindVertexArray(mesh.vao);
        auto attribute = [&](int index, GLuint buffer, const void* values, size_t bytes, int size) {
            glBindBuffer(GL_ARRAY_BUFFER, buffer);
            glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(bytes), values, GL_STATIC_DRAW);
            glVertexAttribPointer(GLuint(index), size, GL_FLOAT, GL_FALSE, 0, nullptr);
            glEnableVertexAttribArray(GLuint(index));
        };
        // The GPU's copy of the triangles is in the chunks' order, its vertices numbered as
        // the triangles use them; the geometry keeps its own.
        std::vector<uint32_t> indices = data.indices;
        mesh.chunks.build(data.positions, indices);
        const std::vector<uint32_t>& order = mesh.chunks.getVertexOrder();
        auto reordered = [&](const auto& values) {
            std::remove_const_t<std::remove_reference_t<decltype(values)>> out;
            if (values.size() != data.positions.size())
                return out;
            out.reserve(order.size());
            for (uint32_t old : order)
                out.push_back(values[old]);
            return out;
        };
        const bool renumbered = !order.empty();
        const auto positions = renumbered ? reordered(data.positions) : data.positions;
        const auto normals = renumbered ? reordered(data.normals) : data.normals;
        const auto colors = renumbered ? reordered(data.colors) : data.colors;
        // Two floats a vertex, reordered as pairs.
        std::vector<std::array<float, 2>> texCoords(data.texCoords.size() / 2);
        if (!texCoords.empty())
            std::memcpy(texCoords.data(), data.texCoords.data(), texCoords.size() * 8);
        if (renumbered)
            texCoords = reordered(texCoords);
        attribute(0, mesh.buffers[0], positions.data(), positions.size() * 12, 3);
        attribute(1, mesh.buffers[1], normals.data(), normals.size() * 12, 3);
        mesh.hasColors = colors.size() == positions.size() && !colors.empty();
        if (mesh.hasColors) {
            attribute(2, mesh.buffers[2], colors.data(), colors.size() * 16, 4);
        } else {
            glDisableVertexAttribArray(2);
            glVertexAttrib4f(2, 1, 1, 1, 1);
        }
        mesh.hasTexCoords = texCoords.size() == positions.size() && !texCoords.empty();
        if (mesh.hasTexCoords) {
            attribute(3, mesh.buffers[4], texCoords.data(), texCoords.size() * 8, 2);
        } else {
            glDisableVertexAttribArray(3);
            glVertexAttrib2f(3, 0, 0);
        }
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, mesh.buffers[3]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(indices.size() * 4), indices.data(),
                     GL_STATIC_DRAW);
        return mesh;
    }

    // The picture as a texture with its mipmaps, sRGB-decoded when sampled or not, uploaded
    // when first drawn.
    GLuint upload(const osg::ImagePtr& image, bool srgb) {
        Texture& texture = textures[{image.get(), srgb}];
        if (texture.name)
            return texture.name;
        texture.keep = image;
        const int width = image->getWidth(), height = image->getHeight();
        int levels = 1;
        while ((std::max(width, height) >> levels) > 0)
            ++levels;
        glGenTextures(1, &texture.name);
        glBindTexture(GL_TEXTURE_2D, texture.name);
        glTexStorage2D(GL_TEXTURE_2D, levels, srgb ? GL_SRGB8_ALPHA8 : GL_RGBA8, width, height);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE,
                        image->getData());
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glGenerateMipmap(GL_TEXTURE_2D);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        return texture.name;
    }

    static GLint wrapOf(osg::TextureWrap wrap) {
        switch (wrap) {
        case osg::TextureWrap::ClampToEdge:
            return GL_CLAMP_TO_EDGE;
        case osg::TextureWrap::MirroredRepeat:
            return GL_MIRRORED_REPEAT;
        default:
            return GL_REPEAT;
        }
    }

    // Binds 'picture' of 'material', with the material's wrap modes, to texture unit 'unit';
    // false when the surface shows none (no picture, or no coordinates to place it by).
    bool bindMap(const osg::ImagePtr& picture, bool srgb, GLenum unit,
                 const osg::SimpleMaterial& material, const Mesh& mesh) {
        if (!picture || !mesh.hasTexCoords)
            return false;
        glActiveTexture(unit);
        glBindTexture(GL_TEXTURE_2D, upload(picture, srgb));
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrapOf(material.wrapU));
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrapOf(material.wrapV));
        glActiveTexture(GL_TEXTURE0);
        return true;
    }

    // The material's pictures on units 3 (base colour), 4 (metallic-roughness) and 5
    // (emission), and the uniforms that say which there are.
    void bindMaps(GLuint program, const osg::SimpleMaterial* material, const Mesh& mesh) {
        const bool base =
            material && bindMap(material->baseColorMap, true, GL_TEXTURE3, *material, mesh);
        const bool packed = material && bindMap(material->metallicRoughnessMap, false, GL_TEXTURE4,
                                                *material, mesh);
        const bool glow =
            material && bindMap(material->emissionMap, true, GL_TEXTURE5, *material, mesh);
        glUniform1i(at(program, "useBaseColorMap"), base);
        glUniform1i(at(program, "useMetallicRoughnessMap"), packed);
        glUniform1i(at(program, "useEmissionMap"), glow);
    }

    // Forgets meshes and pictures nobody else holds.
    void prune() {
        for (auto it = meshes.begin(); it != meshes.end();) {
            if (it->second.keep->getRefCount() == 1) {
                glDeleteVertexArrays(1, &it->second.vao);
                glDeleteBuffers(5, it->second.buffers);
                it = meshes.erase(it);
            } else {
                ++it;
            }
        }
        for (auto it = textures.begin(); it != textures.end();) {
            if (it->second.keep->getRefCount() == 1) {
                glDeleteTextures(1, &it->second.name);
                it = textures.erase(it);
            } else {
                ++it;
            }
        }
    }

    void uploadEncoding(const kaPixelEncoder& encoder) {
        if (encodingUploaded == encoder.getId())
            return;
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        // Each texel holds a point of a curve and the next: one fetch gives an interval's ends.
        const int points = kaPixelEncoder::Separable::kCurveSize;
        std::vector<float> rows;
        for (const std::vector<float>& curve : encoder.getSeparable()->curves)
            for (int i = 0; i < points; ++i) {
                rows.push_back(curve[size_t(i)]);
                rows.push_back(curve[size_t(std::min(i + 1, points - 1))]);
            }
        glDeleteTextures(1, &curves);
        curves = texture(GL_RG32F, points, 3);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, points, 3, GL_RG, GL_FLOAT, rows.data());
        glDeleteTextures(1, &dither);
        dither = 0;
        if (encoder.getDither()) {
            const int size = encoder.getDitherSize();
            dither = texture(GL_RGB32F, size, size);
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, size, size, GL_RGB, GL_FLOAT,
                            encoder.getDither());
        }
        encodingUploaded = encoder.getId();
    }

    // The encoding's uniforms of an encoding program, its textures on units 1 and 2.
    void encodingUniforms(GLuint program, const kaPixelEncoder& encoder, bool straight,
                          int cellLeft, int cellBottom) {
        glUseProgram(program);
        glActiveTexture(GL_TEXTURE1);
        glBindTexture(GL_TEXTURE_2D, curves);
        glActiveTexture(GL_TEXTURE2);
        glBindTexture(GL_TEXTURE_2D, encoder.getDither() ? dither : 0);
        glActiveTexture(GL_TEXTURE0);
        glUniform1i(at(program, "curves"), 1);
        glUniform1i(at(program, "dither"), 2);
        glUniform1i(at(program, "straight"), straight);
        const osg::Color3f alphaColor = encoder.getAlphaColor();
        glUniform3f(at(program, "alphaColor"), alphaColor.r, alphaColor.g, alphaColor.b);
        glUniformMatrix3fv(at(program, "toSpace"), 1, GL_TRUE,
                           &encoder.getSeparable()->toSpace[0][0]);
        glUniform1i(at(program, "curveSize"), kaPixelEncoder::Separable::kCurveSize);
        glUniform1i(at(program, "dithers"), encoder.getDither() != nullptr);
        glUniform1i(at(program, "ditherSize"), std::max(encoder.getDitherSize(), 1));
        glUniform2i(at(program, "pictureOrigin"), cellLeft, cellBottom);
    }

    void drawBackground(GLuint program, const osg::UberViewport& viewport, float vOffset,
                        float vScale) {
        osg::Color4f bottom{0, 0, 0, 1}, top{0, 0, 0, 1};
        if (const osg::Background* b = viewport.getBackground().get()) {
            bottom = b->colorAt(0.0f);
            top = b->colorAt(1.0f);
        }
        // Drawn after the opaque surfaces, only where none is (its depth is the far plane's).
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LEQUAL);
        glDepthMask(GL_FALSE);
        glDisable(GL_BLEND);
        glUseProgram(program);
        glUniform4f(at(program, "bottomColor"), bottom.r, bottom.g, bottom.b, bottom.a);
        glUniform4f(at(program, "topColor"), top.r, top.g, top.b, top.a);
        glUniform1f(at(program, "vOffset"), vOffset);
        glUniform1f(at(program, "vScale"), vScale);
        glBindVertexArray(emptyVao);
        glDrawArrays(GL_TRIANGLES, 0, 3);
        glDepthMask(GL_TRUE);
    }

    // A surface drawScene draws: its item, material and uploaded mesh, and its distance from
    // the eye squared. The list is kept between calls for its capacity.
    struct Drawn {
        float distance;
        const DrawItem* item;
        const osg::SimpleMaterial* material;
        Mesh* mesh;
    };
    std::vector<Drawn> order;

    // The opaque surfaces (pass 0), replacing what lies behind (no blending to pay for), or
    // the see-through ones (pass 1) over what is there: colour by the surface's opacity, alpha
    // covered. 'cellClip' maps the world onto the cell's own clip space, against which meshes
    // are culled, widened by 'margin' so that no triangle touching the cell is left out.
    void drawScene(GLuint program, int pass, const std::vector<DrawItem>& items,
                   const Lights& lights, const osg::Matrix& viewProjection,
                   const osg::Matrix& cellClip, float margin, const osg::Pnt3f& eye) {
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LESS);
        glDepthMask(GL_TRUE);
        glUseProgram(program);
        uniformMatrix(program, "viewProjection", viewProjection);
        glUniform3f(at(program, "eye"), eye.x, eye.y, eye.z);
        glUniform1i(at(program, "baseColorMap"), 3);
        glUniform1i(at(program, "metallicRoughnessMap"), 4);
        glUniform1i(at(program, "emissionMap"), 5);
        glUniform3f(at(program, "ambient"), lights.ambient.r, lights.ambient.g, lights.ambient.b);
        const int directional = lights.directionalCount();
        const int point = lights.pointCount();
        if (directional) {
            glUniform3fv(at(program, "directionalDirection"), directional, &lights.directions[0].x);
            glUniform3fv(at(program, "directionalColor"), directional,
                         &lights.directionalColors[0].r);
        }
        if (point) {
            glUniform3fv(at(program, "pointPosition"), point, &lights.positions[0].x);
            glUniform3fv(at(program, "pointColor"), point, &lights.pointColors[0].r);
            glUniform3fv(at(program, "pointDirection"), point, &lights.pointDirections[0].x);
            glUniform2fv(at(program, "pointCone"), point, lights.pointCones.data());
        }
        if (pass == 0) {
            glDisable(GL_BLEND);
        } else {
            glEnable(GL_BLEND);
            glBlendFuncSeparate(GL_SRC1_ALPHA, GL_ONE_MINUS_SRC1_ALPHA, GL_ONE, GL_ZERO);
        }
        // Opaque surfaces nearest first: the depth test then rejects hidden fragments before
        // they are shaded.
        order.clear();
        for (const DrawItem& item : items) {
            const osg::SimpleMaterial* material =
                osg::resolveSimpleMaterial(item.geometry->getMaterial().get());
            if (seeThrough(material) != (pass == 1))
                continue;
            Mesh& mesh = upload(item.geometry);
            const kaGLMeshChunks::Chunk& box = mesh.chunks.getBounds();
            const osg::Pnt3f centre = item.world.transformPoint({(box.low.x + box.high.x) * 0.5f,
                                                                 (box.low.y + box.high.y) * 0.5f,
                                                                 (box.low.z + box.high.z) * 0.5f});
            const float dx = centre.x - eye.x, dy = centre.y - eye.y, dz = centre.z - eye.z;
            order.push_back({dx * dx + dy * dy + dz * dz, &item, material, &mesh});
        }
        if (pass == 0)
            std::stable_sort(order.begin(), order.end(), [](const Drawn& a, const Drawn& b) {
                return a.distance < b.distance;
            });
        for (const Drawn& drawn : order) {
            const DrawItem& item = *drawn.item;
            const osg::SimpleMaterial* material = drawn.material;
            const osg::AlphaMode alphaMode =
                material ? material->alphaMode : osg::AlphaMode::Opaque;
            const float opacity = alphaMode == osg::AlphaMode::Opaque ? 1.0f : material->opacity;
            Mesh& mesh = *drawn.mesh;
            mesh.chunks.visibleRuns(cellClip * item.world, margin, runCounts, runOffsets);
            if (runCounts.empty())
                continue;
            uniformMatrix(program, "model", item.world);
            osg::Matrix inverse;
            item.world.invert(inverse);
            float normalMatrix[9];
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c)
                    normalMatrix[r * 3 + c] = inverse.m[c][r]; // inverse transpose
            glUniformMatrix3fv(at(program, "normalMatrix"), 1, GL_TRUE, normalMatrix);
            const osg::Color3f base =
                material ? material->baseColor : osg::Color3f{0.8f, 0.8f, 0.8f};
            const osg::Color3f glow = material ? material->emission : osg::Color3f{};
            glUniform3f(at(program, "baseColor"), base.r, base.g, base.b);
            glUniform3f(at(program, "emission"), glow.r * lights.exposure, glow.g * lights.exposure,
                        glow.b * lights.exposure);
            glUniform1f(at(program, "metallic"), material ? material->metallic : 0.0f);
            glUniform1f(at(program, "roughness"), material ? material->roughness : 0.5f);
            glUniform1f(at(program, "opacity"), opacity);
            glUniform1i(at(program, "alphaMode"), int(alphaMode));
            glUniform1f(at(program, "alphaCutoff"), material ? material->alphaCutoff : 0.5f);
            glUniform1i(at(program, "useVertexColor"), mesh.hasColors);
            bindMaps(program, material, mesh);
            glBindVertexArray(mesh.vao);
            glMultiDrawElements(GL_TRIANGLES, runCounts.data(), GL_UNSIGNED_INT, runOffsets.data(),
                                GLsizei(runCounts.size()));
        }
        glDisable(GL_BLEND);
    }

    // A pass of 'program' over the bound framebuffer's cell, within the scissor.
    void fullPass(GLuint program, int width, int height) {
        glViewport(0, 0, width, height);
        glDisable(GL_DEPTH_TEST);
        glUseProgram(program);
        glBindVertexArray(emptyVao);
        glDrawArrays(GL_TRIANGLES, 0, 3);
    }

    // The first sample is copied into the sum, later ones added to it.
    void addToSum(bool first, int width, int height) {
        glBindFramebuffer(GL_FRAMEBUFFER, sumFbo);
        if (first) {
            glDisable(GL_BLEND);
        } else {
            glEnable(GL_BLEND);
            glBlendFunc(GL_ONE, GL_ONE);
        }
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, sampleColor);
        glUseProgram(accumulate);
        glUniform1i(at(accumulate, "sampleColor"), 0);
        fullPass(accumulate, width, height);
        glDisable(GL_BLEND);
    }
};

// Where finished pieces go: back to the caller as floats, or encoded into 8-bit images.
struct kaGLSceneRenderer::Output {
    const PieceSink* sink = nullptr;
    std::vector<float> pixels;
    const kaPixelEncoder* encoder = nullptr;
    const std::vector<osg::Image*>* images = nullptr;
    int imageX = 0, imageY = 0;
    std::vector<uint8_t> rgba; // an encoded piece on its way into an RGB image
};

kaGLSceneRenderer& kaGLSceneRenderer::the() {
    static kaGLSceneRenderer renderer;
    return renderer;
}

void kaGLSceneRenderer::sampleOffset(int k, float& dx, float& dy) {
    if (k <= 0) {
        dx = dy = 0.0f;
        return;
    }
    // Halton points in bases 2 and 3: well spread for any number of samples.
    auto halton = [](int index, int base) {
        float f = 1.0f, r = 0.0f;
        for (int i = index; i > 0; i /= base) {
            f /= float(base);
            r += f * float(i % base);
        }
        return r;
    };
    dx = halton(k, 2) - 0.5f;
    dy = halton(k, 3) - 0.5f;
}

int kaGLSceneRenderer::getMaxTextureSize() {
    std::string error;
    kaGLPlatform* platform = kaGLPlatform::instance(error);
    if (!platform || !platform->makeCurrent(error))
        return 0;
    GLint size = 0;
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &size);
    return size;
}

int kaGLSceneRenderer::getMaxPieceSize() {
    const int gl = getMaxTextureSize();
    // Pieces stay small, so that a render needs little memory besides its images: a piece's
    // targets and read-back take at most 60 bytes a pixel.
    const int limit = std::min(gl > 0 ? gl : 1024, 1024);
    return _pieceLimit > 0 ? std::min(_pieceLimit, limit) : limit;
}

void kaGLSceneRenderer::setMaxPieceSize(int size) {
    _pieceLimit = size;
}

bool kaGLSceneRenderer::render(const osg::UberViewport& viewport, const osg::Camera& camera,
                               int fullWidth, int fullHeight, int x0, int y0, int width, int height,
                               int samples, int onlySample, const PieceSink& sink,
                               std::string& error) {
    Output output;
    output.sink = &sink;
    return renderPieces(viewport, camera, fullWidth, fullHeight, x0, y0, width, height, samples,
                        onlySample, output, error);
}

bool kaGLSceneRenderer::renderEncoded(const osg::UberViewport& viewport, const osg::Camera& camera,
                                      int fullWidth, int fullHeight, int x0, int y0, int width,
                                      int height, int samples, int onlySample,
                                      const kaPixelEncoder& encoder,
                                      const std::vector<osg::Image*>& images, int imageX,
                                      int imageY, std::string& error) {
    if (!encoder.getSeparable()) {
        error = "the colour space's encoding can't be made on the GPU";
        return false;
    }
    Output output;
    output.encoder = &encoder;
    output.images = &images;
    output.imageX = imageX;
    output.imageY = imageY;
    return renderPieces(viewport, camera, fullWidth, fullHeight, x0, y0, width, height, samples,
                        onlySample, output, error);
}

bool kaGLSceneRenderer::renderPieces(const osg::UberViewport& viewport, const osg::Camera& camera,
                                     int fullWidth, int fullHeight, int x0, int y0, int width,
                                     int height, int samples, int onlySample, Output& output,
                                     std::string& error) {
    error.clear();
    kaGLPlatform* platform = kaGLPlatform::instance(error);
    if (!platform || !platform->makeCurrent(error))
        return false;
    if (!_impl)
        _impl = new Impl();
    Impl& m = *_impl;
    if (!m.init(error))
        return false;
    if (width <= 0 || height <= 0 || fullWidth <= 0 || fullHeight <= 0) {
        error = "nothing to render (empty target)";
        return false;
    }
    if (_listener)
        _listener(fullWidth, fullHeight, x0, y0, width, height);

    std::vector<DrawItem> items;
    Lights lights;
    collect(viewport.getRoot(), items, lights);
    const osg::Matrix projection = camera.getProjection(uint32_t(fullWidth), uint32_t(fullHeight));
    const osg::Matrix viewing = camera.getViewing(uint32_t(fullWidth), uint32_t(fullHeight));
    if (kaDefaultLights::applies(lights.added))
        for (const osg::WorldLight& l : kaDefaultLights::rig(viewing))
            lights.add(l);
    osg::Matrix eyeToWorld;
    viewing.invert(eyeToWorld);
    const osg::Pnt3f eye = eyeToWorld.transformPoint({0, 0, 0});

    // Pieces lie on one grid of the whole picture, cell by cell from its corner, and a region
    // is drawn in the cells it touches, cut to it by the scissor. A pixel is so always drawn in
    // the same cell, with the same viewport and framebuffer, whichever region asks for it: the
    // rasteriser sees the same window coordinates to the bit. (A viewport shifted to each
    // region's own corner does not promise that: its float transform rounds differently, and
    // an edge pixel here and there flips.) Within the viewport limits a cell is the full
    // picture shifted by whole pixels; beyond them the cell's part of the picture is mapped
    // onto it by its projection.
    GLint viewportLimit[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewportLimit);
    const bool shiftViewport = fullWidth <= viewportLimit[0] && fullHeight <= viewportLimit[1];

    const int first = onlySample >= 0 ? onlySample : 0;
    const int last = onlySample >= 0 ? onlySample + 1 : std::max(samples, 1);
    const bool summed = last - first > 1;
    // One sample of opaque surfaces is its pixels' mean already, and nothing is blended in
    // linear light: an 8-bit picture is then encoded as it is drawn.
    bool direct = output.encoder && !summed;
    int features = 0;
    for (const DrawItem& item : items) {
        const osg::SimpleMaterial* material =
            osg::resolveSimpleMaterial(item.geometry->getMaterial().get());
        if (seeThrough(material))
            direct = false;
        features |= featuresOf(material);
    }
    const bool straight =
        output.encoder && !output.images->empty() && output.images->front()->hasAlphaChannel();
    ++m.renders;
    if (output.encoder)
        m.uploadEncoding(*output.encoder);

    const int cell = getMaxPieceSize();
    const int firstCellX = x0 / cell, firstCellY = y0 / cell;
    const int lastCellX = (x0 + width - 1) / cell, lastCellY = (y0 + height - 1) / cell;
    auto callback = viewport.getEventProcessingCB();
    bool stopped = false;
    EncodedPiece pending{0, 0, 0, 0, 0, 0, 0};
    glEnable(GL_SCISSOR_TEST);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    for (int cy = firstCellY; cy <= lastCellY && !stopped; ++cy) {
        for (int cx = firstCellX; cx <= lastCellX && !stopped; ++cx) {
            const int cellLeft = cx * cell, cellBottom = cy * cell;
            const int cellW = std::min(cell, fullWidth - cellLeft);
            const int cellH = std::min(cell, fullHeight - cellBottom);
            // The region's part of the cell, in the full picture.
            const int left = std::max(x0, cellLeft), bottom = std::max(y0, cellBottom);
            const int pw = std::min(x0 + width, cellLeft + cellW) - left;
            const int ph = std::min(y0 + height, cellBottom + cellH) - bottom;
            const bool lastPiece = cy == lastCellY && cx == lastCellX;
            if ((!direct && !m.sampleTarget(cellW, cellH, error)) ||
                (summed && !m.sumTarget(cellW, cellH, error)) ||
                (output.encoder && !m.encodedTarget(cellW, cellH, error))) {
                glDisable(GL_SCISSOR_TEST);
                return false;
            }
            // The cell's part of the picture stretched over clip space: its projection when the
            // viewport can't be shifted, and always the frustum meshes are culled against.
            osg::Matrix toCell;
            toCell.m[0][0] = float(fullWidth) / float(cellW);
            toCell.m[0][3] = float(fullWidth - 2 * cellLeft - cellW) / float(cellW);
            toCell.m[1][1] = float(fullHeight) / float(cellH);
            toCell.m[1][3] = float(fullHeight - 2 * cellBottom - cellH) / float(cellH);
            const float margin = 4.0f / float(std::min(cellW, cellH)); // two pixels
            const GLuint surface =
                m.surface(lights.directionalCount(), lights.pointCount(), direct, features, error);
            if (!surface) {
                glDisable(GL_SCISSOR_TEST);
                return false;
            }
            if (direct) {
                if (!m.encodedBackground(viewport, *output.encoder, straight, cellLeft, cellBottom,
                                         cellW, cellH, fullHeight, error)) {
                    glDisable(GL_SCISSOR_TEST);
                    return false;
                }
                m.encodingUniforms(surface, *output.encoder, straight, cellLeft, cellBottom);
            }
            glScissor(left - cellLeft, bottom - cellBottom, pw, ph);
            int made = 0;
            for (int k = first; k < last && !stopped; ++k) {
                float dx, dy;
                sampleOffset(k, dx, dy);
                // The sample's offset in pixels of the whole picture, the same for every region.
                const osg::Matrix jitter = osg::Matrix::translation(
                    2.0f * dx / float(fullWidth), 2.0f * dy / float(fullHeight), 0.0f);
                const osg::Matrix cellClip = toCell * jitter * projection * viewing;
                glBindFramebuffer(GL_FRAMEBUFFER, direct ? m.encodedFbo[m.slot] : m.sampleFbo);
                if (shiftViewport)
                    glViewport(-cellLeft, -cellBottom, fullWidth, fullHeight);
                else
                    glViewport(0, 0, cellW, cellH);
                // The background covers every pixel the surfaces leave: only depth is cleared.
                glClear(GL_DEPTH_BUFFER_BIT);
                const osg::Matrix drawn = shiftViewport ? jitter * projection * viewing : cellClip;
                m.drawScene(surface, 0, items, lights, drawn, cellClip, margin, eye);
                if (!direct) {
                    // Fragment rows count in the framebuffer, which starts at the cell's bottom.
                    m.drawBackground(m.background, viewport, float(cellBottom) / float(fullHeight),
                                     1.0f / float(fullHeight));
                    m.drawScene(surface, 1, items, lights, drawn, cellClip, margin, eye);
                }
                if (summed)
                    m.addToSum(made == 0, cellW, cellH);
                ++made;
                if (callback)
                    stopped = !callback(0, 0, lastPiece, viewport.getEventProcessingContext());
            }
            const float scale = 1.0f / float(std::max(made, 1));
            if (output.encoder) {
                if (!direct) {
                    glBindFramebuffer(GL_FRAMEBUFFER, m.encodedFbo[m.slot]);
                    m.encodingUniforms(m.encode, *output.encoder, straight, cellLeft, cellBottom);
                    glBindTexture(GL_TEXTURE_2D, summed ? m.sumColor : m.sampleColor);
                    glUniform1i(at(m.encode, "sum"), 0);
                    glUniform1f(at(m.encode, "scale"), scale);
                    m.fullPass(m.encode, cellW, cellH);
                }
                // Drawing starts now; the previous piece is read back while it runs.
                glFlush();
                if (pending.fbo)
                    readEncoded(output, pending, x0, y0);
                pending = {m.encodedFbo[m.slot], cellLeft, cellBottom, left, bottom, pw, ph};
                m.slot ^= 1;
                continue;
            }
            glBindFramebuffer(GL_READ_FRAMEBUFFER, summed ? m.sumFbo : m.sampleFbo);
            output.pixels.resize(size_t(pw) * size_t(ph) * 4);
            glPixelStorei(GL_PACK_ROW_LENGTH, 0);
            glReadPixels(left - cellLeft, bottom - cellBottom, pw, ph, GL_RGBA, GL_FLOAT,
                         output.pixels.data());
            if (made > 1)
                for (float& v : output.pixels)
                    v *= scale;
            (*output.sink)(left - x0, bottom - y0, pw, ph, output.pixels.data());
        }
    }
    if (pending.fbo)
        readEncoded(output, pending, x0, y0);
    glDisable(GL_SCISSOR_TEST);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    m.prune();
    return !stopped;
}

void kaGLSceneRenderer::readEncoded(Output& output, const EncodedPiece& piece, int x0, int y0) {
    const int cellLeft = piece.cellLeft, cellBottom = piece.cellBottom, left = piece.left,
              bottom = piece.bottom, pw = piece.width, ph = piece.height;
    glBindFramebuffer(GL_READ_FRAMEBUFFER, piece.fbo);
    for (osg::Image* image : *output.images) {
        // The piece's place in the image, cut to it.
        const int ix = output.imageX + (left - x0), iy = output.imageY + (bottom - y0);
        const int cx0 = std::max(ix, 0), cy0 = std::max(iy, 0);
        const int cx1 = std::min(ix + pw, int(image->getWidth()));
        const int cy1 = std::min(iy + ph, int(image->getHeight()));
        if (cx0 >= cx1 || cy0 >= cy1)
            continue;
        const int readX = left - cellLeft + (cx0 - ix), readY = bottom - cellBottom + (cy0 - iy);
        const size_t w = size_t(cx1 - cx0), imageWidth = size_t(image->getWidth());
        if (image->getPixelFormat() == osg::Image::OSG_RGBA_PF) {
            glPixelStorei(GL_PACK_ROW_LENGTH, GLint(imageWidth));
            glReadPixels(readX, readY, int(w), cy1 - cy0, GL_RGBA, GL_UNSIGNED_BYTE,
                         image->getData() + (size_t(cy0) * imageWidth + size_t(cx0)) * 4);
            continue;
        }
        // The GL packs RGB pixel by pixel, many times slower than a copy of RGBA: RGBA is
        // read and its alpha dropped here.
        output.rgba.resize(w * size_t(cy1 - cy0) * 4);
        glPixelStorei(GL_PACK_ROW_LENGTH, 0);
        glReadPixels(readX, readY, int(w), cy1 - cy0, GL_RGBA, GL_UNSIGNED_BYTE,
                     output.rgba.data());
        for (int row = cy0; row < cy1; ++row) {
            const uint8_t* in = output.rgba.data() + size_t(row - cy0) * w * 4;
            uint8_t* out = image->getData() + (size_t(row) * imageWidth + size_t(cx0)) * 3;
            for (size_t i = 0; i < w; ++i, in += 4, out += 3) {
                out[0] = in[0];
                out[1] = in[1];
                out[2] = in[2];
            }
        }
    }
}
