#include "OSGChangeList.h"

namespace osg {

ChangeList* ChangeList::getCurrent() {
    static ChangeList list;
    return &list;
}

void ChangeList::addChanged(const FieldContainerPtr& container, BitVector mask) {
    if (!container)
        return;
    std::lock_guard<std::mutex> lock(_mutex);
    _entries.push_back({container, mask});
}

std::vector<ChangeList::Entry> ChangeList::getChanged() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _entries;
}

BitVector ChangeList::getChangedMask(const FieldContainer* container) const {
    std::lock_guard<std::mutex> lock(_mutex);
    BitVector mask = 0;
    for (const Entry& entry : _entries)
        if (entry.container.get() == container)
            mask |= entry.mask;
    return mask;
}

size_t ChangeList::size() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _entries.size();
}

void ChangeList::clear() {
    std::vector<Entry> old;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        old.swap(_entries);
    }
    // The handles are released outside the lock: a last release may destroy a container.
}

void recordChange(const FieldContainerPtr& container, BitVector mask) {
    ChangeList::getCurrent()->addChanged(container, mask);
}

} // namespace osg
