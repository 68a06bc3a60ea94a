// The AVIFile calls on FFmpeg. A file object holds the muxer and the staged file; a stream
// made by AVIFileCreateStream describes the frames; the compressed stream made from it holds
// the encoder, opened when its format is set. The container's header is written then, frames
// are encoded as they come, and the last release of the file drains the encoder, writes the
// trailer and moves the finished file to its name.
#include "kaWinVideo.h"

#ifndef _WIN32

#include "kaAtomicFile.h"
#include "kaLog.h"
#include "kaWinVideoCodecs.h"
#include "kaWriteJournal.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

struct IAVIFile {
    std::atomic<ULONG> references{1};
    std::string name, container;
    std::unique_ptr<kaAtomicFile> staged;
    AVFormatContext* muxer = nullptr;
    bool headerWritten = false;
    std::string failure; // the first thing that went wrong; the file is not kept then
};

struct IAVIStream {
    std::atomic<ULONG> references{1};
    IAVIFile* file = nullptr;
    AVISTREAMINFOA info{};
    // Set on compressed streams.
    bool compressed = false;
    AVICOMPRESSOPTIONS options{};
    const AVCodec* encoder = nullptr;
    AVCodecContext* context = nullptr;
    AVStream* stream = nullptr;
    SwsContext* converter = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    BITMAPINFOHEADER format{};
    bool passThrough = false; // AVI and uncompressed: the bytes go into the file as they are
    bool drained = false;
};

