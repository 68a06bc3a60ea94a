#pragma once

#include "OSGViewport.h"

#include <functional>
#include <vector>

namespace osg {

// Draws a view's windows once: the roots the view activated. A network window renders one
// frame on its cluster; other windows are drawn by the view's own renderer. GUI thread only.
class RenderAction {
public:
    using LocalDraw = std::function<void(const WindowPtr& window)>;
    explicit RenderAction(LocalDraw drawLocal)
        : _drawLocal(std::move(drawLocal)) {}

    void setRoots(std::vector<WindowPtr> roots) { _roots = std::move(roots); }
    const std::vector<WindowPtr>& getRoots() const { return _roots; }
    // Draws every root in order; what a window throws (a failed cluster) goes to the caller.
    void render();

private:
    LocalDraw _drawLocal;
    std::vector<WindowPtr> _roots;
};

} // namespace osg
