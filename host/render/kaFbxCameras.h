#pragma once

#include <QString>

#include <map>
#include <string>

// The orthographic cameras of a binary FBX file, which Assimp's reader turns into perspective
// ones: the "OrthoZoom" each has (the width a landscape picture shows, as Blender writes and
// reads it), by the name of the model node that holds it. Empty when the file has none or
// can't be read.
std::map<std::string, double> kaFbxOrthographicZooms(const QString& fileName);
