// Saving through the library against the plain alternatives, measured in one run:
//   passes_exr: saveImages of 8 float passes as separate EXR files, in parallel, against
//               saveImage of the same passes one by one ("speedup", ideally the core count).
//   png_8bit:   saveImage of an 8-bit PNG against OpenImageIO writing the same pixels
//               ("ratio" = saveImage / plain write; target at most 1.15).
#include "kaImageWriter.h"
#include "kaPreferences.h"

#include <OpenImageIO/imageio.h>

#include "benchMeasure.h"

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <chrono>

using benchMeasure::seconds;

namespace {

osg::ImagePtr noiseImage(uint32_t format, int32_t type, int size, uint32_t seed) {
    osg::ImagePtr image = osg::Image::create();
    image->set(format, size, size, 1, 1, 1, 0.0, nullptr, type);
    uint8_t* data = image->getData();
    if (type == osg::Image::OSG_FLOAT32_IMAGEDATA) {
        auto* f = reinterpret_cast<float*>(data);
        for (size_t i = 0; i < image->getSize() / 4; ++i)
            f[i] = float((i * 2654435761u + seed) % 4099) / 4099.0f;
    } else {
        for (size_t i = 0; i < image->getSize(); ++i)
            data[i] = uint8_t(((i / 3) % size + seed) ^ ((i / 3) / size));
    }
    return image;
}

void BM_SaveImagesPoolVersusOneByOne(benchmark::State& state) {
    const int size = int(state.range(0));
    QTemporaryDir dir;
    kaImageWriter writer;
    std::vector<osg::ImagePtr> passes;
    for (uint32_t i = 0; i < 8; ++i)
        passes.push_back(
            noiseImage(osg::Image::OSG_RGBA_PF, osg::Image::OSG_FLOAT32_IMAGEDATA, size, i));
    double pooled = 0.0, serial = 0.0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        writer.saveImages(passes, dir.filePath("pool.exr").toStdString(), "EXR", false, true, true,
                          72, false, true, nullptr);
        pooled += seconds(start);
        start = std::chrono::steady_clock::now();
        for (size_t i = 0; i < passes.size(); ++i)
            writer.saveImage(passes[i],
                             dir.filePath(QString("serial-%1.exr").arg(i)).toUtf8().constData(),
                             "EXR", false, true, true, 72, false, true, nullptr);
        serial += seconds(start);
    }
    state.counters["speedup"] = serial / pooled;
    state.counters["cores"] = double(std::thread::hardware_concurrency());
}

void BM_SaveImagePngVersusPlainWrite(benchmark::State& state) {
    const int size = int(state.range(0));
    QTemporaryDir dir;
    kaPreferences::getData().set("ImageExport show image", false);
    kaImageWriter writer;
    osg::ImagePtr image =
        noiseImage(osg::Image::OSG_RGB_PF, osg::Image::OSG_UINT8_IMAGEDATA, size, 7);
    const std::string plainName = dir.filePath("plain.png").toStdString();
    double library = 0.0, plain = 0.0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        auto out = OIIO::ImageOutput::create(plainName);
        OIIO::ImageSpec spec(size, size, 3, OIIO::TypeDesc::UINT8);
        out->open(plainName, spec);
        out->write_image(OIIO::TypeDesc::UINT8, image->getData());
        out->close();
        plain += seconds(start);
        start = std::chrono::steady_clock::now();
        writer.saveImage(image, dir.filePath("library.png").toUtf8().constData(), "PNG", false,
                         false, true, 72, false, true, nullptr);
        library += seconds(start);
    }
    state.counters["ratio"] = library / plain;
}

} // namespace

BENCHMARK(BM_SaveImagesPoolVersusOneByOne)->Arg(4096)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_SaveImagePngVersusPlainWrite)->Arg(8192)->Iterations(2)->Unit(benchmark::kSecond);
