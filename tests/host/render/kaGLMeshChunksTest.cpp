// Large meshes are reordered into chunks of neighbouring triangles without losing or changing a
// triangle, each chunk's bounds hold its triangles, and a frustum keeps exactly the chunks it
// may see.
#include "kaGLMeshChunks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>

namespace {

// A flat grid of n x n quads over [0, n] x [0, n] at z = 0, rows of triangles in order.
void grid(int n, std::vector<osg::Pnt3f>& positions, std::vector<uint32_t>& indices) {
    for (int y = 0; y <= n; ++y)
        for (int x = 0; x <= n; ++x)
            positions.push_back({float(x), float(y), 0.0f});
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const uint32_t a = uint32_t(y * (n + 1) + x), b = a + 1, c = a + uint32_t(n) + 1,
                           d = c + 1;
            indices.insert(indices.end(), {a, b, d, a, d, c});
        }
}

// A triangle by its corner positions, so that renumbered vertices compare as the same.
using Corners = std::array<float, 9>;
std::multiset<Corners> trianglesOf(const std::vector<osg::Pnt3f>& positions,
                                   const std::vector<uint32_t>& indices,
                                   const std::vector<uint32_t>& order) {
    std::multiset<Corners> triangles;
    for (size_t t = 0; t + 2 < indices.size(); t += 3) {
        Corners corners;
        for (int k = 0; k < 3; ++k) {
            const uint32_t index =
                order.empty() ? indices[t + size_t(k)] : order[indices[t + size_t(k)]];
            corners[size_t(k) * 3] = positions[index].x;
            corners[size_t(k) * 3 + 1] = positions[index].y;
            corners[size_t(k) * 3 + 2] = positions[index].z;
        }
        triangles.insert(corners);
    }
    return triangles;
}

// Orthographic: [x0, x1] x [y0, y1] of the plane z = 0 onto clip space.
osg::Matrix window(float x0, float x1, float y0, float y1) {
    osg::Matrix m;
    m.m[0][0] = 2.0f / (x1 - x0);
    m.m[0][3] = -(x1 + x0) / (x1 - x0);
    m.m[1][1] = 2.0f / (y1 - y0);
    m.m[1][3] = -(y1 + y0) / (y1 - y0);
    return m;
}

} // namespace

TEST(kaGLMeshChunks, SmallMeshesKeepTheirOrderInOneChunk) {
    std::vector<osg::Pnt3f> positions;
    std::vector<uint32_t> indices;
    grid(10, positions, indices);
    const std::vector<uint32_t> before = indices;
    kaGLMeshChunks chunks;
    chunks.build(positions, indices);
    EXPECT_EQ(indices, before);
    ASSERT_EQ(chunks.getChunks().size(), 1u);
    EXPECT_TRUE(chunks.getVertexOrder().empty());
    EXPECT_EQ(chunks.getChunks()[0].indexCount, before.size());
}

TEST(kaGLMeshChunks, LargeMeshesKeepEveryTriangleAndBoundEachChunk) {
    std::vector<osg::Pnt3f> positions;
    std::vector<uint32_t> indices;
    grid(200, positions, indices); // 80 000 triangles
    const std::multiset<Corners> before = trianglesOf(positions, indices, {});
    kaGLMeshChunks chunks;
    chunks.build(positions, indices);
    const std::vector<uint32_t>& order = chunks.getVertexOrder();
    ASSERT_EQ(order.size(), positions.size());
    EXPECT_EQ(trianglesOf(positions, indices, order), before);
    EXPECT_EQ(chunks.getChunks().size(), (80000u + kaGLMeshChunks::kTrianglesPerChunk - 1) /
                                             kaGLMeshChunks::kTrianglesPerChunk);
    uint32_t next = 0;
    float area = 0.0f;
    for (const kaGLMeshChunks::Chunk& chunk : chunks.getChunks()) {
        EXPECT_EQ(chunk.firstIndex, next);
        next += chunk.indexCount;
        for (uint32_t i = chunk.firstIndex; i < chunk.firstIndex + chunk.indexCount; ++i) {
            const osg::Pnt3f& p = positions[order[indices[i]]];
            EXPECT_TRUE(p.x >= chunk.low.x && p.x <= chunk.high.x && p.y >= chunk.low.y &&
                        p.y <= chunk.high.y);
        }
        area += (chunk.high.x - chunk.low.x) * (chunk.high.y - chunk.low.y);
    }
    EXPECT_EQ(next, indices.size());
    // Neighbours, not rows across the whole grid: the chunks' boxes tile the grid loosely.
    EXPECT_LT(area, 3.0f * 200.0f * 200.0f);
}

