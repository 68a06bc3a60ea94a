#include "kaFileIO.h"

#include <mutex>

namespace {
std::mutex g_mutex;
QString g_fileName;
} // namespace

QString kaFileIO::getFilename() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_fileName;
}

void kaFileIO::setFilename(const QString& fileName) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_fileName = fileName;
}
