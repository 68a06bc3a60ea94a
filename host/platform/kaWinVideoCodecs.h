#pragma once

// The video codecs the movie writer offers outside Windows (kaWinVideo.h): each by the FOURCC
// that AVICOMPRESSOPTIONS::fccHandler carries, with the FFmpeg encoder behind it, and the
// containers that take it. Only codecs whose encoder this FFmpeg has are listed. Safe from any
// thread, except the settings, which belong to the thread that writes movies.

#include "kaWinVideo.h"

#ifndef _WIN32

#include <functional>
#include <string>
#include <vector>

struct kaVideoCodec {
    FOURCC fourcc;
    std::string name;        // what users type: "raw", "mjpeg", "h264", ...
    std::string encoder;     // FFmpeg's encoder
    std::string description; // one line for lists and the codec dialog
    bool lossless;
};

namespace kaWinVideoCodecs {

// "avi", "mp4", "mkv" or "mov" after the file name's extension (any case); "" for others.
std::string containerOf(const std::string& fileName);
const std::vector<std::string>& containers();

// The codecs that this FFmpeg can encode, in the order they are offered.
const std::vector<kaVideoCodec>& available();
// Those that the container takes.
std::vector<kaVideoCodec> forContainer(const std::string& container);
// Null when unknown or not available.
const kaVideoCodec* byName(const std::string& name);
const kaVideoCodec* byFourcc(FOURCC fourcc);

// What zeroed compression options select for a container: uncompressed frames in AVI, H.264
// in MP4, FFV1 in MKV, ProRes in MOV (H.264 where there is no ProRes encoder), at the codec's
// own quality. setDefaultCompression() replaces that choice for every container that takes the
// codec (a command line's --codec); clearDefaultCompression() goes back.
AVICOMPRESSOPTIONS defaultCompression(const std::string& container);
void setDefaultCompression(const AVICOMPRESSOPTIONS& options);
void clearDefaultCompression();

// Who answers AVISaveOptions: by default a dialog listing the container's codecs, or, without
// a GUI (kaController::isNoGUI), the container's default, logged. A test or a host may answer
// instead; false means cancelled. An empty function restores the default.
using SaveOptionsAnswer = std::function<bool(const std::string& container, AVICOMPRESSOPTIONS&)>;
void setSaveOptionsAnswer(SaveOptionsAnswer answer);
SaveOptionsAnswer saveOptionsAnswer();
// The default answer: the dialog, or the logged default without a GUI.
SaveOptionsAnswer defaultSaveOptionsAnswer();

// For tests: the next call of the AVIFile function 'call' ("AVIFileOpenA", "AVIStreamWrite",
// ...) fails with 'code' without doing anything, as the system would on a failure that can't be
// brought about here (no memory, a broken codec). Outside Windows only.
void failNextCall(const std::string& call, HRESULT code);

} // namespace kaWinVideoCodecs

#endif
