#include "OSGRenderAction.h"

#include "OSGNetWindow.h"

namespace osg {

void RenderAction::render() {
    for (const WindowPtr& root : _roots) {
        if (auto* net = dynamic_cast<NetWindow*>(root.get()))
            net->render();
        else if (_drawLocal)
            _drawLocal(root);
    }
}

} // namespace osg
