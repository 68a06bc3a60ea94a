#pragma once

#include "OSGGeometry.h"
#include "OSGMatrix.h"

#include <vector>

// The lights a scene is shown with when it brings none of its own (every OBJ, STL and PLY
// file, most glTF and FBX files): a headlight that shines from the camera along its view and
// a soft environment, as interactive viewers light a model. Both renderers add them, so that
// OpenGL and the raytracer show such a scene alike. The "Headlight" preference says when:
// 0 only for a scene without lights (the default), 1 always, 2 never.
namespace kaDefaultLights {

enum class Use { WithoutSceneLights = 0, Always = 1, Never = 2 };

Use use();
void setUse(Use use);

// Whether the rig lights a scene that brings 'sceneLights' lights of its own.
bool applies(size_t sceneLights);

// The rig for a camera whose world-to-eye matrix is 'viewing'.
std::vector<osg::WorldLight> rig(const osg::Matrix& viewing);

} // namespace kaDefaultLights
