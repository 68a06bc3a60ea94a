#pragma once

#include "OSGViewport.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace osg {

class NetWindow;

// What carries a network window's frames to the render nodes and their pictures back (the
// cluster's message passing). The window owns the fields and the buffer; the transport fills
// the buffer's slots for the passes the window asks to copy.
class NetWindowTransport {
public:
    virtual ~NetWindowTransport() = default;
    // Renders one frame (the window's sample of its scene) on the nodes and, for the passes in
    // the window's copy mask, gathers their pixels into the window's buffer. Polls the window's
    // cancel callback while it waits. Throws kaClusterClusterWindowException when a node dies
    // or does not answer in time.
    virtual void renderFrame(NetWindow& window) = 0;
    // Waits until every frame sent has come back (throws as renderFrame does).
    virtual void waitAllFrames(NetWindow& window) = 0;
};

// The master's window of a render cluster: the picture the nodes raytrace, sample after sample,
// gathered into one buffer. The fields say what to render and what to bring back; rendering a
// frame (through the view's render action) sends the scene's changes and the sample to the
// nodes.
//
// The buffer holds one slot per render pass of the RenderPasses mask, in pass order (the
// beauty image, always rendered, first), each width x height pixels, rows bottom-up, four
// channels R, G, B, A: 32-bit floats when the image operations include ImageOpFloat, bytes
// otherwise. GUI thread only.
class NetWindow : public Window {
public:
    // What the master does with the pixels, and how the nodes deliver them.
    enum ImageOp : uint32_t {
        ImageOpQuantize8 = 0x02,          // the picture goes into an 8-bit file
        ImageOpTonemapHDR = 0x04,         // values are tone-mapped for a display
        ImageOpStraightAlpha = 0x08,      // colour is not multiplied by alpha
        ImageOpBottomUp = 0x10,           // rows bottom-up, as OpenGL reads them
        ImageOpPremultipliedAlpha = 0x20, // colour is multiplied by alpha
        ImageOpFloat = 0x80,              // the buffer holds scene-linear floats
    };
    // Reported in RtSample when the nodes started their accumulation over.
    static constexpr int RestartedSample = 0xFFFFFF;

    static RefPtr<NetWindow> create();
    const char* getTypeName() const override { return "NetWindow"; }

    uint64_t getRenderPasses() const { return _renderPasses; }
    void setRenderPasses(uint64_t mask) { _renderPasses = mask | 1u; }
    uint64_t getCopyPasses() const { return _copyPasses; }
    void setCopyPasses(uint64_t mask) { _copyPasses = mask; }
    uint32_t getImageOps() const { return _imageOps; }
    void setImageOps(uint32_t ops) { _imageOps = ops; }
    uint32_t getPixelFormat() const { return _pixelFormat; }
    void setPixelFormat(uint32_t format) { _pixelFormat = format; }
    uint32_t getDebug() const { return _debug; }
    void setDebug(uint32_t debug) { _debug = debug; }
    bool getOpenGL() const { return _openGL; }
    void setOpenGL(bool on) { _openGL = on; }
    int getDownscale() const { return _downscale; }
    void setDownscale(int factor) { _downscale = factor; }
    // Snapshot state: the buffer holds the export's picture at the window's size.
    bool getSnapshot() const { return _snapshot; }
    void setSnapshot(bool on) { _snapshot = on; }
    // Whether the next frame brings pixels back (otherwise the nodes only accumulate).
    bool getRendering() const { return _rendering; }
    void setRendering(bool on) { _rendering = on; }
    // The sample the next frame renders; after a frame, RestartedSample when the nodes had to
    // start over.
    int getRtSample() const { return _rtSample; }
    void setRtSample(int sample) { _rtSample = sample; }
    bool getIsFinalRtSample() const { return _isFinalRtSample; }
    void setIsFinalRtSample(bool final) { _isFinalRtSample = final; }
    bool getRtFilterOn() const { return _rtFilterOn; }
    void setRtFilterOn(bool on) { _rtFilterOn = on; }
    void setWidth(uint32_t width) { setSize(width, getHeight()); }
    void setHeight(uint32_t height) { setSize(getWidth(), height); }

    // Called while the window waits for the nodes; returning true cancels the frame (the nodes
    // stop). An empty function removes it.
    using CancelCB = std::function<bool()>;
    void setCancelCB(CancelCB callback) { _cancel = std::move(callback); }
    // True when the callback asked to cancel (it is called at most every 50 ms).
    bool isCanceled();

    // Renders one frame on the cluster (see NetWindowTransport::renderFrame).
    void render();
    // Waits for every frame sent to the nodes.
    void waitAllFrames();

    // Empties the buffer (no pixels until the next frame that copies).
    void clearBuffer();
    // The gathered picture (see the class comment); null when empty.
    uint8_t* getBuffer() { return _buffer.empty() ? nullptr : _buffer.data(); }
    const uint8_t* getBuffer() const { return _buffer.empty() ? nullptr : _buffer.data(); }
    int getBufferWidth() const { return _bufferWidth; }
    int getBufferHeight() const { return _bufferHeight; }
    // Bytes of one pixel of one slot (16 for float pixels, 4 for bytes).
    size_t getBytesPerPixel() const;
    // Where the slot of 'pass' begins; null when the pass is not in the buffer.
    uint8_t* getPassData(int pass);
    // Sizes the buffer for the window's size and passes and pixel type (kept when they match).
    void prepareBuffer();

    void setTransport(std::shared_ptr<NetWindowTransport> transport) {
        _transport = std::move(transport);
    }

    // The viewport whose scene, camera and background the nodes render.
    const UberViewportPtr& getClusterViewport() const { return _viewport; }
    void setClusterViewport(const UberViewportPtr& viewport) { _viewport = viewport; }

private:
    NetWindow() = default;

    uint64_t _renderPasses = 1, _copyPasses = 1;
    uint32_t _imageOps = 0, _pixelFormat = 0, _debug = 0;
    bool _openGL = false, _snapshot = false, _rendering = false;
    int _downscale = 1, _rtSample = 0;
    bool _isFinalRtSample = false, _rtFilterOn = false;
    CancelCB _cancel;
    double _lastCancelPoll = -1.0;
    bool _canceled = false;
    std::vector<uint8_t> _buffer;
    int _bufferWidth = 0, _bufferHeight = 0;
    uint64_t _bufferPasses = 0;
    uint32_t _bufferOps = 0;
    std::shared_ptr<NetWindowTransport> _transport;
    UberViewportPtr _viewport;
};
using NetWindowPtr = RefPtr<NetWindow>;

} // namespace osg

// What the cluster throws when a node fails: it died, or did not answer within the time the
// cluster allows.
class kaClusterClusterWindowException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
