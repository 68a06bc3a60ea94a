#include "WriteImageTask.h"

#include "OSGExternalThread.h"
#include "kaImageWriter.h"
#include "kaThreadPool.h"

#include <atomic>
#include <cstdio>

namespace {
// Numbers the units of all tasks; used only to name their threads.
std::atomic<int64_t> g_sequence{0};
} // namespace

WriteImageTask::WriteImageTask(kaImageWriter* writer, float dpi, bool addSignature)
    : _writer(writer)
    , _dpi(dpi)
    , _addSignature(addSignature) {}

void WriteImageTask::addImage(osg::ImagePtr image, std::string fileName, std::string type,
                              bool keepFloat) {
    _units.push_back({std::move(image), std::move(fileName), std::move(type), keepFloat});
}

int WriteImageTask::write() {
    kaThreadPool pool(-1, nullptr);
    for (Unit& unit : _units) {
        const int64_t sequence = g_sequence++;
        // Each unit holds its image, names and flags by value; the image goes when it ends.
        pool.run([sequence, task = this, image = std::move(unit.image),
                  fileName = std::move(unit.fileName), type = std::move(unit.type),
                  keepFloat = unit.keepFloat]() mutable {
            osg::ExternalThreadRefPtr thread =
                osg::ExternalThread::attachCurrentThread("imagewriter" + std::to_string(sequence));
            if (!task->_writer->saveImage(image, fileName.c_str(), type.c_str(),
                                          task->_addSignature, keepFloat, true, task->_dpi, false,
                                          true, nullptr))
                task->_status.fetch_or(WriteFailed);
            image = nullptr;
            thread = nullptr;
        });
    }
    _units.clear();
    pool.wait();
    return _status.load();
}
