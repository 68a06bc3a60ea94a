#include "kaRTCryptomatte.h"

#include "OSGImageFileType.h"

#include <murmurhash.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

namespace {

struct State {
    std::mutex mutex;
    bool isStatic = false;
    bool withManifest = false;
    // Kind -> sorted, unique names of the last render. Both kinds of the raytracer are always
    // known, so that their passes get attributes even before the first render.
    std::map<std::string, std::vector<std::string>> names{{"cryptoMaterial", {}},
                                                          {"cryptoObject", {}}};
};

State& state() {
    static State s;
    return s;
}

std::string hex8(uint32_t value) {
    char text[9];
    std::snprintf(text, sizeof text, "%08x", value);
    return text;
}

void appendJsonString(std::string& out, const std::string& text) {
    out += '"';
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char escaped[7];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", u);
            out += escaped;
        } else {
            // UTF-8 passes through: JSON text is UTF-8.
            out += c;
        }
    }
    out += '"';
}

// The manifest maps each name to the hex of its id's bits: readers match pass values against
// these, so a hash whose exponent was moved is listed as moved.
std::string manifestOf(const std::vector<std::string>& names) {
    std::string json = "{";
    for (const std::string& name : names) {
        if (json.size() > 1)
            json += ',';
        appendJsonString(json, name);
        json += ':';
        json += '"' + hex8(kaRTCryptomatte::idBits(kaRTCryptomatte::idOfName(name))) + '"';
    }
    json += '}';
    return json;
}

} // namespace

void kaRTCryptomatte::setStaticMetadata(bool isStatic, bool withManifest) {
    {
        State& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        s.isStatic = isStatic;
        s.withManifest = withManifest;
    }
    // Installing the same function again changes nothing; it answers nothing while the
    // metadata isn't static, so turning that off needn't remove it.
    if (isStatic)
        osg::ImageFileType::setLayeredAttributesProvider(&kaRTCryptomatte::headerAttributes);
}

bool kaRTCryptomatte::isStaticMetadata() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.isStatic;
}

bool kaRTCryptomatte::hasManifest() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.withManifest;
}

uint32_t kaRTCryptomatte::hashName(const std::string& name) {
    // MurmurHash3 (32-bit, seed 0) of the name's bytes, as other renderers and compositors
    // hash Cryptomatte names.
    uint32_t hash = 0;
    lmmh_x86_32(name.data(), unsigned(name.size()), 0, &hash);
    return hash;
}

float kaRTCryptomatte::idOf(uint32_t hash) {
    const uint32_t exponent = (hash >> 23) & 0xff;
    if (exponent == 0 || exponent == 255)
        hash ^= 1u << 23;
    float id;
    std::memcpy(&id, &hash, sizeof id);
    return id;
}

float kaRTCryptomatte::idOfName(const std::string& name) {
    return idOf(hashName(name));
}

uint32_t kaRTCryptomatte::idBits(float id) {
    uint32_t bits;
    std::memcpy(&bits, &id, sizeof bits);
    return bits;
}

std::string kaRTCryptomatte::manifestKey(const std::string& kind) {
    return hex8(hashName(kind)).substr(0, 7);
}

void kaRTCryptomatte::setRenderedNames(const std::string& kind, std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.names[kind] = std::move(names);
}

std::vector<std::string> kaRTCryptomatte::getRenderedNames(const std::string& kind) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    const auto it = s.names.find(kind);
    return it == s.names.end() ? std::vector<std::string>() : it->second;
}

std::vector<std::pair<std::string, std::string>>
kaRTCryptomatte::headerAttributes(const std::vector<std::string>& layerNames) {
    std::vector<std::pair<std::string, std::string>> attributes;
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.isStatic)
        return attributes;
    for (const auto& [kind, names] : s.names) {
        if (std::find(layerNames.begin(), layerNames.end(), kind + "00") == layerNames.end())
            continue;
        const std::string prefix = "cryptomatte/" + manifestKey(kind) + "/";
        attributes.emplace_back(prefix + "name", kind);
        attributes.emplace_back(prefix + "hash", "MurmurHash3_32");
        attributes.emplace_back(prefix + "conversion", "uint32_to_float32");
        if (s.withManifest)
            attributes.emplace_back(prefix + "manifest", manifestOf(names));
    }
    return attributes;
}
