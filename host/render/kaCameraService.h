#pragma once

#include "kaKernelServiceFactory.h"
#include "kadObject.h"

#include "OSGNode.h"

#include <mutex>

// The host's cameras: which scene camera the view looks through. Registered with
// kaKernelServiceFactory as "kaCameraService". Thread-safe.
class kaCameraService : public kaKernelService {
public:
    const char* getServiceName() const override { return "kaCameraService"; }

    // The active camera's node as an object handle; invalid when none is active.
    kadObject getActiveCamera() const;
    void setActiveCamera(const osg::NodePtr& cameraNode);

private:
    mutable std::mutex _mutex;
    osg::NodePtr _active;
};
