#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// The raytracer's Cryptomatte passes. Layered files written while the metadata is static get
// the Cryptomatte header attributes of the last render; the flags say how the metadata is
// kept. Thread-safe.
//
// A kind ("cryptoObject", "cryptoMaterial") names both the passes ("<kind>00", "<kind>01", ...)
// and the set of names whose ids they hold.
class kaRTCryptomatte {
public:
    // 'isStatic': keep the metadata of the last render for the files written next;
    // 'withManifest': include the manifest of names. Turning it on makes layered files ask
    // headerAttributes() for their header.
    static void setStaticMetadata(bool isStatic, bool withManifest);
    static bool isStaticMetadata();
    static bool hasManifest();

    // MurmurHash3_x86_32 of the name's bytes, seed 0.
    static uint32_t hashName(const std::string& name);
    // The hash as a pass value: its bits with the exponent moved off 0 and 255, so that every
    // id is a normal finite float that survives compositing tools.
    static float idOf(uint32_t hash);
    static float idOfName(const std::string& name);
    // An id's bits: what the manifest lists (in hex) and what ids are told apart by.
    static uint32_t idBits(float id);
    // The 7 hex digits that key a kind's header attributes.
    static std::string manifestKey(const std::string& kind);

    // The names the last render saw for 'kind'; duplicates are dropped.
    static void setRenderedNames(const std::string& kind, std::vector<std::string> names);
    // What setRenderedNames kept for 'kind' (sorted, without duplicates).
    static std::vector<std::string> getRenderedNames(const std::string& kind);
    // The header attributes of every kind whose first pass "<kind>00" is in 'layerNames': name,
    // hash, conversion and, with hasManifest(), the manifest of the last render's names. Empty
    // unless the metadata is static.
    static std::vector<std::pair<std::string, std::string>>
    headerAttributes(const std::vector<std::string>& layerNames);
};
