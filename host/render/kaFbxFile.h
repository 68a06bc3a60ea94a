#pragma once

#include <QString>

#include <map>
#include <string>

// What Assimp's FBX reader leaves out or gets wrong, read from a binary FBX file itself, by the
// name of the model node concerned.
struct kaFbxFile {
    // Orthographic cameras (which Assimp reads as perspective ones): their "OrthoZoom", the
    // width a landscape picture shows, as Blender writes and reads it.
    std::map<std::string, double> orthographicZooms;

    // Nothing when the file isn't binary FBX or can't be read.
    static kaFbxFile read(const QString& fileName);
};
