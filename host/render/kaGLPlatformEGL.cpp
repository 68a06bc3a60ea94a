// OpenGL without a display: EGL's surfaceless platform (Mesa), falling back to the first EGL
// device. Rendering goes into framebuffer objects, so no surface is needed.
#include "kaGLPlatform.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <mutex>

namespace {

class kaGLPlatformEGL : public kaGLPlatform {
public:
    bool open(std::string& error) {
        auto getPlatformDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
            eglGetProcAddress("eglGetPlatformDisplayEXT"));
        if (getPlatformDisplay)
            _display =
                getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (_display == EGL_NO_DISPLAY && getPlatformDisplay) {
            auto queryDevices = reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(
                eglGetProcAddress("eglQueryDevicesEXT"));
            EGLDeviceEXT device;
            EGLint count = 0;
            if (queryDevices && queryDevices(1, &device, &count) && count > 0)
                _display = getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
        }
        EGLint major = 0, minor = 0;
        if (_display == EGL_NO_DISPLAY || !eglInitialize(_display, &major, &minor)) {
            error = "no EGL display (EGL error " + std::to_string(eglGetError()) + ")";
            return false;
        }
        if (!eglBindAPI(EGL_OPENGL_API)) {
            error = "EGL can't bind OpenGL";
            return false;
        }
        const EGLint contextAttributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                            4,
                                            EGL_CONTEXT_MINOR_VERSION,
                                            5,
                                            EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                            EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                            EGL_NONE};
        _context = eglCreateContext(_display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, contextAttributes);
        if (_context == EGL_NO_CONTEXT) {
            error = "no OpenGL 4.5 core context (EGL error " + std::to_string(eglGetError()) + ")";
            return false;
        }
        return true;
    }

    bool makeCurrent(std::string& error) override {
        if (eglMakeCurrent(_display, EGL_NO_SURFACE, EGL_NO_SURFACE, _context))
            return true;
        error = "can't make the OpenGL context current (EGL error " +
                std::to_string(eglGetError()) + ")";
        return false;
    }

    const char* getName() const override { return "EGL headless"; }

private:
    EGLDisplay _display = EGL_NO_DISPLAY;
    EGLContext _context = EGL_NO_CONTEXT;
};

} // namespace

kaGLPlatform* kaGLPlatform::instance(std::string& error) {
    static std::once_flag once;
    static std::unique_ptr<kaGLPlatformEGL> platform;
    static std::string failure;
    std::call_once(once, [] {
        auto egl = std::make_unique<kaGLPlatformEGL>();
        if (egl->open(failure))
            platform = std::move(egl);
    });
    error = failure;
    return platform.get();
}
