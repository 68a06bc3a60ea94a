#include "kaSnapshotFileNames.h"

#include "kaFile.h"
#include "kaImage.h"
#include "kaImageWriter.h"

namespace kaapps {

QStringList snapshotFiles(const kaImageWriter& writer, const QString& name,
                          const std::vector<unsigned int>& passes, bool exportPasses) {
    if (exportPasses)
        return writer.getExportedImageFilenames(name, passes, writer.getExportMultiLayer());
    const QString expanded = kaFile::expandFilename(name);
    QString extension = kaFile::getExtension(expanded);
    if (extension.isEmpty())
        extension = QString::fromStdString(kaImage::getDefaultImageFormat());
    const int dot = expanded.lastIndexOf('.');
    const QString stem = dot >= 0 ? expanded.left(dot) : expanded;
    const auto [mode, views] = kaImageWriter::getStereoMode();
    QStringList names;
    for (int view = 0; view < views; ++view)
        names << stem + kaImageWriter::getStereoName(int(mode), view) + "." + extension;
    return names;
}

} // namespace kaapps
