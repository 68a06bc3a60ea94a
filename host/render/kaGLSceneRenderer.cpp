#include "kaGLSceneRenderer.h"

#include "OSGGeometry.h"
#include "OSGNodeCores.h"
#include "kaGLPlatform.h"

#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace {

const char* const kSurfaceVertex = R"(#version 450 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec4 color;
uniform mat4 model;
uniform mat3 normalMatrix;
uniform mat4 viewProjection;
out vec3 worldPosition;
out vec3 worldNormal;
out vec4 vertexColor;
void main() {
    vec4 world = model * vec4(position, 1.0);
    worldPosition = world.xyz;
    worldNormal = normalMatrix * normal;
    vertexColor = color;
    gl_Position = viewProjection * world;
}
)";

// Lambert diffuse and normalised Blinn-Phong highlights from the lights, the environment as
// ambient light on diffuse and specular colour, plus emission (which may exceed 1). The second
// output is the blend weight of the colour (the surface's opacity), so that the alpha written
// is the coverage of geometry: 1 on every surface, see-through ones included.
const char* const kSurfaceFragment = R"(#version 450 core
in vec3 worldPosition;
in vec3 worldNormal;
in vec4 vertexColor;
layout(location = 0, index = 0) out vec4 fragColor;
layout(location = 0, index = 1) out vec4 blendWeight;
uniform vec3 baseColor;
uniform float metallic;
uniform float roughness;
uniform vec3 emission;
uniform float opacity;
uniform bool useVertexColor;
uniform vec3 ambient;
uniform vec3 eye;
uniform int directionalCount;
uniform vec3 directionalDirection[8];
uniform vec3 directionalColor[8];
uniform int pointCount;
uniform vec3 pointPosition[8];
uniform vec3 pointColor[8];
void main() {
    vec3 n = normalize(worldNormal);
    if (!gl_FrontFacing)
        n = -n;
    vec3 albedo = useVertexColor ? baseColor * vertexColor.rgb : baseColor;
    vec3 diffuse = albedo * (1.0 - metallic);
    vec3 specular = mix(vec3(0.04), albedo, metallic);
    float shininess = max(2.0 / max(pow(roughness, 4.0), 1e-4) - 2.0, 1.0);
    vec3 v = normalize(eye - worldPosition);
    // The environment lights diffuse surfaces and is mirrored by glossy ones (metals).
    vec3 color = emission + ambient * (diffuse + specular);
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
        color += pointColor[i] / d2 * ndl * (diffuse + specular * highlight);
    }
    fragColor = vec4(color, 1.0);
    blendWeight = vec4(opacity);
}
)";

const char* const kBackgroundVertex = R"(#version 450 core
void main() {
    vec2 corner = vec2((gl_VertexID << 1) & 2, gl_VertexID & 2);
    gl_Position = vec4(corner * 2.0 - 1.0, 1.0, 1.0);
}
)";

const char* const kBackgroundFragment = R"(#version 450 core
out vec4 fragColor;
uniform vec4 bottomColor;
uniform vec4 topColor;
uniform float vOffset;
uniform float vScale;
void main() {
    float v = clamp(vOffset + gl_FragCoord.y * vScale, 0.0, 1.0);
    vec4 c = mix(bottomColor, topColor, v);
    // Premultiplied, as every colour the renderer writes: a transparent background is nothing.
    fragColor = vec4(c.rgb * c.a, c.a);
}
)";

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

GLuint link(const char* vertex, const char* fragment, std::string& error) {
    GLuint program = glCreateProgram();
    GLuint vs = compile(GL_VERTEX_SHADER, vertex, error);
    GLuint fs = compile(GL_FRAGMENT_SHADER, fragment, error);
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
};

