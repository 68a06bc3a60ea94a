// kaexport fast: repeated captures through the library's fast export, to files or as PNG bytes
// on standard output.
#include "kaexportApp.h"
#include "kaexportHost.h"
#include "kaexportOptions.h"

#include "kaImageWriter.h"

#include <QFileInfo>

#include <chrono>
#include <ostream>

namespace kaexport {

extern const char* const kFastUsage;
const char* const kFastUsage =
    "Usage: kaexport fast OUT --count N [--width W] [--height H] [--ss N]\n"
    "\n"
    "Captures the scene N times at one resolution with one render dialog. OUT is a file name\n"
    "(numbered -00000, -00001, ... when N > 1) or '-' for the PNG bytes of every capture on\n"
    "standard output, one after the other.\n"
    "\n"
    "  --count N               number of captures (1 or more)\n"
    "  --width W, --height H   size in pixels (default 1280 x 720)\n"
    "  --ss N                  supersampling level 0..3 (default 0)\n";

int commandFast(const QStringList& args, Streams& io, Host&) {
    OptionReader reader(args);
    auto usageError = [&](const QString& text) {
        io.err << "kaexport fast: " << text.toStdString() << "\n" << kFastUsage;
        return UsageError;
    };
    QString out;
    int count = 0, width = 1280, height = 720, superSampling = 0;
    while (!reader.atEnd()) {
        const QString arg = reader.next();
        int* target = arg == "--count"    ? &count
                      : arg == "--width"  ? &width
                      : arg == "--height" ? &height
                      : arg == "--ss"     ? &superSampling
                                          : nullptr;
        if (target) {
            if (!reader.intValue(arg, *target))
                return usageError(reader.error);
            if (*target < (arg == "--ss" ? 0 : 1))
                return usageError(
                    QString("%1 must be %2 or more").arg(arg).arg(arg == "--ss" ? 0 : 1));
        } else if (!reader.outputName(arg, out)) {
            return usageError(reader.error);
        }
    }
    if (out.isEmpty())
        return usageError("no output given (a file name or '-')");
    if (count < 1)
        return usageError("--count N is needed");

    kaImageWriter writer;
    writer.setNoShowImage(true);
    writer.exportImageFastInit(width, height, superSampling);
    const auto start = std::chrono::steady_clock::now();
    int made = 0;
    for (int i = 0; i < count && !Host::interrupted(); ++i) {
        if (out == "-") {
            const std::string png = writer.exportImageFast();
            if (png.empty())
                break;
            io.out.write(png.data(), std::streamsize(png.size()));
            io.out.flush();
        } else {
            QString name = out;
            if (count > 1) {
                const QFileInfo info(out);
                name = info.path() + "/" + info.completeBaseName() +
                       kaImageWriter::getFrameName(i) +
                       (info.suffix().isEmpty() ? QString() : "." + info.suffix());
            }
            writer.exportImageFast(name);
            if (!QFileInfo::exists(name))
                break;
        }
        ++made;
    }
    writer.exportImageFastTerminate();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (Host::interrupted())
        return Cancelled;
    if (made < count) {
        io.err << "kaexport fast: " << made << " of " << count
               << " captures made (see the messages above)\n";
        return Failed;
    }
    io.err << "kaexport fast: " << made << " captures of " << width << " x " << height << " in "
           << QString::number(seconds, 'f', 2).toStdString() << " s ("
           << QString::number(made / seconds, 'f', 1).toStdString() << " per second)\n";
    return Done;
}

} // namespace kaexport
