#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Per-pixel Cryptomatte ranks while the raytracer adds samples: for each pixel the ids it saw
// with their summed sample weights, turned into pass values by resolve().
//
// Each pixel keeps kEntriesPerPixel (id, weight) entries in one flat array (64 bytes a pixel).
// Once a pixel's entries are full, a new id takes the place of the entry with the smallest
// weight only if the new sample's weight is larger than that entry's; otherwise the sample is
// dropped. Established ids thus aren't displaced by single stray samples, while a heavier
// sample still wins. Dropped weight stays in the caller's total, so coverages stay honest
// (they then sum to less than 1).
//
// add() and resolve() for different pixels may run on different threads at once; reset()
// must not run concurrently with either.
class kaRTCryptoAccumulator {
public:
    static constexpr size_t kEntriesPerPixel = 8;

    // 'pixels' empty pixels; earlier samples are dropped.
    void reset(size_t pixels);
    // Adds 'weight' for 'id' to 'pixel'. Weights that aren't positive and finite are ignored.
    void add(size_t pixel, float id, float weight);
    // Pass layer 'layer' of 'pixel': (id, coverage) of ranks 2 * layer and 2 * layer + 1, ranks
    // ordered by coverage = weight / totalWeight, largest first, equal ones by the smaller id
    // bits. Missing ranks are (0, 0).
    void resolve(size_t pixel, int layer, float totalWeight, float rgba[4]) const;
    size_t pixelCount() const { return _entries.size() / kEntriesPerPixel; }

private:
    // An entry with weight 0 is free; used entries come first in a pixel.
    struct Entry {
        uint32_t idBits = 0;
        float weight = 0.0f;
    };
    std::vector<Entry> _entries;
};
