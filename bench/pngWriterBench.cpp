// The PNG writer on every core against OpenImageIO's PNG writer (one core, its default level),
// on the built-in scene rendered with OpenGL at 4096 x 4096 and 8192 x 8192 (RGB, 8 bits, as a
// snapshot writes it). Each iteration writes the same picture with all three, interleaved so
// that they see the same machine load:
//   fast_s, level6_s, oiio_s   seconds to encode into memory (no disk in the way);
//   fast_file_s                the same as a file through the checked path (staged, flushed to
//                              the disk, renamed), as exports write it;
//   fast_MB, level6_MB, oiio_MB  the sizes;
//   speedup_fast, speedup_6    oiio_s / fast_s and oiio_s / level6_s;
//   size_fast, size_6          fast_MB / oiio_MB and level6_MB / oiio_MB;
//   slices_vs_one_stream       level6_MB / one zlib level-6 stream of the same filtered rows
//                              (the cost of compressing in slices; at most 1.05 is the goal).
#include "OSGImage.h"
#include "OSGImageFileHandler.h"
#include "filetypes/OSGPNGImageFileType.h"
#include "filetypes/OSGPNGWriter_p.h"
#include "kaBuiltinScene.h"
#include "kaOSGWidget.h"
#include "kaPreferences.h"
#include "kaSharedOffscreenRender.h"

#include "benchMeasure.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <QTemporaryDir>

#include <chrono>
#include <cstring>
#include <vector>

using benchMeasure::seconds;

namespace {

osg::ImagePtr renderScene(int size) {
    kaOSGWidget view;
    kaOSGWidget::setMainView(&view);
    kaBuiltinScene scene(view);
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGB_PF, size, size);
    {
        kaSharedOffscreenRender renderer(&view, {image}, 0);
        renderer.updateGL();
    }
    kaOSGWidget::setMainView(nullptr);
    return image;
}

// The picture as OpenImageIO's PNG writer makes it from the same pixels, top row first.
size_t encodeWithOIIO(const osg::Image& image, std::vector<uint8_t>& bytes) {
    bytes.clear();
    OIIO::Filesystem::IOVecOutput proxy(bytes);
    auto out = OIIO::ImageOutput::create("png");
    OIIO::ImageSpec spec(image.getWidth(), image.getHeight(), 3, OIIO::TypeDesc::UINT8);
    out->set_ioproxy(&proxy);
    const OIIO::stride_t row = OIIO::stride_t(image.getRowSize());
    out->open("memory.png", spec);
    out->write_image(OIIO::TypeDesc::UINT8, image.getData() + (image.getHeight() - 1) * row,
                     OIIO::AutoStride, -row);
    out->close();
    return bytes.size();
}

size_t encodeWithLevel(const osg::ImagePtr& image, int level, std::vector<uint8_t>& bytes) {
    kaPreferences::getData().set("ImageExport png level", level);
    bytes.clear();
    osg::ImageFileHandler::the().store(image, "image/png", bytes);
    return bytes.size();
}

// One zlib stream of the filtered rows, on one core.
size_t oneStreamSize(const osg::Image& image, int level) {
    const osg::png::FilteredRows rows(image, osg::png::rowFilterFor(level));
    std::vector<uint8_t> filtered(rows.size());
    rows.read(0, filtered.size(), filtered.data());
    uLongf size = compressBound(uLong(filtered.size()));
    std::vector<uint8_t> stream(size);
    compress2(stream.data(), &size, filtered.data(), uLong(filtered.size()), level);
    return size;
}

void BM_PngWriterAgainstOpenImageIO(benchmark::State& state) {
    const int size = int(state.range(0));
    const int fastLevel = osg::PNGImageFileType::compressionLevel();
    osg::ImagePtr image = renderScene(size);
    QTemporaryDir dir;
    const std::string file = dir.filePath("picture.png").toStdString();
    std::vector<uint8_t> bytes;
    double fast = 0, level6 = 0, oiio = 0, fastFile = 0;
    size_t fastSize = 0, level6Size = 0, oiioSize = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        oiioSize = encodeWithOIIO(*image, bytes);
        oiio += seconds(start);
        start = std::chrono::steady_clock::now();
        fastSize = encodeWithLevel(image, fastLevel, bytes);
        fast += seconds(start);
        start = std::chrono::steady_clock::now();
        level6Size = encodeWithLevel(image, 6, bytes);
        level6 += seconds(start);
        kaPreferences::getData().set("ImageExport png level", fastLevel);
        start = std::chrono::steady_clock::now();
        image->write(file.c_str());
        fastFile += seconds(start);
    }
    kaPreferences::getData().set("ImageExport png level", fastLevel);
    const double n = double(state.iterations()), MB = 1048576.0;
    state.counters["fast_level"] = fastLevel;
    state.counters["threads"] = osg::png::deflateThreads();
    state.counters["fast_s"] = fast / n;
    state.counters["fast_file_s"] = fastFile / n;
    state.counters["level6_s"] = level6 / n;
    state.counters["oiio_s"] = oiio / n;
    state.counters["fast_MB"] = double(fastSize) / MB;
    state.counters["level6_MB"] = double(level6Size) / MB;
    state.counters["oiio_MB"] = double(oiioSize) / MB;
    state.counters["speedup_fast"] = oiio / fast;
    state.counters["speedup_6"] = oiio / level6;
    state.counters["size_fast"] = double(fastSize) / double(oiioSize);
    state.counters["size_6"] = double(level6Size) / double(oiioSize);
    state.counters["slices_vs_one_stream"] = double(level6Size) / double(oneStreamSize(*image, 6));
}

} // namespace

BENCHMARK(BM_PngWriterAgainstOpenImageIO)
    ->Arg(4096)
    ->Arg(8192)
    ->Iterations(3)
    ->Unit(benchmark::kSecond);
