#pragma once

#include "kaexportApp.h"

#include "kaWriteRecord.h"

#include <QString>
#include <QStringList>

namespace kaexport {

// The files a command wrote or failed to write while the report lived, as the host's writers
// report them (kaWriteJournal): "Wrote" is printed only for files that are complete under their
// final names, and every failure is named with its cause.
class WriteReport {
public:
    QStringList written() const { return _record.written(); }
    bool hasFailures() const { return _record.hasFailures(); }
    bool wasWritten(const QString& name) const;

    // "Wrote NAME (SIZE)" for each written file on io.out.
    void printWritten(Streams& io) const;
    // The written files as printWritten() does; on io.err a line per failure
    // ("kaexport COMMAND: couldn't write 'NAME': CAUSE") and per expected file that was not
    // written. True when nothing failed, something was written and every expected file was.
    bool print(Streams& io, const char* command, const QStringList& expected = {}) const;

    // How a rendering command ends: the progress display closed, then after a cancel the files
    // written and "kaexport COMMAND: cancelled; ..." ('keptWhenCancelled' when something was
    // written) with Cancelled, else print() over 'expected' with Failed or Done.
    int conclude(Streams& io, const char* command, bool cancelled, const char* keptWhenCancelled,
                 const QStringList& expected) const;

private:
    kaapps::WriteRecord _record;
};

// "11.4 kB", "3.2 MB".
QString sizeText(qint64 bytes);

} // namespace kaexport
