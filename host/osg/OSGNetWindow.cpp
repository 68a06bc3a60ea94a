#include "OSGNetWindow.h"

#include <chrono>
#include <cstring>

namespace osg {

namespace {

double secondsNow() {
    using Clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

} // namespace

RefPtr<NetWindow> NetWindow::create() {
    return RefPtr<NetWindow>(new NetWindow());
}

bool NetWindow::isCanceled() {
    if (_canceled || !_cancel)
        return _canceled;
    // The callback pumps the GUI's events: every 50 ms keeps the dialog alive without
    // spending the wait on it.
    const double now = secondsNow();
    if (_lastCancelPoll >= 0.0 && now - _lastCancelPoll < 0.05)
        return false;
    _lastCancelPoll = now;
    _canceled = _cancel();
    return _canceled;
}

void NetWindow::render() {
    _canceled = false;
    _lastCancelPoll = -1.0;
    if (!_transport)
        throw kaClusterClusterWindowException("the cluster window has no render nodes");
    _transport->renderFrame(*this);
}

void NetWindow::waitAllFrames() {
    if (_transport)
        _transport->waitAllFrames(*this);
}

void NetWindow::clearBuffer() {
    std::vector<uint8_t>().swap(_buffer);
    _bufferWidth = _bufferHeight = 0;
    _bufferPasses = 0;
    _bufferOps = 0;
}

size_t NetWindow::getBytesPerPixel() const {
    return (_bufferOps & ImageOpFloat) ? 4 * sizeof(float) : 4;
}

uint8_t* NetWindow::getPassData(int pass) {
    if (_buffer.empty() || pass < 0 || pass >= 64 || !(_bufferPasses & (uint64_t(1) << pass)))
        return nullptr;
    const uint64_t below = pass == 0 ? 0 : (_bufferPasses & ((uint64_t(1) << pass) - 1));
    const size_t slot = size_t(__builtin_popcountll(below));
    const size_t slotBytes = size_t(_bufferWidth) * size_t(_bufferHeight) * getBytesPerPixel();
    return _buffer.data() + slot * slotBytes;
}

void NetWindow::prepareBuffer() {
    const int width = int(getWidth()), height = int(getHeight());
    const uint32_t floatOp = _imageOps & ImageOpFloat;
    if (!_buffer.empty() && width == _bufferWidth && height == _bufferHeight &&
        _renderPasses == _bufferPasses && floatOp == (_bufferOps & ImageOpFloat))
        return;
    _bufferWidth = width;
    _bufferHeight = height;
    _bufferPasses = _renderPasses;
    _bufferOps = floatOp;
    const size_t slots = size_t(__builtin_popcountll(_renderPasses));
    _buffer.assign(slots * size_t(width) * size_t(height) * getBytesPerPixel(), 0);
}

} // namespace osg