namespace {

std::atomic<int> g_initialised{0};

// Files that were opened and never released (an export that left one open): their staged
// data is removed when the program ends, so nothing half-written stays behind.
std::mutex g_openMutex;
std::set<IAVIFile*>& openFiles() {
    static struct Registry {
        std::set<IAVIFile*> files;
        ~Registry() {
            for (IAVIFile* file : files)
                file->staged.reset();
        }
    } registry;
    return registry.files;
}

std::mutex g_faultMutex;
std::map<std::string, HRESULT>& injectedFaults() {
    static std::map<std::string, HRESULT> faults;
    return faults;
}

// The code a test set for the next call of 'call', once; AVIERR_OK when none.
HRESULT injected(const char* call) {
    std::lock_guard<std::mutex> lock(g_faultMutex);
    auto it = injectedFaults().find(call);
    if (it == injectedFaults().end())
        return AVIERR_OK;
    const HRESULT code = it->second;
    injectedFaults().erase(it);
    return code;
}

HRESULT fromAvError(int error) {
    if (error == AVERROR(ENOMEM))
        return AVIERR_MEMORY;
    if (error == AVERROR(ENOSPC) || error == AVERROR(EIO) || error == AVERROR(EDQUOT) ||
        error == AVERROR(EFBIG))
        return AVIERR_FILEWRITE;
    if (error == AVERROR_ENCODER_NOT_FOUND)
        return AVIERR_NOCOMPRESSOR;
    return AVIERR_ERROR;
}

std::string avErrorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

void fail(IAVIFile* file, const std::string& why) {
    if (file && file->failure.empty())
        file->failure = why;
}

// The pixel format a codec is fed: RGB when it takes it (nothing is lost), else 4:2:0, else
// what it lists first.
AVPixelFormat pixelFormatFor(const AVCodec* encoder) {
    const AVPixelFormat* formats = encoder->pix_fmts;
    if (!formats)
        return AV_PIX_FMT_BGR24;
    for (AVPixelFormat rgb : {AV_PIX_FMT_BGR24, AV_PIX_FMT_RGB24, AV_PIX_FMT_BGR0,
                              AV_PIX_FMT_0RGB32, AV_PIX_FMT_BGRA, AV_PIX_FMT_RGB32})
        for (const AVPixelFormat* f = formats; *f != AV_PIX_FMT_NONE; ++f)
            if (*f == rgb)
                return rgb;
    for (const AVPixelFormat* f = formats; *f != AV_PIX_FMT_NONE; ++f)
        if (*f == AV_PIX_FMT_YUV420P || *f == AV_PIX_FMT_YUVJ420P)
            return *f;
    return formats[0];
}

// Quality 1..10000 of the options as the codec's own setting; 0 keeps the codec's default.
// The quality of the options (1..10000; 0 or more than 10000: 7500, the usual default of
// Windows codecs) as the codec's own setting.
void applyQuality(AVCodecContext* context, const std::string& encoder, DWORD quality) {
    const double q = double(quality == 0 || quality > 10000 ? 7500 : quality) / 10000.0;
    if (encoder == "libx264") {
        av_opt_set_double(context->priv_data, "crf", (1.0 - q) * 51.0, 0);
    } else if (encoder == "mjpeg" || encoder == "mpeg4") {
        // Quantiser 2 (best) to 31; the upper half of the scale keeps it small.
        context->flags |= AV_CODEC_FLAG_QSCALE;
        context->global_quality = int(FF_QP2LAMBDA * (2.0 + (1.0 - q) * (1.0 - q) * 29.0));
    }
}

// Sends 'frame' (null: the end) to the encoder and writes what comes out.
int encode(IAVIStream* s, AVFrame* frame) {
    int result = avcodec_send_frame(s->context, frame);
    if (result < 0)
        return result;
    while (true) {
        result = avcodec_receive_packet(s->context, s->packet);
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return 0;
        if (result < 0)
            return result;
        av_packet_rescale_ts(s->packet, s->context->time_base, s->stream->time_base);
        s->packet->stream_index = s->stream->index;
        result = av_interleaved_write_frame(s->file->muxer, s->packet);
        if (result < 0)
            return result;
    }
}

void drain(IAVIStream* s) {
    if (!s->compressed || s->drained || !s->file || !s->file->headerWritten)
        return;
    s->drained = true;
    if (s->context && !s->passThrough) {
        const int result = encode(s, nullptr);
        if (result < 0)
            fail(s->file, "the encoder could not finish: " + avErrorText(result));
    }
}

void freeStream(IAVIStream* s) {
    drain(s);
    sws_freeContext(s->converter);
    av_frame_free(&s->frame);
    av_packet_free(&s->packet);
    avcodec_free_context(&s->context);
    if (s->file)
        AVIFileRelease(s->file);
    delete s;
}

// Opens the encoder for 'format' and the container's header; false with the AVIERR code.
HRESULT openEncoder(IAVIStream* s, const BITMAPINFOHEADER& format) {
    IAVIFile* file = s->file;
    s->format = format;
    const kaVideoCodec* codec = kaWinVideoCodecs::byFourcc(s->options.fccHandler);
    if (!codec)
        return AVIERR_NOCOMPRESSOR;
    s->encoder = avcodec_find_encoder_by_name(codec->encoder.c_str());
    if (!s->encoder)
        return AVIERR_NOCOMPRESSOR;
    s->stream = avformat_new_stream(file->muxer, nullptr);
    s->packet = av_packet_alloc();
    if (!s->stream || !s->packet)
        return AVIERR_MEMORY;
    const AVRational timeBase{int(std::max<DWORD>(s->info.dwScale, 1)),
                              int(std::max<DWORD>(s->info.dwRate, 1))};
    s->stream->time_base = timeBase;
    s->stream->avg_frame_rate = av_inv_q(timeBase);
    s->passThrough = file->container == "avi" && codec->encoder == "rawvideo";
    if (s->passThrough) {
        // Exactly the bytes Windows stores: BI_RGB, 24 bits, bottom-up rows padded to 4 bytes.
        AVCodecParameters* p = s->stream->codecpar;
        p->codec_type = AVMEDIA_TYPE_VIDEO;
        p->codec_id = AV_CODEC_ID_RAWVIDEO;
        p->codec_tag = 0;
        p->format = AV_PIX_FMT_BGR24;
        p->width = format.biWidth;
        p->height = format.biHeight;
        p->bits_per_coded_sample = 24;
    } else {
        s->context = avcodec_alloc_context3(s->encoder);
        s->frame = av_frame_alloc();
        if (!s->context || !s->frame)
            return AVIERR_MEMORY;
        s->context->width = format.biWidth;
        s->context->height = format.biHeight;
        s->context->time_base = timeBase;
        s->context->framerate = av_inv_q(timeBase);
        s->context->pix_fmt = pixelFormatFor(s->encoder);
        s->context->thread_count = 0; // every core, in the ways the encoder can use them
        const bool yuv = !(av_pix_fmt_desc_get(s->context->pix_fmt)->flags & AV_PIX_FMT_FLAG_RGB);
        if (yuv) {
            // What players assume for HD video; JPEG's own formats are full range.
            s->context->color_primaries = AVCOL_PRI_BT709;
            s->context->color_trc = AVCOL_TRC_BT709;
            s->context->colorspace = AVCOL_SPC_BT709;
            s->context->color_range = (s->context->pix_fmt == AV_PIX_FMT_YUVJ420P ||
                                       s->context->pix_fmt == AV_PIX_FMT_YUVJ422P ||
                                       s->context->pix_fmt == AV_PIX_FMT_YUVJ444P)
                                          ? AVCOL_RANGE_JPEG
                                          : AVCOL_RANGE_MPEG;
        }
        if (s->options.dwKeyFrameEvery > 0)
            s->context->gop_size = int(s->options.dwKeyFrameEvery);
        applyQuality(s->context, codec->encoder, s->options.dwQuality);
        if (file->muxer->oformat->flags & AVFMT_GLOBALHEADER)
            s->context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        const int opened = avcodec_open2(s->context, s->encoder, nullptr);
        if (opened < 0) {
            kaLog::error("AVIFile: the %s encoder does not take %d x %d frames: %s",
                         codec->encoder.c_str(), int(format.biWidth), int(format.biHeight),
                         avErrorText(opened).c_str());
            return AVIERR_BADFORMAT;
        }
        if (avcodec_parameters_from_context(s->stream->codecpar, s->context) < 0)
            return AVIERR_MEMORY;
        s->frame->format = s->context->pix_fmt;
        s->frame->width = format.biWidth;
        s->frame->height = format.biHeight;
        if (av_frame_get_buffer(s->frame, 0) < 0)
            return AVIERR_MEMORY;
        s->converter = sws_getContext(format.biWidth, format.biHeight, AV_PIX_FMT_BGR24,
                                      format.biWidth, format.biHeight, s->context->pix_fmt,
                                      SWS_BICUBIC, nullptr, nullptr, nullptr);
        if (!s->converter)
            return AVIERR_BADFORMAT;
        if (yuv)
            sws_setColorspaceDetails(s->converter, sws_getCoefficients(SWS_CS_DEFAULT), 1,
                                     sws_getCoefficients(SWS_CS_ITU709),
                                     s->context->color_range == AVCOL_RANGE_JPEG ? 1 : 0, 0,
                                     1 << 16, 1 << 16);
    }

    int result = avio_open(&file->muxer->pb, file->staged->stagedName().c_str(), AVIO_FLAG_WRITE);
    if (result < 0) {
        fail(file, "can't open the file: " + avErrorText(result));
        return AVIERR_FILEOPEN;
    }
    AVDictionary* muxerOptions = nullptr;
    if (file->container == "avi")
        av_dict_set(&muxerOptions, "flipped_raw_rgb", "1", 0);
    result = avformat_write_header(file->muxer, &muxerOptions);
    av_dict_free(&muxerOptions);
    if (result < 0) {
        fail(file, "can't write the header: " + avErrorText(result));
        return fromAvError(result);
    }
    file->headerWritten = true;
    return AVIERR_OK;
}

} // namespace

