#pragma once

#include <functional>
#include <string>

// Tells whoever listens about every file the host's writers finished or failed to write: a
// command line reports "Wrote ..." for the files that are complete under their final names and
// names the ones that failed, instead of guessing from what lies on the disk.
// Safe from any thread; listeners are called on the writing thread, one at a time.
class kaWriteJournal {
public:
    struct Entry {
        std::string fileName; // the final name
        bool written;         // complete under its final name
        std::string error;    // why not, when not written
    };
    using Listener = std::function<void(const Entry&)>;

    // Returns an id for removeListener.
    static int addListener(Listener listener);
    static void removeListener(int id);
    static void record(const Entry& entry);
};
