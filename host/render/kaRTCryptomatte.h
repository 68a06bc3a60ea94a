#pragma once

// The raytracer's Cryptomatte passes. Layered files written while the metadata is static get
// the Cryptomatte header attributes of the last render; the flags say how the metadata is
// kept. Thread-safe.
class kaRTCryptomatte {
public:
    // 'isStatic': keep the metadata of the last render for the files written next;
    // 'withManifest': include the manifest of names.
    static void setStaticMetadata(bool isStatic, bool withManifest);
    static bool isStaticMetadata();
    static bool hasManifest();
};
