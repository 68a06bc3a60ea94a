// Cost of writing through the scene graph's image file types (bottom-up flip, format
// preparation, temporary file and rename) against OpenImageIO writing the same pixels
// directly. Prints "ratio" = file type / direct for each format, measured in this run.
#include "OSGImage.h"
#include "OSGImageFileHandler.h"

#include <OpenImageIO/imageio.h>

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <chrono>
#include <cstdio>
#include <string>

namespace {

osg::ImagePtr makeImage(int32_t type, int size) {
    osg::ImagePtr image = osg::Image::create();
    image->set(osg::Image::OSG_RGBA_PF, size, size, 1, 1, 1, 0.0, nullptr, type);
    uint8_t* data = image->getData();
    for (size_t i = 0; i < image->getSize(); ++i)
        data[i] = uint8_t((i * 2654435761u) >> 13);
    if (type == osg::Image::OSG_FLOAT32_IMAGEDATA) {
        auto* f = reinterpret_cast<float*>(data);
        for (size_t i = 0; i < image->getSize() / 4; ++i)
            f[i] = float(i % 1021) / 1021.0f;
    }
    return image;
}

OIIO::TypeDesc oiioType(int32_t type) {
    return type == osg::Image::OSG_FLOAT32_IMAGEDATA ? OIIO::TypeDesc::FLOAT
                                                     : OIIO::TypeDesc::UINT8;
}

double writeDirect(const osg::ImagePtr& image, const std::string& name) {
    auto start = std::chrono::steady_clock::now();
    auto out = OIIO::ImageOutput::create(name);
    OIIO::ImageSpec spec(image->getWidth(), image->getHeight(), 4, oiioType(image->getDataType()));
    // The file types write pixels as they are; so does this path.
    spec.attribute("oiio:UnassociatedAlpha", 1);
    out->open(name, spec);
    out->write_image(oiioType(image->getDataType()), image->getData());
    out->close();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double writeFileType(const osg::ImagePtr& image, const std::string& name) {
    auto start = std::chrono::steady_clock::now();
    osg::ImageFileHandler::the().write(image, name.c_str());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_FileTypeOverWrite(benchmark::State& state, const char* suffix, int32_t type) {
    QTemporaryDir dir;
    osg::ImagePtr image = makeImage(type, int(state.range(0)));
    std::string direct = dir.filePath(QString("direct.") + suffix).toStdString();
    std::string viaType = dir.filePath(QString("type.") + suffix).toStdString();
    double directTime = 0.0, typeTime = 0.0;
    for (auto _ : state) {
        // Interleaved so that both see the same machine load.
        directTime += writeDirect(image, direct);
        typeTime += writeFileType(image, viaType);
    }
    state.counters["ratio"] = typeTime / directTime;
}

} // namespace

BENCHMARK_CAPTURE(BM_FileTypeOverWrite, png_uint8, "png", osg::Image::OSG_UINT8_IMAGEDATA)
    ->Arg(2048)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(BM_FileTypeOverWrite, exr_float, "exr", osg::Image::OSG_FLOAT32_IMAGEDATA)
    ->Arg(2048)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(BM_FileTypeOverWrite, tif_uint8, "tif", osg::Image::OSG_UINT8_IMAGEDATA)
    ->Arg(2048)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

BENCHMARK_MAIN();
