#include "kaGLInfo.h"

#include "kaGLPlatform.h"
#include "kaGLSceneRenderer.h"

#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <atomic>
#include <cstring>

namespace {
std::atomic<int> g_videoMemorySetting{0};
}

void kaGLInfo::setVideoMemorySizeMB(int megabytes) {
    g_videoMemorySetting = std::max(megabytes, 0);
}

int kaGLInfo::getVideoMemorySizeMB() {
    if (const int set = g_videoMemorySetting)
        return set;
    std::string error;
    kaGLPlatform* platform = kaGLPlatform::instance(error);
    if (!platform || !platform->makeCurrent(error))
        return 0;
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    for (GLint i = 0; i < count; ++i) {
        const char* name = reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, GLuint(i)));
        if (name && std::strcmp(name, "GL_NVX_gpu_memory_info") == 0) {
            GLint kb = 0;
            glGetIntegerv(0x9047 /* GL_GPU_MEMORY_INFO_DEDICATED_VIDMEM_NVX */, &kb);
            return kb / 1024;
        }
        if (name && std::strcmp(name, "GL_ATI_meminfo") == 0) {
            // Free memory of the texture pool, the first of four values, in kB.
            GLint kb[4] = {0, 0, 0, 0};
            glGetIntegerv(0x87FC /* GL_TEXTURE_FREE_MEMORY_ATI */, kb);
            return kb[0] / 1024;
        }
    }
    return 0;
}

int kaGLInfo::getMaxTextureSize() {
    return kaGLSceneRenderer::the().getMaxTextureSize();
}
