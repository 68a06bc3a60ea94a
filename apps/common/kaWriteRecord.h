#pragma once

#include "kaWriteJournal.h"

#include <QStringList>

#include <mutex>
#include <vector>

namespace kaapps {

// The files the host's writers finished or failed (kaWriteJournal) while the record lived, from
// whichever thread wrote them.
class WriteRecord {
public:
    WriteRecord();
    ~WriteRecord();
    WriteRecord(const WriteRecord&) = delete;
    WriteRecord& operator=(const WriteRecord&) = delete;

    std::vector<kaWriteJournal::Entry> entries() const;
    // The files complete under their final names, each once, in the order they were finished.
    QStringList written() const;
    bool hasFailures() const;

private:
    mutable std::mutex _mutex;
    std::vector<kaWriteJournal::Entry> _entries;
    int _listener;
};

} // namespace kaapps
