#include "kaWinVideoCodecs.h"

#ifndef _WIN32

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <QFileInfo>
#include <QString>

#include <algorithm>
#include <mutex>
#include <optional>

namespace {

const std::vector<kaVideoCodec>& catalogue() {
    static const std::vector<kaVideoCodec> codecs = {
        {0, "raw", "rawvideo", "uncompressed 24-bit frames", true},
        {mmioFOURCC('M', 'J', 'P', 'G'), "mjpeg", "mjpeg", "Motion JPEG", false},
        {mmioFOURCC('F', 'F', 'V', '1'), "ffv1", "ffv1", "FFV1, lossless", true},
        {mmioFOURCC('H', 'F', 'Y', 'U'), "huffyuv", "huffyuv", "HuffYUV, lossless", true},
        {mmioFOURCC('F', 'M', 'P', '4'), "mpeg4", "mpeg4", "MPEG-4 part 2", false},
        {mmioFOURCC('H', '2', '6', '4'), "h264", "libx264", "H.264 (x264)", false},
        {mmioFOURCC('a', 'p', 'c', 'n'), "prores", "prores_ks", "Apple ProRes 422", false},
    };
    return codecs;
}

const char* muxerOf(const std::string& container) {
    if (container == "avi")
        return "avi";
    if (container == "mp4")
        return "mp4";
    if (container == "mkv")
        return "matroska";
    if (container == "mov")
        return "mov";
    return nullptr;
}

std::mutex g_settingsMutex;
std::optional<AVICOMPRESSOPTIONS> g_default;
kaWinVideoCodecs::SaveOptionsAnswer g_answer;

} // namespace

namespace kaWinVideoCodecs {

std::string containerOf(const std::string& fileName) {
    const std::string suffix =
        QFileInfo(QString::fromStdString(fileName)).suffix().toLower().toStdString();
    return muxerOf(suffix) ? suffix : std::string();
}

const std::vector<std::string>& containers() {
    static const std::vector<std::string> names = {"avi", "mp4", "mkv", "mov"};
    return names;
}

const std::vector<kaVideoCodec>& available() {
    static const std::vector<kaVideoCodec> present = [] {
        std::vector<kaVideoCodec> codecs;
        for (const kaVideoCodec& codec : catalogue())
            if (avcodec_find_encoder_by_name(codec.encoder.c_str()))
                codecs.push_back(codec);
        return codecs;
    }();
    return present;
}

std::vector<kaVideoCodec> forContainer(const std::string& container) {
    std::vector<kaVideoCodec> codecs;
    const AVOutputFormat* format =
        muxerOf(container) ? av_guess_format(muxerOf(container), nullptr, nullptr) : nullptr;
    if (!format)
        return codecs;
    for (const kaVideoCodec& codec : available()) {
        const AVCodec* encoder = avcodec_find_encoder_by_name(codec.encoder.c_str());
        if (encoder && avformat_query_codec(format, encoder->id, FF_COMPLIANCE_NORMAL) == 1)
            codecs.push_back(codec);
    }
    return codecs;
}

const kaVideoCodec* byName(const std::string& name) {
    for (const kaVideoCodec& codec : available())
        if (codec.name == name)
            return &codec;
    return nullptr;
}

const kaVideoCodec* byFourcc(FOURCC fourcc) {
    for (const kaVideoCodec& codec : available())
        if (codec.fourcc == fourcc)
            return &codec;
    return nullptr;
}

AVICOMPRESSOPTIONS defaultCompression(const std::string& container) {
    {
        std::lock_guard<std::mutex> lock(g_settingsMutex);
        if (g_default) {
            const std::vector<kaVideoCodec> codecs = forContainer(container);
            const FOURCC chosen = g_default->fccHandler;
            if (std::any_of(codecs.begin(), codecs.end(),
                            [chosen](const kaVideoCodec& c) { return c.fourcc == chosen; }))
                return *g_default;
        }
    }
    AVICOMPRESSOPTIONS options{};
    options.fccType = streamtypeVIDEO;
    const char* preferred = container == "mp4"   ? "h264"
                            : container == "mkv" ? "ffv1"
                            : container == "mov" ? "prores"
                                                 : "raw";
    const kaVideoCodec* codec = byName(preferred);
    if (!codec && container == "mov")
        codec = byName("h264");
    options.fccHandler = codec ? codec->fourcc : 0;
    return options;
}

void setDefaultCompression(const AVICOMPRESSOPTIONS& options) {
    std::lock_guard<std::mutex> lock(g_settingsMutex);
    g_default = options;
}

void clearDefaultCompression() {
    std::lock_guard<std::mutex> lock(g_settingsMutex);
    g_default.reset();
}

void setSaveOptionsAnswer(SaveOptionsAnswer answer) {
    std::lock_guard<std::mutex> lock(g_settingsMutex);
    g_answer = std::move(answer);
}

SaveOptionsAnswer saveOptionsAnswer() {
    std::lock_guard<std::mutex> lock(g_settingsMutex);
    return g_answer;
}

} // namespace kaWinVideoCodecs

#endif
