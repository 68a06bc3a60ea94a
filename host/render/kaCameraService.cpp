#include "kaCameraService.h"

#include "kaQRPCConverter.h"

kadObject kaCameraService::getActiveCamera() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return kadObject(kaQRPCConverter::nodeToId(_active));
}

void kaCameraService::setActiveCamera(const osg::NodePtr& cameraNode) {
    std::lock_guard<std::mutex> lock(_mutex);
    _active = cameraNode;
}