namespace kaWinVideoCodecs {
void failNextCall(const std::string& call, HRESULT code) {
    std::lock_guard<std::mutex> lock(g_faultMutex);
    injectedFaults()[call] = code;
}
} // namespace kaWinVideoCodecs

BOOL SetRect(RECT* rect, int left, int top, int right, int bottom) {
    if (!rect)
        return FALSE;
    *rect = {left, top, right, bottom};
    return TRUE;
}

DWORD VideoForWindowsVersion() {
    return 0x010A0000;
}

void AVIFileInit() {
    // Encoders report their statistics at the info level; only real trouble is worth a line.
    if (g_initialised++ == 0)
        av_log_set_level(AV_LOG_ERROR);
}

void AVIFileExit() {
    if (g_initialised > 0)
        --g_initialised;
}

HRESULT AVIFileOpenA(PAVIFILE* out, LPCSTR name, UINT mode, CLSID*) {
    if (!out || !name)
        return AVIERR_BADPARAM;
    *out = nullptr;
    if (const HRESULT fault = injected("AVIFileOpenA"))
        return fault;
    if (!(mode & (OF_WRITE | OF_CREATE)))
        return AVIERR_READONLY; // this writer only makes movies
    auto file = std::make_unique<IAVIFile>();
    file->name = name;
    file->container = kaWinVideoCodecs::containerOf(name);
    if (file->container.empty())
        return REGDB_E_CLASSNOTREG;
    file->staged = std::make_unique<kaAtomicFile>(file->name);
    if (!file->staged->open() || !file->staged->close()) {
        kaLog::error("AVIFile: can't create '%s': %s", name, file->staged->error().c_str());
        return AVIERR_FILEOPEN;
    }
    const int result = avformat_alloc_output_context2(&file->muxer, nullptr, nullptr,
                                                      file->staged->stagedName().c_str());
    if (result < 0 || !file->muxer)
        return result == AVERROR(ENOMEM) ? AVIERR_MEMORY : REGDB_E_CLASSNOTREG;
    {
        std::lock_guard<std::mutex> lock(g_openMutex);
        openFiles().insert(file.get());
    }
    *out = file.release();
    return AVIERR_OK;
}

