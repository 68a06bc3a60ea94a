// Movie encoding through kaAviWriter (the AVIFile calls on FFmpeg) against the ffmpeg program
// encoding the same raw 1920 x 1080 frames with the same codec and settings, in one run:
//   ratio = ffmpeg's time / kaAviWriter's time (target >= 0.9)
// for uncompressed AVI, Motion JPEG and H.264 at the writer's default quality (7500: Motion
// JPEG at quantiser 3.8, x264 at CRF 12.75).
#include "kaAviWriter.h"
#include "kaWinVideoCodecs.h"

#include "benchMeasure.h"

#include <benchmark/benchmark.h>

#include <QProcess>
#include <QTemporaryDir>

#include <chrono>
#include <cstdio>
#include <vector>

using benchMeasure::seconds;

namespace {

constexpr int kWidth = 1920, kHeight = 1080, kFrames = 60;

// Frames with the detail of a render: smooth shading with grain that moves.
std::vector<std::vector<uint8_t>> renderLikeFrames() {
    std::vector<std::vector<uint8_t>> frames(kFrames,
                                             std::vector<uint8_t>(size_t(kWidth) * kHeight * 3));
    for (int f = 0; f < kFrames; ++f)
        for (size_t y = 0; y < size_t(kHeight); ++y)
            for (size_t x = 0; x < size_t(kWidth); ++x)
                for (size_t c = 0; c < 3; ++c) {
                    const size_t i = (y * kWidth + x) * 3 + c;
                    const unsigned grain = unsigned(((i + size_t(f) * 7919) * 2654435761u) >> 28);
                    frames[size_t(f)][i] = uint8_t((x + y * (c + 1) + size_t(f) * 4) / 16 + grain);
                }
    return frames;
}

void BM_AviWriterAgainstFfmpeg(benchmark::State& state, const char* codecName, const char* suffix,
                               QStringList ffmpegCodec) {
    const kaVideoCodec* codec = kaWinVideoCodecs::byName(codecName);
    if (!codec) {
        state.SkipWithError("codec not available");
        return;
    }
    const auto frames = renderLikeFrames();
    QTemporaryDir dir;
    const QString raw = dir.filePath("frames.bgr");
    {
        std::FILE* out = std::fopen(raw.toUtf8().constData(), "wb");
        for (const auto& frame : frames)
            std::fwrite(frame.data(), 1, frame.size(), out);
        std::fclose(out);
    }
    AVICOMPRESSOPTIONS options{};
    options.fccType = streamtypeVIDEO;
    options.fccHandler = codec->fourcc;
    kaWinVideoCodecs::setDefaultCompression(options);
    double writerTime = 0.0, ffmpegTime = 0.0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        kaAviWriter writer(dir.filePath(QString("writer.") + suffix).toStdString(), kWidth, kHeight,
                           25);
        writer.initialize(true);
        for (const auto& frame : frames)
            writer.addFrame(frame.data());
        writer.close();
        writerTime += seconds(start);

        // The frames are bottom-up, as the writer takes them: ffmpeg turns them over.
        start = std::chrono::steady_clock::now();
        QProcess ffmpeg;
        ffmpeg.start("ffmpeg",
                     QStringList{"-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "bgr24", "-s",
                                 "1920x1080", "-r", "25", "-i", raw, "-vf", "vflip"} +
                         ffmpegCodec + QStringList{dir.filePath(QString("ffmpeg.") + suffix)});
        ffmpeg.waitForFinished(-1);
        ffmpegTime += seconds(start);
    }
    kaWinVideoCodecs::clearDefaultCompression();
    const double n = double(state.iterations());
    state.counters["writer_fps"] = kFrames * n / writerTime;
    state.counters["ffmpeg_fps"] = kFrames * n / ffmpegTime;
    state.counters["ratio"] = ffmpegTime / writerTime;
}

} // namespace

BENCHMARK_CAPTURE(BM_AviWriterAgainstFfmpeg, raw, "raw", "avi",
                  QStringList{"-c:v", "rawvideo", "-pix_fmt", "bgr24"})
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_AviWriterAgainstFfmpeg, mjpeg, "mjpeg", "avi",
                  QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "3.8125"})
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_AviWriterAgainstFfmpeg, h264, "h264", "mp4",
                  QStringList{"-c:v", "libx264", "-pix_fmt", "yuv420p", "-crf", "12.75"})
    ->Unit(benchmark::kSecond)
    ->Iterations(1);
