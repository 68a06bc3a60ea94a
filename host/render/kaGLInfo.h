#pragma once

// Facts about the OpenGL the host renders with.
class kaGLInfo {
public:
    // Video memory in MB; 0 when the driver does not say.
    static int getVideoMemorySizeMB();
    // The largest texture (and framebuffer) side in pixels; 0 without OpenGL.
    static int getMaxTextureSize();
};
