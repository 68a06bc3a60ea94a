#include "kaGLMeshChunks.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>

namespace {

// Spreads the low 10 bits of v to every third bit.
uint32_t spread(uint32_t v) {
    v &= 0x3ff;
    v = (v | (v << 16)) & 0x030000ff;
    v = (v | (v << 8)) & 0x0300f00f;
    v = (v | (v << 4)) & 0x030c30c3;
    v = (v | (v << 2)) & 0x09249249;
    return v;
}

void grow(kaGLMeshChunks::Chunk& box, const osg::Pnt3f& p) {
    box.low = {std::min(box.low.x, p.x), std::min(box.low.y, p.y), std::min(box.low.z, p.z)};
    box.high = {std::max(box.high.x, p.x), std::max(box.high.y, p.y), std::max(box.high.z, p.z)};
}

kaGLMeshChunks::Chunk emptyBox() {
    kaGLMeshChunks::Chunk box;
    const float big = std::numeric_limits<float>::max();
    box.low = {big, big, big};
    box.high = {-big, -big, -big};
    return box;
}

// The triangles in the order of their codes, those of equal codes in their own order: a
// radix sort of the 30-bit codes, 10 bits a pass (a comparison sort of a million triangles
// takes several times as long).
std::vector<uint32_t> sortedByCode(const std::vector<uint32_t>& codes) {
    const size_t n = codes.size();
    std::vector<uint32_t> order(n), next(n);
    std::iota(order.begin(), order.end(), 0u);
    constexpr int kBits = 10;
    constexpr uint32_t kMask = (1u << kBits) - 1;
    std::vector<size_t> start(size_t(1) << kBits);
    for (int shift = 0; shift < 30; shift += kBits) {
        std::fill(start.begin(), start.end(), 0);
        for (uint32_t code : codes)
            ++start[(code >> shift) & kMask];
        size_t sum = 0;
        for (size_t& count : start)
            sum += std::exchange(count, sum);
        for (uint32_t t : order)
            next[start[(codes[t] >> shift) & kMask]++] = t;
        order.swap(next);
    }
    return order;
}

} // namespace

void kaGLMeshChunks::build(const std::vector<osg::Pnt3f>& positions,
                           std::vector<uint32_t>& indices) {
    _chunks.clear();
    _vertexOrder.clear();
    _all = emptyBox();
    const size_t triangles = indices.size() / 3;
    for (uint32_t index : indices)
        if (index < positions.size())
            grow(_all, positions[index]);
    _all.firstIndex = 0;
    _all.indexCount = uint32_t(triangles * 3);
    if (triangles <= 2 * size_t(kTrianglesPerChunk)) {
        _chunks.push_back(_all);
        return;
    }

    // Morton codes of the triangles' centres in the mesh's bounds, 10 bits an axis.
    const float sx = 1023.0f / std::max(_all.high.x - _all.low.x, 1e-30f);
    const float sy = 1023.0f / std::max(_all.high.y - _all.low.y, 1e-30f);
    const float sz = 1023.0f / std::max(_all.high.z - _all.low.z, 1e-30f);
    std::vector<uint32_t> codes(triangles);
    for (size_t t = 0; t < triangles; ++t) {
        float c[3] = {0, 0, 0};
        for (int k = 0; k < 3; ++k) {
            const uint32_t index = indices[t * 3 + size_t(k)];
            if (index >= positions.size())
                continue;
            c[0] += positions[index].x;
            c[1] += positions[index].y;
            c[2] += positions[index].z;
        }
        const auto axis = [](float value, float low, float scale) {
            return uint32_t(std::min(std::max((value / 3.0f - low) * scale, 0.0f), 1023.0f));
        };
        codes[t] = spread(axis(c[0], _all.low.x, sx)) | (spread(axis(c[1], _all.low.y, sy)) << 1) |
                   (spread(axis(c[2], _all.low.z, sz)) << 2);
    }
    const std::vector<uint32_t> order = sortedByCode(codes);
    std::vector<uint32_t> sorted(indices.size());
    for (size_t t = 0; t < triangles; ++t)
        std::copy_n(&indices[size_t(order[t]) * 3], 3, &sorted[t * 3]);
    indices.swap(sorted);

    // Vertices numbered by first use; an index past the positions is left as it is.
    const uint32_t unset = std::numeric_limits<uint32_t>::max();
    std::vector<uint32_t> renumbered(positions.size(), unset);
    _vertexOrder.reserve(positions.size());
    for (uint32_t& index : indices) {
        if (index >= positions.size())
            continue;
        if (renumbered[index] == unset) {
            renumbered[index] = uint32_t(_vertexOrder.size());
            _vertexOrder.push_back(index);
        }
        index = renumbered[index];
    }

    for (size_t first = 0; first < triangles; first += kTrianglesPerChunk) {
        Chunk chunk = emptyBox();
        const size_t count = std::min<size_t>(kTrianglesPerChunk, triangles - first);
        chunk.firstIndex = uint32_t(first * 3);
        chunk.indexCount = uint32_t(count * 3);
        for (size_t i = first * 3; i < (first + count) * 3; ++i)
            if (indices[i] < _vertexOrder.size())
                grow(chunk, positions[_vertexOrder[indices[i]]]);
        _chunks.push_back(chunk);
    }
}

bool kaGLMeshChunks::boxVisible(const osg::Matrix& m, const osg::Pnt3f& low, const osg::Pnt3f& high,
                                float margin) {
    if (low.x > high.x)
        return false; // empty
    // Counts of corners outside each side plane; all eight outside one: invisible. Near and far
    // are left to the clipper: cameras differ in their depth conventions, sides do not.
    int outside[4] = {0, 0, 0, 0};
    const float bound = 1.0f + margin;
    for (int corner = 0; corner < 8; ++corner) {
        const float p[3] = {corner & 1 ? high.x : low.x, corner & 2 ? high.y : low.y,
                            corner & 4 ? high.z : low.z};
        float c[4] = {0, 0, 0, 0};
        for (int r : {0, 1, 3})
            c[r] = m.m[r][0] * p[0] + m.m[r][1] * p[1] + m.m[r][2] * p[2] + m.m[r][3];
        outside[0] += c[0] < -bound * c[3];
        outside[1] += c[0] > bound * c[3];
        outside[2] += c[1] < -bound * c[3];
        outside[3] += c[1] > bound * c[3];
    }
    return std::none_of(outside, outside + 4, [](int n) { return n == 8; });
}

void kaGLMeshChunks::visibleRuns(const osg::Matrix& objectToClip, float margin,
                                 std::vector<int>& counts,
                                 std::vector<const void*>& offsets) const {
    counts.clear();
    offsets.clear();
    if (!boxVisible(objectToClip, _all.low, _all.high, margin))
        return;
    uint32_t runStart = 0, runEnd = 0; // index range of the run being gathered
    for (const Chunk& chunk : _chunks) {
        if (_chunks.size() > 1 && !boxVisible(objectToClip, chunk.low, chunk.high, margin))
            continue;
        if (runEnd != runStart && chunk.firstIndex == runEnd) {
            runEnd += chunk.indexCount;
            continue;
        }
        if (runEnd != runStart) {
            counts.push_back(int(runEnd - runStart));
            offsets.push_back(reinterpret_cast<const void*>(uintptr_t(runStart) * 4));
        }
        runStart = chunk.firstIndex;
        runEnd = chunk.firstIndex + chunk.indexCount;
    }
    if (runEnd != runStart) {
        counts.push_back(int(runEnd - runStart));
        offsets.push_back(reinterpret_cast<const void*>(uintptr_t(runStart) * 4));
    }
}