// Triangles in the same spot (here every triangle twice, on vertices of its own) keep the order
// they had, so that coplanar surfaces are drawn as their author ordered them.
TEST(kaGLMeshChunks, TrianglesInTheSameSpotKeepTheirOrder) {
    std::vector<osg::Pnt3f> positions;
    std::vector<uint32_t> indices;
    grid(150, positions, indices); // 45 000 triangles, then each again
    const uint32_t copies = uint32_t(positions.size());
    positions.insert(positions.end(), positions.begin(), positions.end());
    const size_t firsts = indices.size();
    for (size_t i = 0; i < firsts; ++i)
        indices.push_back(indices[i] + copies);
    kaGLMeshChunks chunks;
    chunks.build(positions, indices);
    const std::vector<uint32_t>& order = chunks.getVertexOrder();
    ASSERT_EQ(order.size(), positions.size());
    std::set<Corners> seen;
    size_t firstCopiesFirst = 0;
    for (size_t t = 0; t < indices.size(); t += 3) {
        const std::multiset<Corners> one =
            trianglesOf(positions, {indices[t], indices[t + 1], indices[t + 2]}, order);
        if (seen.insert(*one.begin()).second)
            firstCopiesFirst += order[indices[t]] < copies;
    }
    EXPECT_EQ(seen.size(), firsts / 3);
    EXPECT_EQ(firstCopiesFirst, firsts / 3);
}

TEST(kaGLMeshChunks, AFrustumKeepsTheChunksItMaySeeAndNoOthers) {
    std::vector<osg::Pnt3f> positions;
    std::vector<uint32_t> indices;
    grid(200, positions, indices);
    kaGLMeshChunks chunks;
    chunks.build(positions, indices);
    const std::vector<uint32_t>& order = chunks.getVertexOrder();
    const osg::Matrix corner = window(10, 30, 150, 170);
    std::vector<int> counts;
    std::vector<const void*> offsets;
    chunks.visibleRuns(corner, 0.0f, counts, offsets);
    ASSERT_FALSE(counts.empty());
    std::set<uint32_t> drawn; // first index of each drawn triangle
    size_t total = 0;
    for (size_t r = 0; r < counts.size(); ++r) {
        const uint32_t first = uint32_t(reinterpret_cast<uintptr_t>(offsets[r]) / 4);
        for (uint32_t i = first; i < first + uint32_t(counts[r]); i += 3)
            drawn.insert(i);
        total += size_t(counts[r]);
    }
    EXPECT_LT(total, indices.size() / 4) << "most of the grid lies outside";
    for (size_t t = 0; t < indices.size(); t += 3) {
        bool inside = false;
        for (int k = 0; k < 3; ++k) {
            const osg::Pnt3f& p = positions[order[indices[t + size_t(k)]]];
            inside = inside || (p.x > 10 && p.x < 30 && p.y > 150 && p.y < 170);
        }
        if (inside)
            EXPECT_TRUE(drawn.count(uint32_t(t))) << "a triangle in view was culled";
    }
    chunks.visibleRuns(window(300, 400, 300, 400), 0.0f, counts, offsets);
    EXPECT_TRUE(counts.empty());
}

TEST(kaGLMeshChunks, BoxesBehindOneSideAreInvisibleOthersVisible) {
    const osg::Matrix view = window(-1, 1, -1, 1);
    EXPECT_TRUE(kaGLMeshChunks::boxVisible(view, {-0.5f, -0.5f, 0}, {0.5f, 0.5f, 0}, 0.0f));
    EXPECT_TRUE(kaGLMeshChunks::boxVisible(view, {0.9f, 0.9f, 0}, {5, 5, 0}, 0.0f));
    EXPECT_FALSE(kaGLMeshChunks::boxVisible(view, {1.5f, -0.5f, 0}, {2, 0.5f, 0}, 0.0f));
    EXPECT_FALSE(kaGLMeshChunks::boxVisible(view, {-0.5f, -3, 0}, {0.5f, -1.2f, 0}, 0.0f));
    // The margin widens the frustum.
    EXPECT_TRUE(kaGLMeshChunks::boxVisible(view, {1.05f, 0, 0}, {1.1f, 0.1f, 0}, 0.2f));
}
