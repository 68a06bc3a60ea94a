// What the checked, durable write costs: the image file types (staged file, every write, flush
// and close checked, fsync of the file and its folder, rename) against OpenImageIO writing the
// same 8192 x 8192 pixels to a file directly, measured in one run, interleaved.
//   ratio      = checked write / plain write (target for PNG, where compression dominates:
//                at most 1.05)
//   fsyncShare = the time of flushing a file of that size and its folder to the disk, as a part
//                of the checked write's time
#include "OSGImage.h"
#include "OSGImageFileHandler.h"

#include "benchMeasure.h"

#include <OpenImageIO/imageio.h>

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <string>

using benchMeasure::seconds;

namespace {

// A picture with the detail of a render: smooth shading with grain, not pure noise.
osg::ImagePtr renderLikeImage(int32_t type, int size) {
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGBA_PF, size, size, 1, 1, 1, 0.0, nullptr, type);
    const bool isFloat = type == osg::Image::OSG_FLOAT32_IMAGEDATA;
    uint8_t* bytes = image->getData();
    auto* floats = reinterpret_cast<float*>(bytes);
    for (size_t y = 0; y < size_t(size); ++y)
        for (size_t x = 0; x < size_t(size); ++x)
            for (size_t c = 0; c < 4; ++c) {
                const size_t i = (y * size_t(size) + x) * 4 + c;
                const float grain = float((i * 2654435761u) >> 28) / 64.0f;
                const float v = c == 3 ? 1.0f : float(x + y * c) / float(2 * size) + grain;
                if (isFloat)
                    floats[i] = v;
                else
                    bytes[i] = uint8_t(std::min(v, 1.0f) * 255.0f);
            }
    return image;
}

double writePlain(const osg::ImagePtr& image, const std::string& name) {
    const auto start = std::chrono::steady_clock::now();
    const OIIO::TypeDesc type = image->getDataType() == osg::Image::OSG_FLOAT32_IMAGEDATA
                                    ? OIIO::TypeDesc::FLOAT
                                    : OIIO::TypeDesc::UINT8;
    auto out = OIIO::ImageOutput::create(name);
    OIIO::ImageSpec spec(image->getWidth(), image->getHeight(), 4, type);
    spec.attribute("oiio:UnassociatedAlpha", 1);
    out->open(name, spec);
    out->write_image(type, image->getData());
    out->close();
    return seconds(start);
}

double writeChecked(const osg::ImagePtr& image, const std::string& name) {
    const auto start = std::chrono::steady_clock::now();
    osg::ImageFileHandler::the().write(image, name.c_str());
    return seconds(start);
}

// What flushing a written file and its folder to the disk takes.
double flushToDisk(const std::string& file, const std::string& folder) {
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& name : {file, folder}) {
        const int fd = ::open(name.c_str(), O_RDONLY);
        if (fd >= 0) {
            ::fsync(fd);
            ::close(fd);
        }
    }
    return seconds(start);
}

void BM_CheckedWriteOverPlainWrite(benchmark::State& state, const char* suffix, int32_t type) {
    QTemporaryDir dir;
    const osg::ImagePtr image = renderLikeImage(type, int(state.range(0)));
    const std::string plain = dir.filePath(QString("plain.") + suffix).toStdString();
    const std::string checked = dir.filePath(QString("checked.") + suffix).toStdString();
    double plainTime = 0.0, checkedTime = 0.0, flushTime = 0.0;
    for (auto _ : state) {
        // Interleaved so that both see the same machine load; a fresh plain file each time, so
        // its pages are as dirty as the checked file's are before their flush.
        ::unlink(plain.c_str());
        plainTime += writePlain(image, plain);
        flushTime += flushToDisk(plain, dir.path().toStdString());
        checkedTime += writeChecked(image, checked);
    }
    state.counters["ratio"] = checkedTime / plainTime;
    state.counters["fsyncShare"] = flushTime / checkedTime;
    state.counters["plain_s"] = plainTime / double(state.iterations());
    state.counters["checked_s"] = checkedTime / double(state.iterations());
}

} // namespace

BENCHMARK_CAPTURE(BM_CheckedWriteOverPlainWrite, png_uint8, "png", osg::Image::OSG_UINT8_IMAGEDATA)
    ->Arg(8192)
    ->Unit(benchmark::kSecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(BM_CheckedWriteOverPlainWrite, exr_float, "exr",
                  osg::Image::OSG_FLOAT32_IMAGEDATA)
    ->Arg(8192)
    ->Unit(benchmark::kSecond)
    ->Iterations(3);

BENCHMARK_MAIN();