HRESULT AVIFileCreateStreamA(PAVIFILE file, PAVISTREAM* out, AVISTREAMINFOA* info) {
    if (!file || !out || !info)
        return AVIERR_BADPARAM;
    *out = nullptr;
    if (const HRESULT fault = injected("AVIFileCreateStreamA"))
        return fault;
    if (info->fccType != streamtypeVIDEO)
        return AVIERR_UNSUPPORTED;
    if (info->dwRate == 0 || info->dwScale == 0)
        return AVIERR_BADFORMAT;
    auto* stream = new IAVIStream();
    stream->file = file;
    stream->info = *info;
    ++file->references;
    *out = stream;
    return AVIERR_OK;
}

BOOL AVISaveOptions(HWND, UINT, int streams, PAVISTREAM* stream, LPAVICOMPRESSOPTIONS* options) {
    if (streams < 1 || !stream || !*stream || !options || !options[0])
        return FALSE;
    const std::string container = (*stream)->file ? (*stream)->file->container : std::string();
    AVICOMPRESSOPTIONS chosen = kaWinVideoCodecs::defaultCompression(container);
    kaWinVideoCodecs::SaveOptionsAnswer answer = kaWinVideoCodecs::saveOptionsAnswer();
    if (!answer)
        answer = kaWinVideoCodecs::defaultSaveOptionsAnswer();
    if (!answer(container, chosen))
        return FALSE;
    *options[0] = chosen;
    return TRUE;
}

HRESULT AVISaveOptionsFree(int streams, LPAVICOMPRESSOPTIONS* options) {
    // The options hold no memory of their own here (no format or codec parameter blocks).
    if (streams < 0 || (streams > 0 && !options))
        return AVIERR_BADPARAM;
    if (const HRESULT fault = injected("AVISaveOptionsFree"))
        return fault;
    return AVIERR_OK;
}

HRESULT AVIMakeCompressedStream(PAVISTREAM* out, PAVISTREAM source, AVICOMPRESSOPTIONS* options,
                                CLSID*) {
    if (!out || !source || !options)
        return AVIERR_BADPARAM;
    *out = nullptr;
    if (const HRESULT fault = injected("AVIMakeCompressedStream"))
        return fault;
    if (source->info.fccType != streamtypeVIDEO)
        return AVIERR_UNSUPPORTED;
    AVICOMPRESSOPTIONS chosen = *options;
    const std::string container = source->file->container;
    if (chosen.fccHandler == 0 && chosen.dwQuality == 0 && chosen.dwKeyFrameEvery == 0)
        chosen = kaWinVideoCodecs::defaultCompression(container);
    const std::vector<kaVideoCodec> codecs = kaWinVideoCodecs::forContainer(container);
    if (std::none_of(codecs.begin(), codecs.end(),
                     [&](const kaVideoCodec& c) { return c.fourcc == chosen.fccHandler; }))
        return AVIERR_NOCOMPRESSOR;
    auto* stream = new IAVIStream();
    stream->file = source->file;
    stream->info = source->info;
    stream->compressed = true;
    stream->options = chosen;
    ++source->file->references;
    *out = stream;
    return AVIERR_OK;
}

HRESULT AVIStreamSetFormat(PAVISTREAM stream, LONG position, LPVOID data, LONG size) {
    if (!stream || !data || size < LONG(sizeof(BITMAPINFOHEADER)))
        return AVIERR_BADPARAM;
    if (const HRESULT fault = injected("AVIStreamSetFormat"))
        return fault;
    BITMAPINFOHEADER format;
    std::memcpy(&format, data, sizeof format);
    if (format.biWidth <= 0 || format.biHeight <= 0 || format.biBitCount != 24 ||
        format.biCompression != BI_RGB || format.biPlanes != 1)
        return AVIERR_BADFORMAT;
    if (!stream->compressed) {
        stream->format = format;
        return AVIERR_OK;
    }
    if (position != 0 || stream->stream)
        return AVIERR_UNSUPPORTED; // one format for the whole movie
    return openEncoder(stream, format);
}

