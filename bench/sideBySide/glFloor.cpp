// The raw OpenGL floor of a tiled render: the least a program must do to draw a mesh into a
// large picture on this machine's OpenGL. Headless EGL, the mesh uploaded once, a plain
// diffuse shader into an 8-bit framebuffer, one read-back per tile into the picture. Nothing of
// the project is used, so its renderer can be measured against what OpenGL itself costs.
//
//   glFloor MESH SIZE [TILE]   prints "render_s <seconds>" for a SIZE x SIZE picture
#include <EGL/egl.h>
#include <EGL/eglext.h>
#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const char* const kVertex = R"(#version 450 core
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
uniform mat4 viewProjection;
out vec3 worldNormal;
void main() {
    worldNormal = normal;
    gl_Position = viewProjection * vec4(position, 1.0);
}
)";

const char* const kFragment = R"(#version 450 core
in vec3 worldNormal;
out vec4 fragColor;
void main() {
    float light = max(dot(normalize(worldNormal), normalize(vec3(0.3, 0.8, 0.5))), 0.0);
    fragColor = vec4(vec3(0.1 + 0.8 * light), 1.0);
}
)";

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "glFloor: %s\n", what.c_str());
    std::exit(1);
}

void openContext() {
    auto getPlatformDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
        eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay)
        fail("no eglGetPlatformDisplayEXT");
    EGLDisplay display =
        getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr) ||
        !eglBindAPI(EGL_OPENGL_API))
        fail("no EGL display");
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                 4,
                                 EGL_CONTEXT_MINOR_VERSION,
                                 5,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                 EGL_NONE};
    EGLContext context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
    if (context == EGL_NO_CONTEXT ||
        !eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context))
        fail("no OpenGL 4.5 context");
}

GLuint program() {
    auto stage = [](GLenum kind, const char* source) {
        GLuint shader = glCreateShader(kind);
        glShaderSource(shader, 1, &source, nullptr);
        glCompileShader(shader);
        return shader;
    };
    GLuint p = glCreateProgram();
    glAttachShader(p, stage(GL_VERTEX_SHADER, kVertex));
    glAttachShader(p, stage(GL_FRAGMENT_SHADER, kFragment));
    glLinkProgram(p);
    GLint ok = 0;
    glGetProgramiv(p, GL_LINK_STATUS, &ok);
    if (!ok)
        fail("shaders don't link");
    return p;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3)
        fail("usage: glFloor MESH SIZE [TILE]");
    const int size = std::atoi(argv[2]);
    const int tile = argc > 3 ? std::atoi(argv[3]) : 1024;
    Assimp::Importer importer;
    const aiScene* scene =
        importer.ReadFile(argv[1], aiProcess_Triangulate | aiProcess_GenSmoothNormals |
                                       aiProcess_PreTransformVertices);
    if (!scene || scene->mNumMeshes == 0)
        fail(std::string("can't read ") + argv[1]);

    openContext();
    std::vector<float> vertices;
    std::vector<unsigned> indices;
    aiVector3D low(1e30f, 1e30f, 1e30f), high(-1e30f, -1e30f, -1e30f);
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        const aiMesh* mesh = scene->mMeshes[m];
        const unsigned base = unsigned(vertices.size() / 6);
        for (unsigned v = 0; v < mesh->mNumVertices; ++v) {
            const aiVector3D& p = mesh->mVertices[v];
            const aiVector3D n = mesh->mNormals ? mesh->mNormals[v] : aiVector3D(0, 0, 1);
            vertices.insert(vertices.end(), {p.x, p.y, p.z, n.x, n.y, n.z});
            low = aiVector3D(std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z));
            high = aiVector3D(std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z));
        }
        for (unsigned f = 0; f < mesh->mNumFaces; ++f)
            if (mesh->mFaces[f].mNumIndices == 3)
                for (unsigned i = 0; i < 3; ++i)
                    indices.push_back(base + mesh->mFaces[f].mIndices[i]);
    }
    GLuint vao, buffers[2];
    glGenVertexArrays(1, &vao);
    glBindVertexArray(vao);
    glGenBuffers(2, buffers);
    glBindBuffer(GL_ARRAY_BUFFER, buffers[0]);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * 4), vertices.data(), GL_STATIC_DRAW);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 24, nullptr);
    glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<void*>(12));
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers[1]);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(indices.size() * 4), indices.data(),
                 GL_STATIC_DRAW);

    GLuint framebuffer, renderbuffers[2];
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glGenRenderbuffers(2, renderbuffers);
    glBindRenderbuffer(GL_RENDERBUFFER, renderbuffers[0]);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, tile, tile);
    glBindRenderbuffer(GL_RENDERBUFFER, renderbuffers[1]);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, tile, tile);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER,
                              renderbuffers[0]);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER,
                              renderbuffers[1]);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        fail("framebuffer incomplete");

    // The bounding box seen whole from the front, orthographic, as a tiled projection.
    const aiVector3D centre = (low + high) * 0.5f;
    const float radius = (high - low).Length() * 0.5f;
    const GLuint p = program();
    glUseProgram(p);
    glEnable(GL_DEPTH_TEST);
    glClearColor(0.2f, 0.2f, 0.25f, 1.0f);
    std::vector<unsigned char> picture(size_t(size) * size_t(size) * 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_PACK_ROW_LENGTH, size);

    const auto start = std::chrono::steady_clock::now();
    for (int ty = 0; ty < size; ty += tile)
        for (int tx = 0; tx < size; tx += tile) {
            const int w = std::min(tile, size - tx), h = std::min(tile, size - ty);
            // Column-major: the tile's part of [-radius, radius]^2 stretched to clip space.
            const float sx = float(size) / float(w), sy = float(size) / float(h);
            const float ox = float(size - 2 * tx - w) / float(w);
            const float oy = float(size - 2 * ty - h) / float(h);
            const float matrix[16] = {sx / radius,
                                      0,
                                      0,
                                      0,
                                      0,
                                      sy / radius,
                                      0,
                                      0,
                                      0,
                                      0,
                                      -1.0f / radius,
                                      0,
                                      -sx * centre.x / radius + ox,
                                      -sy * centre.y / radius + oy,
                                      centre.z / radius,
                                      1};
            glUniformMatrix4fv(glGetUniformLocation(p, "viewProjection"), 1, GL_FALSE, matrix);
            glViewport(0, 0, w, h);
            glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
            glDrawElements(GL_TRIANGLES, GLsizei(indices.size()), GL_UNSIGNED_INT, nullptr);
            glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE,
                         picture.data() + (size_t(ty) * size_t(size) + size_t(tx)) * 4);
        }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // A picture with nothing drawn would make the floor meaningless.
    size_t lit = 0;
    for (size_t i = 0; i < picture.size(); i += 4)
        lit += picture[i] != picture[0];
    if (lit == 0)
        fail("the mesh drew nothing");
    std::printf("render_s %.4f\n", seconds);
    return 0;
}
