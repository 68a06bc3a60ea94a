#include "kaRTCryptoAccumulator.h"

#include "kaRTCryptomatte.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>

namespace {
float floatOf(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}
} // namespace

void kaRTCryptoAccumulator::reset(size_t pixels) {
    if (pixels == 0) {
        _entries.clear();
        _entries.shrink_to_fit();
        return;
    }
    _entries.assign(pixels * kEntriesPerPixel, Entry());
}

void kaRTCryptoAccumulator::add(size_t pixel, float id, float weight) {
    assert(pixel < pixelCount());
    if (!(weight > 0.0f) || !std::isfinite(weight))
        return;
    // Ids compare by their bits: they are hashes, not quantities.
    const uint32_t bits = kaRTCryptomatte::idBits(id);
    Entry* entries = _entries.data() + pixel * kEntriesPerPixel;
    Entry* weakest = entries;
    for (size_t i = 0; i < kEntriesPerPixel; ++i) {
        Entry& entry = entries[i];
        if (entry.weight == 0.0f) {
            entry = {bits, weight};
            return;
        }
        if (entry.idBits == bits) {
            entry.weight += weight;
            return;
        }
        if (entry.weight < weakest->weight)
            weakest = &entry;
    }
    if (weight > weakest->weight)
        *weakest = {bits, weight};
}

void kaRTCryptoAccumulator::resolve(size_t pixel, int layer, float totalWeight,
                                    float rgba[4]) const {
    assert(pixel < pixelCount());
    rgba[0] = rgba[1] = rgba[2] = rgba[3] = 0.0f;
    const size_t first = size_t(layer) * 2;
    if (layer < 0 || first >= kEntriesPerPixel || !(totalWeight > 0.0f))
        return;
    Entry ranked[kEntriesPerPixel];
    size_t used = 0;
    const Entry* entries = _entries.data() + pixel * kEntriesPerPixel;
    while (used < kEntriesPerPixel && entries[used].weight > 0.0f) {
        ranked[used] = entries[used];
        ++used;
    }
    if (first >= used)
        return;
    const size_t wanted = std::min(used, first + 2);
    std::partial_sort(ranked, ranked + wanted, ranked + used, [](const Entry& a, const Entry& b) {
        return a.weight != b.weight ? a.weight > b.weight : a.idBits < b.idBits;
    });
    for (size_t rank = first; rank < wanted; ++rank) {
        float* out = rgba + (rank - first) * 2;
        out[0] = floatOf(ranked[rank].idBits);
        out[1] = ranked[rank].weight / totalWeight;
    }
}
