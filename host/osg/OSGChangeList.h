#pragma once

#include "OSGFieldContainer.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace osg {

using BitVector = uint64_t;

// The changes made to scene-graph objects since the renderers last looked: every change is
// recorded right after it is made (the object and the mask of the fields that changed).
// Renderers read the list and clear it. Thread-safe.
class ChangeList {
public:
    struct Entry {
        FieldContainerPtr container;
        BitVector mask;
    };

    // The list changes are recorded in.
    static ChangeList* getCurrent();

    void addChanged(const FieldContainerPtr& container, BitVector mask);
    std::vector<Entry> getChanged() const;
    // The OR of all masks recorded for 'container' (0 when it did not change).
    BitVector getChangedMask(const FieldContainer* container) const;
    size_t size() const;
    void clear();

private:
    mutable std::mutex _mutex;
    std::vector<Entry> _entries;
};

// Records a change of 'container' in the current change list.
void recordChange(const FieldContainerPtr& container, BitVector mask);

} // namespace osg
