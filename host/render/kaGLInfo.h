#pragma once

// Facts about the OpenGL the host renders with.
class kaGLInfo {
public:
    // Video memory in MB: the host's own setting when there is one, else what the driver says
    // (NVIDIA and AMD extensions); 0 when nobody says.
    static int getVideoMemorySizeMB();
    // The host's setting (a user who knows the card, a test); 0 lets the driver say again.
    static void setVideoMemorySizeMB(int megabytes);
    // The largest texture (and framebuffer) side in pixels; 0 without OpenGL.
    static int getMaxTextureSize();
};
