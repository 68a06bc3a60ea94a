#include "kaTestSupport.h"

#include "kaPreferences.h"

#include <OpenImageIO/imageio.h>

#include <QDir>
#include <QFile>
#include <QProcess>

#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace katest {

namespace {
std::mutex g_mutex;
std::vector<LogCapture::Entry> g_entries;
} // namespace

TempDir::TempDir() {
    _dir.setAutoRemove(true);
}

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_entries.clear();
    }
    // Registered without holding g_mutex: the log calls the sink under its own lock.
    _sink = kaLog::addSink([](kaLog::Level level, const std::string& text) {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_entries.push_back({level, text});
    });
}

LogCapture::~LogCapture() {
    kaLog::removeSink(_sink);
}

std::vector<LogCapture::Entry> LogCapture::entries() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_entries;
}

std::vector<std::string> LogCapture::texts(kaLog::Level level) const {
    std::vector<std::string> result;
    for (const Entry& e : entries())
        if (e.level == level)
            result.push_back(e.text);
    return result;
}

bool LogCapture::contains(kaLog::Level level, const std::string& text) const {
    for (const Entry& e : entries())
        if (e.level == level && e.text == text)
            return true;
    return false;
}

std::vector<std::string> folderEntries(const QString& folder) {
    std::vector<std::string> names;
    for (const QString& name : QDir(folder).entryList(QDir::AllEntries | QDir::Hidden |
                                                      QDir::System | QDir::NoDotAndDotDot))
        names.push_back(name.toStdString());
    std::sort(names.begin(), names.end());
    return names;
}

QByteArray fileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

std::vector<float> imagePixels(const QString& path) {
    auto in = OIIO::ImageInput::open(path.toStdString());
    if (!in)
        return {};
    const OIIO::ImageSpec& spec = in->spec();
    std::vector<float> values(size_t(spec.image_pixels()) * size_t(spec.nchannels));
    if (!in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, values.data()))
        return {};
    return values;
}

QByteArray animatedGltf() {
    const float positions[9] = {-0.5f, 0, 0, 0.5f, 0, 0, 0, 1, 0};
    const uint16_t indices[4] = {0, 1, 2, 0}; // the last one pads to four bytes
    const float times[2] = {0.0f, 1.0f};
    const float translations[6] = {0, 0, 0, 2, 0, 0};
    const float quarter = 0.70710678f;
    const float rotations[8] = {0, 0, 0, 1, 0, quarter, 0, quarter}; // x, y, z, w
    QByteArray buffer;
    for (const auto& [data, size] :
         std::vector<std::pair<const void*, size_t>>{{positions, sizeof positions},
                                                     {indices, sizeof indices},
                                                     {times, sizeof times},
                                                     {translations, sizeof translations},
                                                     {rotations, sizeof rotations}})
        buffer.append(static_cast<const char*>(data), int(size));
    return QByteArray(R"({
  "asset": {"version": "2.0", "generator": "hand-written after the Khronos AnimatedTriangle sample"},
  "scene": 0, "scenes": [{"nodes": [0, 1, 2]}],
  "nodes": [{"name": "Mover", "mesh": 0},
            {"name": "Still", "mesh": 0, "translation": [0, 0, -1]},
            {"name": "Cam", "camera": 0, "translation": [1, 0.5, 6]}],
  "meshes": [{"name": "Triangle", "primitives": [{"attributes": {"POSITION": 0}, "indices": 1, "material": 0}]}],
  "materials": [{"name": "Red", "pbrMetallicRoughness": {"baseColorFactor": [0.8, 0.1, 0.1, 1]},
                 "emissiveFactor": [0.6, 0.1, 0.1], "doubleSided": true}],
  "cameras": [{"type": "perspective", "perspective": {"yfov": 0.8, "znear": 0.1, "zfar": 100, "aspectRatio": 1.5}}],
  "animations": [{"name": "Move",
                  "channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}},
                               {"sampler": 1, "target": {"node": 0, "path": "rotation"}}],
                  "samplers": [{"input": 2, "output": 3, "interpolation": "LINEAR"},
                               {"input": 2, "output": 4, "interpolation": "LINEAR"}]}],
  "buffers": [{"byteLength": 108, "uri": "data:application/octet-stream;base64,)") +
           buffer.toBase64() + R"("}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 36},
                  {"buffer": 0, "byteOffset": 36, "byteLength": 6},
                  {"buffer": 0, "byteOffset": 44, "byteLength": 8},
                  {"buffer": 0, "byteOffset": 52, "byteLength": 24},
                  {"buffer": 0, "byteOffset": 76, "byteLength": 32}],
  "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [-0.5, 0, 0], "max": [0.5, 1, 0]},
                {"bufferView": 1, "componentType": 5123, "count": 3, "type": "SCALAR"},
                {"bufferView": 2, "componentType": 5126, "count": 2, "type": "SCALAR", "min": [0], "max": [1]},
                {"bufferView": 3, "componentType": 5126, "count": 2, "type": "VEC3"},
                {"bufferView": 4, "componentType": 5126, "count": 2, "type": "VEC4"}]
})";
}

SmallDisk::SmallDisk(int kilobytes) {
    if (geteuid() != 0 || !_dir.isValid())
        return;
    const std::string options = "size=" + std::to_string(kilobytes) + "k";
    _mounted =
        ::mount("tmpfs", _dir.path().toLocal8Bit().constData(), "tmpfs", 0, options.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
    if (_mounted)
        ::umount2(_dir.path().toLocal8Bit().constData(), MNT_DETACH);
}

bool SmallDisk::fill(qint64 freeBytes) {
    struct statvfs info;
    if (!_mounted || ::statvfs(_dir.path().toLocal8Bit().constData(), &info) != 0)
        return false;
    const qint64 available = qint64(info.f_bavail) * qint64(info.f_frsize);
    QFile filler(file("filler"));
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const QByteArray block(4096, '\x5a');
    for (qint64 left = available - freeBytes; left > 0; left -= block.size())
        if (filler.write(block.constData(), std::min<qint64>(left, block.size())) <= 0)
            break;
    return filler.flush();
}

PreferencesGuard::PreferencesGuard() {
    kaPreferences::resetToDefaults();
}
PreferencesGuard::~PreferencesGuard() {
    kaPreferences::resetToDefaults();
}

} // namespace katest
