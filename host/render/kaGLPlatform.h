#pragma once

#include <memory>
#include <string>

// Where OpenGL runs: a context the renderer makes current before it draws. The renderer does
// not know which platform it has. Contexts are used on the thread that made them current.
class kaGLPlatform {
public:
    virtual ~kaGLPlatform() = default;
    // False, with the reason in 'error', when no OpenGL 4.5 core context can be made.
    virtual bool makeCurrent(std::string& error) = 0;
    virtual const char* getName() const = 0;

    // The process's platform: headless EGL (no display server needed). Null, with the reason,
    // when the machine has no working EGL.
    static kaGLPlatform* instance(std::string& error);
};
