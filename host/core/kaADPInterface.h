#pragma once

#include "kaInterfaceFactory.h"

// The host's notification of image-render progress to its application framework (a task bar
// or a remote client): told every value of an export's total progress.
class kaADPInterface : public kaInterface {
public:
    virtual void imageRenderTotalProgressChanged(int value) = 0;
};
