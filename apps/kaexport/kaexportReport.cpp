#include "kaexportReport.h"

#include "kaexportHost.h"

#include "kaAtomicFile.h"

#include <QFileInfo>

#include <ostream>

namespace kaexport {

QString sizeText(qint64 bytes) {
    return bytes >= 1048576 ? QString::number(double(bytes) / 1048576.0, 'f', 1) + " MB"
                            : QString::number(double(bytes) / 1024.0, 'f', 1) + " kB";
}

bool WriteReport::wasWritten(const QString& name) const {
    return written().contains(name);
}

void WriteReport::printWritten(Streams& io) const {
    for (const QString& file : written())
        io.out << "Wrote " << file.toStdString() << " ("
               << sizeText(QFileInfo(file).size()).toStdString() << ")\n";
    io.out.flush();
}

bool WriteReport::print(Streams& io, const char* command, const QStringList& expected) const {
    const std::vector<kaWriteJournal::Entry> entries = _record.entries();
    const QStringList done = written();
    printWritten(io);
    bool complete = !done.isEmpty();
    QStringList named;
    for (const kaWriteJournal::Entry& entry : entries) {
        if (entry.written)
            continue;
        complete = false;
        std::string why = entry.error;
        if (why == kaAtomicFile::existsError())
            why += " (use --force to replace it)";
        io.err << "kaexport " << command << ": couldn't write '" << entry.fileName << "': " << why
               << "\n";
        named << QString::fromStdString(entry.fileName);
    }
    for (const QString& file : expected) {
        if (done.contains(file) || named.contains(file))
            continue;
        complete = false;
        io.err << "kaexport " << command << ": '" << file.toStdString()
               << "' was not written (see the messages above)\n";
    }
    if (done.isEmpty() && named.isEmpty() && expected.isEmpty())
        io.err << "kaexport " << command << ": nothing was written (see the messages above)\n";
    io.out.flush();
    return complete;
}

int WriteReport::conclude(Streams& io, const char* command, bool cancelled,
                          const char* keptWhenCancelled, const QStringList& expected) const {
    Host::finishProgress(!cancelled);
    if (cancelled) {
        printWritten(io);
        io.err << "kaexport " << command << ": cancelled; "
               << (written().isEmpty() ? "nothing was written" : keptWhenCancelled) << "\n";
        return Cancelled;
    }
    return print(io, command, expected) ? Done : Failed;
}

} // namespace kaexport
