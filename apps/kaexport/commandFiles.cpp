// kaexport files: the names an export would write, one per line.
#include "kaexportApp.h"
#include "kaexportOptions.h"

#include "kaImageWriter.h"

#include <ostream>

namespace kaexport {

extern const char* const kFilesUsage;
const char* const kFilesUsage =
    "Usage: kaexport files OUT [--passes all|NAME,...] [--multilayer]\n"
    "                          [--start S] [--stop E] [--step K]\n"
    "\n"
    "Prints the files that an export to OUT writes, one per line: one per stereo view\n"
    "(\"ImageExport stereo mode\"), render pass and frame.\n"
    "\n"
    "  --passes all|NAME,...  render passes exported, each to its own file\n"
    "  --multilayer           put the passes into one layered file where the format allows it\n"
    "  --start S --stop E     a sequence of frames; a missing or negative value takes\n"
    "                         \"MovieExport start frame\" / \"MovieExport stop frame\"\n"
    "  --step K               every K-th frame from the start on (default 1)\n";

int commandFiles(const QStringList& args, Streams& io) {
    OptionReader reader(args);
    auto usageError = [&](const QString& text) {
        io.err << "kaexport files: " << text.toStdString() << "\n" << kFilesUsage;
        return UsageError;
    };

    QString out;
    std::vector<unsigned int> passes;
    bool multiLayer = false, sequence = false;
    int start = -1, stop = -1, step = 1;
    while (!reader.atEnd()) {
        QString arg = reader.next();
        if (arg == "--passes") {
            QString list, error;
            if (!reader.value(arg, list))
                return usageError(reader.error);
            if (!parsePassList(list, passes, error))
                return usageError(error);
        } else if (arg == "--multilayer") {
            multiLayer = true;
        } else if (arg == "--start" || arg == "--stop" || arg == "--step") {
            int& target = arg == "--start" ? start : arg == "--stop" ? stop : step;
            if (!reader.intValue(arg, target))
                return usageError(reader.error);
            sequence = true;
        } else if (!reader.outputName(arg, out)) {
            return usageError(reader.error);
        }
    }
    if (out.isEmpty())
        return usageError("no output file name given");

    kaImageWriter writer;
    const QStringList names =
        sequence ? writer.getExportedImageFilenames(out, passes, multiLayer, start, stop, step)
                 : writer.getExportedImageFilenames(out, passes, multiLayer);
    for (const QString& name : names)
        io.out << name.toStdString() << "\n";
    return Done;
}

} // namespace kaexport
