#include "kaWriteJournal.h"

#include <map>
#include <mutex>

namespace {
std::mutex& journalMutex() {
    static std::mutex m;
    return m;
}
std::map<int, kaWriteJournal::Listener>& listeners() {
    static std::map<int, kaWriteJournal::Listener> l;
    return l;
}
int g_nextId = 1;
} // namespace

int kaWriteJournal::addListener(Listener listener) {
    std::lock_guard<std::mutex> lock(journalMutex());
    const int id = g_nextId++;
    listeners()[id] = std::move(listener);
    return id;
}

void kaWriteJournal::removeListener(int id) {
    std::lock_guard<std::mutex> lock(journalMutex());
    listeners().erase(id);
}

void kaWriteJournal::record(const Entry& entry) {
    // One entry at a time: listeners need no locks of their own.
    std::lock_guard<std::mutex> lock(journalMutex());
    for (auto& [id, listener] : listeners())
        listener(entry);
}
