#pragma once

#include "OSGBaseTypes.h"
#include "OSGMatrix.h"

#include <cstdint>
#include <vector>

// The triangles of a large mesh put in order along a space-filling curve and cut into chunks
// of neighbours, each with its bounds, so that a piece of a large picture draws only the
// chunks its frustum can see instead of the whole mesh again and again. Small meshes keep their
// order in one chunk.
class kaGLMeshChunks {
public:
    static constexpr uint32_t kTrianglesPerChunk = 4096;

    struct Chunk {
        uint32_t firstIndex = 0;
        uint32_t indexCount = 0;
        osg::Pnt3f low, high;
    };

    // Reorders 'indices' (three per triangle) in place when the mesh is large, and cuts it.
    // The vertices are then renumbered in the order the triangles first use them, so that a
    // chunk's vertices lie together too: getVertexOrder() gives, for each new number, the old
    // one (empty when nothing was reordered).
    void build(const std::vector<osg::Pnt3f>& positions, std::vector<uint32_t>& indices);
    const std::vector<uint32_t>& getVertexOrder() const { return _vertexOrder; }
    const std::vector<Chunk>& getChunks() const { return _chunks; }
    const Chunk& getBounds() const { return _all; }

    // The runs of consecutive chunks that 'objectToClip' (row-major, column vectors) may show
    // inside clip space widened by 'margin' (in normalised device units): index counts and
    // byte offsets into the index buffer, for one multi-draw.
    void visibleRuns(const osg::Matrix& objectToClip, float margin, std::vector<int>& counts,
                     std::vector<const void*>& offsets) const;

    // False only when the box lies wholly beyond one side of the widened clip volume.
    static bool boxVisible(const osg::Matrix& objectToClip, const osg::Pnt3f& low,
                           const osg::Pnt3f& high, float margin);

private:
    std::vector<Chunk> _chunks;
    Chunk _all;
    std::vector<uint32_t> _vertexOrder;
};
