#pragma once

#include "OSGImage.h"
#include "OSGMatrix.h"
#include "OSGNode.h"

// The raytraced direct light on the surfaces of 'scene' (the DiffuseLight pass, linear float
// RGBA), seen from 'cameraPose' through a 30-degree camera into a square picture of 'side';
// null when the render fails. The raytracer and the main view are as before afterwards.
osg::ImagePtr raytracedDiffuseLight(const osg::NodePtr& scene, const osg::Matrix& cameraPose,
                                    int side);
