#pragma once

#include <QString>

#include <map>
#include <string>

// The orthographic cameras of a COLLADA file, which Assimp's reader turns into perspective ones:
// the picture height each shows, in the file's units, by the name of the node that holds it.
// Empty when the file has none or can't be read.
std::map<std::string, float> kaColladaOrthographicHeights(const QString& fileName);