HRESULT AVIStreamWrite(PAVISTREAM s, LONG start, LONG samples, LPVOID data, LONG bytes, DWORD,
                       LONG* samplesWritten, LONG* bytesWritten) {
    if (samplesWritten)
        *samplesWritten = 0;
    if (bytesWritten)
        *bytesWritten = 0;
    if (!s || !data || samples != 1)
        return AVIERR_BADPARAM;
    if (const HRESULT fault = injected("AVIStreamWrite"))
        return fault;
    if (!s->compressed || !s->stream)
        return AVIERR_UNSUPPORTED;
    const BITMAPINFOHEADER& f = s->format;
    const int stride = ((f.biWidth * 24 + 31) / 32) * 4;
    if (bytes < stride * f.biHeight)
        return AVIERR_BUFFERTOOSMALL;
    IAVIFile* file = s->file;
    if (!file->failure.empty())
        return AVIERR_FILEWRITE;
    int result = 0;
    if (s->passThrough) {
        AVPacket* p = s->packet;
        if (av_new_packet(p, stride * f.biHeight) < 0)
            return AVIERR_MEMORY;
        std::memcpy(p->data, data, size_t(stride) * size_t(f.biHeight));
        p->pts = p->dts = start;
        p->duration = 1;
        p->flags |= AV_PKT_FLAG_KEY;
        p->stream_index = s->stream->index;
        av_packet_rescale_ts(p, AVRational{int(s->info.dwScale), int(s->info.dwRate)},
                             s->stream->time_base);
        result = av_interleaved_write_frame(file->muxer, p);
    } else {
        // A fresh picture for each frame: encoders that work on several frames at once still
        // hold the ones before, and making those writable would copy them.
        av_frame_unref(s->frame);
        s->frame->format = s->context->pix_fmt;
        s->frame->width = f.biWidth;
        s->frame->height = f.biHeight;
        if (av_frame_get_buffer(s->frame, 0) < 0)
            return AVIERR_MEMORY;
        // The rows come bottom-up: read them from the last with a negative stride.
        const uint8_t* last = static_cast<const uint8_t*>(data) + size_t(stride) * (f.biHeight - 1);
        const uint8_t* source[4] = {last, nullptr, nullptr, nullptr};
        const int strides[4] = {-stride, 0, 0, 0};
        sws_scale(s->converter, source, strides, 0, f.biHeight, s->frame->data, s->frame->linesize);
        // As with Windows' compressors, key frames follow the options' key-frame distance;
        // the caller's AVIIF_KEYFRAME only says that its uncompressed frame stands alone.
        s->frame->pts = start;
        result = encode(s, s->frame);
    }
    // Each frame goes to the disk before the next one is made, so that a full disk is noticed
    // at the frame it happens (the muxer reports buffered failures on the file, not the packet).
    if (result >= 0 && file->muxer->pb) {
        avio_flush(file->muxer->pb);
        if (file->muxer->pb->error < 0)
            result = file->muxer->pb->error;
    }
    if (result < 0) {
        fail(file, avErrorText(result));
        return fromAvError(result);
    }
    if (samplesWritten)
        *samplesWritten = 1;
    if (bytesWritten)
        *bytesWritten = bytes;
    return AVIERR_OK;
}

ULONG AVIStreamRelease(PAVISTREAM stream) {
    if (!stream)
        return 0;
    const ULONG left = --stream->references;
    if (left == 0)
        freeStream(stream);
    return left;
}

ULONG AVIFileRelease(PAVIFILE file) {
    if (!file)
        return 0;
    const ULONG left = --file->references;
    if (left != 0)
        return left;
    {
        std::lock_guard<std::mutex> lock(g_openMutex);
        openFiles().erase(file);
    }
    bool written = false;
    if (file->headerWritten) {
        const int trailer = av_write_trailer(file->muxer);
        if (trailer < 0)
            fail(file, "can't finish the file: " + avErrorText(trailer));
        if (file->muxer->pb && file->muxer->pb->error < 0)
            fail(file, avErrorText(file->muxer->pb->error));
        const int closed = avio_closep(&file->muxer->pb);
        if (closed < 0)
            fail(file, avErrorText(closed));
        if (file->failure.empty() && !file->staged->commit())
            fail(file, file->staged->error());
        written = file->failure.empty();
        if (!written)
            kaLog::error("AVIFile: Couldn't write '%s': %s", file->name.c_str(),
                         file->failure.c_str());
    } else {
        // Never started (its set-up failed and said why): there is nothing to keep.
        fail(file, "the movie was not started");
    }
    kaWriteJournal::record({file->name, written, written ? std::string() : file->failure});
    avformat_free_context(file->muxer);
    delete file;
    return 0;
}

#endif
