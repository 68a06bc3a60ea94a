#pragma once

// What export tests observe from outside: the values of the render dialog's total progress,
// and movies as ffprobe and ffmpeg read them.

#include "kaADPInterface.h"
#include "kaInterfaceFactory.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <map>
#include <string>
#include <vector>

namespace katest {

// The values the render dialog's total progress bar goes through while it lives.
class TotalProgressRecorder : public kaADPInterface {
public:
    TotalProgressRecorder() { kaInterfaceFactory::registerInterface("kaADPInterface", this); }
    ~TotalProgressRecorder() override {
        kaInterfaceFactory::registerInterface("kaADPInterface", nullptr);
    }
    void imageRenderTotalProgressChanged(int value) override { values.push_back(value); }
    std::vector<int> values;
};

// ffprobe's fields of a movie's first video stream (codec_name, pix_fmt, width, height,
// r_frame_rate, nb_read_frames counted by decoding, color_space, color_range) and the
// container's format_name.
inline std::map<std::string, std::string> probeVideo(const QString& file) {
    QProcess process;
    process.start("ffprobe",
                  {"-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
                   "format=format_name:stream=codec_name,pix_fmt,width,height,r_frame_"
                   "rate,nb_read_frames,color_space,color_range",
                   "-of", "default=noprint_wrappers=1", file});
    process.waitForFinished(60000);
    std::map<std::string, std::string> fields;
    for (const QString& line : QString::fromUtf8(process.readAllStandardOutput()).split('\n'))
        if (line.contains('='))
            fields[line.section('=', 0, 0).toStdString()] = line.section('=', 1).toStdString();
    return fields;
}

// Every frame of a movie decoded by ffmpeg as RGB bytes, top row first.
inline std::vector<std::vector<uint8_t>> decodedVideoFrames(const QString& file, int width,
                                                            int height) {
    QProcess process;
    process.start("ffmpeg",
                  {"-v", "error", "-i", file, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    process.waitForFinished(60000);
    const QByteArray bytes = process.readAllStandardOutput();
    const int size = width * height * 3;
    std::vector<std::vector<uint8_t>> frames;
    for (int at = 0; size > 0 && at + size <= bytes.size(); at += size)
        frames.emplace_back(bytes.begin() + at, bytes.begin() + at + size);
    return frames;
}

} // namespace katest
