#pragma once

#include "ImageWriterExport.h"

#include "OSGImage.h"

#include <atomic>
#include <string>
#include <vector>

class kaImageWriter;

// A batch of images written in the background through one writer's saveImage: no viewer, no
// "Couldn't save" line; a failed write sets WriteFailed in the status flags. The task must
// outlive write().
class IMAGEWRITER_EXPORT WriteImageTask {
public:
    static constexpr unsigned char WriteFailed = 2;

    WriteImageTask(kaImageWriter* writer, float dpi, bool addSignature);

    // Queues one image for the next write(); 'type' is the upper-case format name.
    void addImage(osg::ImagePtr image, std::string fileName, std::string type, bool keepFloat);

    // Writes every queued image on a pool of one thread per core, waits for all of them and
    // returns the status flags. The queue is empty afterwards.
    int write();
    unsigned char getStatus() const { return _status.load(); }

private:
    struct Unit {
        osg::ImagePtr image;
        std::string fileName;
        std::string type;
        bool keepFloat;
    };

    kaImageWriter* _writer;
    float _dpi;
    bool _addSignature;
    std::atomic<unsigned char> _status{0};
    std::vector<Unit> _units;
};
