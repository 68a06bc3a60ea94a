#include "kaFile.h"

#include "kaController.h"
#include "kaLog.h"
#include "kaPlatform.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QMessageBox>
#include <QRegularExpression>

#include <mutex>

namespace {
// A standard mutex, not QMutex: thread checkers see through it.
std::mutex g_variablesMutex;
QMap<QString, QString>& variables() {
    static QMap<QString, QString> v;
    return v;
}

// Host variables win over the environment; KALO_DATA falls back to the data folder.
bool lookupVariable(const QString& name, QString& value) {
    {
        std::lock_guard<std::mutex> lock(g_variablesMutex);
        auto it = variables().constFind(name);
        if (it != variables().constEnd()) {
            value = it.value();
            return true;
        }
    }
    QByteArray env = qgetenv(name.toLocal8Bit().constData());
    if (!env.isNull()) {
        value = QString::fromLocal8Bit(env);
        return true;
    }
    if (name == "KALO_DATA") {
        value = kaPlatform::getDataDir();
        return true;
    }
    return false;
}

int lastDotOfFileName(const QString& name) {
    int slash = name.lastIndexOf('/');
    int dot = name.lastIndexOf('.');
    // A dot that starts the file name (".hidden") marks no extension.
    if (dot <= slash + 1)
        return -1;
    return dot;
}
} // namespace

QString kaFile::expandFilename(const QString& name) {
    if (name.isEmpty())
        return name;
    QString result = name;
#ifndef _WIN32
    result.replace('\\', '/');
#endif
    static const QRegularExpression variable(
        R"(\$\{([A-Za-z_][A-Za-z0-9_]*)\}|\$([A-Za-z_][A-Za-z0-9_]*))");
    QString expanded;
    int last = 0;
    auto it = variable.globalMatch(result);
    while (it.hasNext()) {
        QRegularExpressionMatch m = it.next();
        QString varName = m.captured(1).isEmpty() ? m.captured(2) : m.captured(1);
        QString value;
        expanded += result.mid(last, m.capturedStart() - last);
        expanded += lookupVariable(varName, value) ? value : m.captured(0);
        last = m.capturedEnd();
    }
    expanded += result.mid(last);
#ifndef _WIN32
    // Variables may hold Windows-style paths too.
    expanded.replace('\\', '/');
#endif
    if (expanded == "~" || expanded.startsWith("~/"))
        expanded = QDir::homePath() + expanded.mid(1);
    if (QDir::isRelativePath(expanded))
        expanded = QDir::current().absoluteFilePath(expanded);
    return QDir::cleanPath(expanded);
}

std::string kaFile::expandFilename(const std::string& name) {
    return expandFilename(QString::fromStdString(name)).toStdString();
}

void kaFile::setPathVariable(const QString& name, const QString& value) {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    variables()[name] = value;
}

QString kaFile::getPathVariable(const QString& name) {
    QString value;
    return lookupVariable(name, value) ? value : QString();
}

QString kaFile::getExtension(const QString& name) {
    int dot = lastDotOfFileName(name);
    return dot < 0 ? QString() : name.mid(dot + 1);
}

std::string kaFile::getExtension(const std::string& name) {
    return getExtension(QString::fromStdString(name)).toStdString();
}

QString kaFile::getFilePath(const QString& name) {
    int slash = name.lastIndexOf('/');
    if (slash < 0)
        return QString();
    if (slash == 0)
        return "/";
    return name.left(slash);
}

QString kaFile::getFileName(const QString& name) {
    return name.mid(name.lastIndexOf('/') + 1);
}

QString kaFile::getBaseName(const QString& name) {
    QString file = getFileName(name);
    int dot = lastDotOfFileName(file);
    return dot < 0 ? file : file.left(dot);
}

bool kaFile::createPath(const QString& path) {
    if (path.isEmpty())
        return true;
    return QDir().mkpath(path) && QFileInfo(path).isDir();
}

bool kaFile::exists(const QString& name) {
    return !name.isEmpty() && QFileInfo::exists(name);
}

bool kaFile::checkWrite(const QString& name, bool ask, bool report) {
    auto refuse = [&](const char* format, const QString& what) {
        if (report)
            kaLog::error(format, what.toUtf8().constData());
        return false;
    };
    if (name.isEmpty()) {
        if (report)
            kaLog::error("kaFile: No file name given!");
        return false;
    }

    QFileInfo file(name);
    QFileInfo folder(file.absolutePath());
    if (!folder.isDir())
        return refuse("kaFile: The folder '%s' doesn't exist!", folder.filePath());
    if (!folder.isWritable())
        return refuse("kaFile: The folder '%s' is not writable!", folder.filePath());
    if (!file.exists())
        return true;
    if (file.isDir())
        return refuse("kaFile: '%s' is a folder, not a file!", name);
    if (!file.isWritable())
        return refuse("kaFile: The file '%s' is not writable!", name);
    if (!ask)
        return true;

    if (kaController::isNoGUI()) {
        bool overwrite = kaController::getBatchOverwrite();
        if (overwrite)
            kaLog::info("kaFile: Overwriting '%s'.", name.toUtf8().constData());
        else
            kaLog::warning("kaFile: '%s' exists and is not overwritten.",
                           name.toUtf8().constData());
        return overwrite;
    }
    QMessageBox::StandardButton answer = QMessageBox::question(
        kaController::getMainWindow(), kaPlatform::getAppVersionName(),
        QObject::tr("The file '%1' already exists.\nDo you want to replace it?").arg(name),
        QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    return answer == QMessageBox::Yes;
}
