#pragma once

#include <QString>
#include <QStringList>

#include <vector>

class kaImageWriter;

// The files a snapshot export into 'name' writes, as the export names them: one per render
// pass (or one layered file) when 'passes' are exported, else the name with each stereo view's
// suffix. Unlike the names of sequences and passes, a plain snapshot keeps a trailing
// five-digit number ("scan16384.png" is written as itself).
namespace kaapps {

QStringList snapshotFiles(const kaImageWriter& writer, const QString& name,
                          const std::vector<unsigned int>& passes, bool exportPasses);

} // namespace kaapps
