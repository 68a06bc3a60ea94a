#include "kaWriteRecord.h"

#include <algorithm>

namespace kaapps {

WriteRecord::WriteRecord()
    : _listener(kaWriteJournal::addListener([this](const kaWriteJournal::Entry& entry) {
        std::lock_guard<std::mutex> lock(_mutex);
        _entries.push_back(entry);
    })) {}

WriteRecord::~WriteRecord() {
    kaWriteJournal::removeListener(_listener);
}

std::vector<kaWriteJournal::Entry> WriteRecord::entries() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _entries;
}

QStringList WriteRecord::written() const {
    QStringList names;
    for (const kaWriteJournal::Entry& entry : entries())
        if (entry.written && !names.contains(QString::fromStdString(entry.fileName)))
            names << QString::fromStdString(entry.fileName);
    return names;
}

bool WriteRecord::hasFailures() const {
    const std::vector<kaWriteJournal::Entry> all = entries();
    return std::any_of(all.begin(), all.end(),
                       [](const kaWriteJournal::Entry& entry) { return !entry.written; });
}

} // namespace kaapps