// Shown geometry and lights.
void collect(const osg::NodePtr& root, std::vector<DrawItem>& items, Lights& lights) {
    osg::forEachShownNode(root, [&](const osg::NodePtr& node, const osg::Matrix& world) {
        osg::NodeCore* core = node->getCore().get();
        if (auto* geometry = dynamic_cast<osg::Geometry*>(core))
            items.push_back({geometry, world});
        auto* light = dynamic_cast<const osg::Light*>(core);
        if (!light)
            return;
        const osg::WorldLight l = osg::worldLightOf(*light, world);
        switch (l.kind) {
        case osg::WorldLight::Directional:
            lights.directions.push_back(l.direction);
            lights.directionalColors.push_back(l.power);
            break;
        case osg::WorldLight::Point:
            lights.positions.push_back(l.position);
            lights.pointColors.push_back(l.power);
            break;
        case osg::WorldLight::Environment:
            lights.ambient = {lights.ambient.r + l.power.r, lights.ambient.g + l.power.g,
                              lights.ambient.b + l.power.b};
            break;
        }
    });
}

} // namespace

struct kaGLSceneRenderer::Impl {
    GLuint surface = 0, background = 0, emptyVao = 0;
    GLuint framebuffer = 0, color = 0, depth = 0;
    int targetWidth = 0, targetHeight = 0;
    struct Mesh {
        osg::GeometryPtr keep; // the cache holds the geometry so that its address stays its own
        uint64_t version = ~0ull;
        GLuint vao = 0, buffers[4] = {0, 0, 0, 0};
        GLsizei count = 0;
        bool hasColors = false;
    };
    std::map<const osg::Geometry*, Mesh> meshes;

    bool init(std::string& error) {
        if (surface)
            return true;
        surface = link(kSurfaceVertex, kSurfaceFragment, error);
        background = link(kBackgroundVertex, kBackgroundFragment, error);
        glGenVertexArrays(1, &emptyVao);
        glGenFramebuffers(1, &framebuffer);
        return surface && background;
    }

    bool target(int width, int height, std::string& error) {
        if (width == targetWidth && height == targetHeight)
            return true;
        glDeleteRenderbuffers(1, &color);
        glDeleteRenderbuffers(1, &depth);
        glGenRenderbuffers(1, &color);
        glBindRenderbuffer(GL_RENDERBUFFER, color);
        glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA32F, width, height);
        glGenRenderbuffers(1, &depth);
        glBindRenderbuffer(GL_RENDERBUFFER, depth);
        glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT32F, width, height);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, color);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth);
        if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
            error = "the float framebuffer of " + std::to_string(width) + " x " +
                    std::to_string(height) + " is not complete";
            targetWidth = targetHeight = 0;
            return false;
        }
        targetWidth = width;
        targetHeight = height;
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
            glGenBuffers(4, mesh.buffers);
        }
        glBindVertexArray(mesh.vao);
        auto attribute = [&](int index, GLuint buffer, const void* values, size_t bytes, int size) {
            glBindBuffer(GL_ARRAY_BUFFER, buffer);
            glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(bytes), values, GL_STATIC_DRAW);
            glVertexAttribPointer(GLuint(index), size, GL_FLOAT, GL_FALSE, 0, nullptr);
            glEnableVertexAttribArray(GLuint(index));
        };
        attribute(0, mesh.buffers[0], data.positions.data(), data.positions.size() * 12, 3);
        attribute(1, mesh.buffers[1], data.normals.data(), data.normals.size() * 12, 3);
        mesh.hasColors = data.colors.size() == data.positions.size() && !data.colors.empty();
        if (mesh.hasColors) {
            attribute(2, mesh.buffers[2], data.colors.data(), data.colors.size() * 16, 4);
        } else {
            glDisableVertexAttribArray(2);
            glVertexAttrib4f(2, 1, 1, 1, 1);
        }
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, mesh.buffers[3]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(data.indices.size() * 4),
                     data.indices.data(), GL_STATIC_DRAW);
        mesh.count = GLsizei(data.indices.size());
        return mesh;
    }

    // Forgets meshes whose geometry nobody else holds.
    void prune() {
        for (auto it = meshes.begin(); it != meshes.end();) {
            if (it->second.keep->getRefCount() == 1) {
                glDeleteVertexArrays(1, &it->second.vao);
                glDeleteBuffers(4, it->second.buffers);
                it = meshes.erase(it);
            } else {
                ++it;
            }
        }
    }

    void drawBackground(const osg::UberViewport& viewport, float vOffset, float vScale) {
        osg::Color4f bottom{0, 0, 0, 1}, top{0, 0, 0, 1};
        if (const osg::Background* b = viewport.getBackground().get()) {
            bottom = b->colorAt(0.0f);
            top = b->colorAt(1.0f);
        }
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_BLEND);
        glUseProgram(background);
        glUniform4f(glGetUniformLocation(background, "bottomColor"), bottom.r, bottom.g, bottom.b,
                    bottom.a);
        glUniform4f(glGetUniformLocation(background, "topColor"), top.r, top.g, top.b, top.a);
        glUniform1f(glGetUniformLocation(background, "vOffset"), vOffset);
        glUniform1f(glGetUniformLocation(background, "vScale"), vScale);
        glBindVertexArray(emptyVao);
        glDrawArrays(GL_TRIANGLES, 0, 3);
    }

    void drawScene(const std::vector<DrawItem>& items, const Lights& lights,
                   const osg::Matrix& viewProjection, const osg::Pnt3f& eye) {
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(GL_LESS);
        glEnable(GL_BLEND);
        // Colour over what lies behind by the surface's opacity; alpha: covered.
        glBlendFuncSeparate(GL_SRC1_ALPHA, GL_ONE_MINUS_SRC1_ALPHA, GL_ONE, GL_ZERO);
        glUseProgram(surface);
        uniformMatrix(surface, "viewProjection", viewProjection);
        glUniform3f(glGetUniformLocation(surface, "eye"), eye.x, eye.y, eye.z);
        glUniform3f(glGetUniformLocation(surface, "ambient"), lights.ambient.r, lights.ambient.g,
                    lights.ambient.b);
        const int directional = int(std::min<size_t>(lights.directions.size(), 8));
        const int point = int(std::min<size_t>(lights.positions.size(), 8));
        glUniform1i(glGetUniformLocation(surface, "directionalCount"), directional);
        glUniform1i(glGetUniformLocation(surface, "pointCount"), point);
        if (directional) {
            glUniform3fv(glGetUniformLocation(surface, "directionalDirection"), directional,
                         &lights.directions[0].x);
            glUniform3fv(glGetUniformLocation(surface, "directionalColor"), directional,
                         &lights.directionalColors[0].r);
        }
        if (point) {
            glUniform3fv(glGetUniformLocation(surface, "pointPosition"), point,
                         &lights.positions[0].x);
            glUniform3fv(glGetUniformLocation(surface, "pointColor"), point,
                         &lights.pointColors[0].r);
        }
        // Opaque surfaces first, then the see-through ones over them.
        for (int pass = 0; pass < 2; ++pass) {
            for (const DrawItem& item : items) {
                const osg::SimpleMaterial* material =
                    osg::resolveSimpleMaterial(item.geometry->getMaterial().get());
                const float opacity = material ? material->opacity : 1.0f;
                if ((opacity < 1.0f) != (pass == 1))
                    continue;
                Mesh& mesh = upload(item.geometry);
                uniformMatrix(surface, "model", item.world);
                osg::Matrix inverse;
                item.world.invert(inverse);
                float normalMatrix[9];
                for (int r = 0; r < 3; ++r)
                    for (int c = 0; c < 3; ++c)
                        normalMatrix[r * 3 + c] = inverse.m[c][r]; // inverse transpose
                glUniformMatrix3fv(glGetUniformLocation(surface, "normalMatrix"), 1, GL_TRUE,
                                   normalMatrix);
                const osg::Color3f base =
                    material ? material->baseColor : osg::Color3f{0.8f, 0.8f, 0.8f};
                const osg::Color3f glow = material ? material->emission : osg::Color3f{};
                glUniform3f(glGetUniformLocation(surface, "baseColor"), base.r, base.g, base.b);
                glUniform3f(glGetUniformLocation(surface, "emission"), glow.r, glow.g, glow.b);
                glUniform1f(glGetUniformLocation(surface, "metallic"),
                            material ? material->metallic : 0.0f);
                glUniform1f(glGetUniformLocation(surface, "roughness"),
                            material ? material->roughness : 0.5f);
                glUniform1f(glGetUniformLocation(surface, "opacity"), opacity);
                glUniform1i(glGetUniformLocation(surface, "useVertexColor"), mesh.hasColors);
                glBindVertexArray(mesh.vao);
                glDrawElements(GL_TRIANGLES, mesh.count, GL_UNSIGNED_INT, nullptr);
            }
        }
    }
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
    // framebuffer, read-back and sum take 36 bytes a pixel.
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
    error.clear();
    kaGLPlatform* platform = kaGLPlatform::instance(error);
    if (!platform || !platform->makeCurrent(error))
        return false;
    if (!_impl)
        _impl = new Impl();
    if (!_impl->init(error))
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
    const int cell = getMaxPieceSize();
    const int firstCellX = x0 / cell, firstCellY = y0 / cell;
    const int lastCellX = (x0 + width - 1) / cell, lastCellY = (y0 + height - 1) / cell;
    std::vector<float> sum, pixels;
    auto callback = viewport.getEventProcessingCB();
    bool stopped = false;
    glEnable(GL_SCISSOR_TEST);
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
            if (!_impl->target(cellW, cellH, error)) {
                glDisable(GL_SCISSOR_TEST);
                return false;
            }
            osg::Matrix toCell;
            if (!shiftViewport) {
                toCell.m[0][0] = float(fullWidth) / float(cellW);
                toCell.m[0][3] = float(fullWidth - 2 * cellLeft - cellW) / float(cellW);
                toCell.m[1][1] = float(fullHeight) / float(cellH);
                toCell.m[1][3] = float(fullHeight - 2 * cellBottom - cellH) / float(cellH);
            }
            sum.assign(size_t(pw) * size_t(ph) * 4, 0.0f);
            pixels.resize(sum.size());
            int made = 0;
            for (int k = first; k < last && !stopped; ++k) {
                float dx, dy;
                sampleOffset(k, dx, dy);
                // The sample's offset in pixels of the whole picture, the same for every region.
                const osg::Matrix jitter = osg::Matrix::translation(
                    2.0f * dx / float(fullWidth), 2.0f * dy / float(fullHeight), 0.0f);
                glBindFramebuffer(GL_FRAMEBUFFER, _impl->framebuffer);
                if (shiftViewport)
                    glViewport(-cellLeft, -cellBottom, fullWidth, fullHeight);
                else
                    glViewport(0, 0, cellW, cellH);
                glScissor(left - cellLeft, bottom - cellBottom, pw, ph);
                glClearColor(0, 0, 0, 0);
                glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
                // Fragment rows count in the framebuffer, which starts at the cell's bottom row.
                _impl->drawBackground(viewport, float(cellBottom) / float(fullHeight),
                                      1.0f / float(fullHeight));
                _impl->drawScene(items, lights, toCell * jitter * projection * viewing, eye);
                glPixelStorei(GL_PACK_ALIGNMENT, 1);
                glReadPixels(left - cellLeft, bottom - cellBottom, pw, ph, GL_RGBA, GL_FLOAT,
                             pixels.data());
                for (size_t i = 0; i < sum.size(); ++i)
                    sum[i] += pixels[i];
                ++made;
                if (callback)
                    stopped = !callback(0, 0, lastPiece, viewport.getEventProcessingContext());
            }
            const float scale = 1.0f / float(std::max(made, 1));
            for (float& v : sum)
                v *= scale;
            sink(left - x0, bottom - y0, pw, ph, sum.data());
        }
    }
    glDisable(GL_SCISSOR_TEST);
    _impl->prune();
    return !stopped;
}
