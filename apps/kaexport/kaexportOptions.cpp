#include "kaexportOptions.h"

#include "kaColor.h"
#include "kaFile.h"
#include "kaMessage.h"
#include "kaPreferenceKeys.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"

#include <CLI/CLI.hpp>

#include <QStringList>

namespace kaexport {

bool parsePassList(const QString& text, std::vector<unsigned int>& passes, QString& error) {
    passes.clear();
    if (text == "all") {
        for (unsigned int i = 0; i < kaRenderPassCount; ++i)
            passes.push_back(i);
        return true;
    }
    for (const QString& name : text.split(',', Qt::SkipEmptyParts)) {
        unsigned int index = 0;
        while (index < kaRenderPassCount &&
               kaRenderPassNames[index] != name.trimmed().toStdString())
            ++index;
        if (index == kaRenderPassCount) {
            QStringList known;
            for (const std::string& pass : kaRenderPassNames)
                known << QString::fromStdString(pass);
            error = QString("unknown render pass '%1'; the passes are: all, %2")
                        .arg(name.trimmed(), known.join(", "));
            return false;
        }
        passes.push_back(index);
    }
    if (passes.empty()) {
        error = "--passes needs 'all' or a list of pass names";
        return false;
    }
    return true;
}

CLI::Validator passListCheck() {
    return CLI::Validator(
        [](std::string& text) {
            std::vector<unsigned int> passes;
            QString error;
            return parsePassList(QString::fromStdString(text), passes, error) ? std::string()
                                                                              : error.toStdString();
        },
        "all|NAME,...");
}

bool applyPreferenceAssignment(const QString& assignment, QString& error) {
    int equals = assignment.indexOf('=');
    if (equals <= 0) {
        error = QString("--set needs \"Key=value\", not '%1'").arg(assignment);
        return false;
    }
    const std::string key = assignment.left(equals).trimmed().toStdString();
    const kaPreferenceKeys::Key* known = kaPreferenceKeys::find(key);
    if (!known) {
        error = QString("unknown preference '%1' (kaexport --help lists the preferences)")
                    .arg(QString::fromStdString(key));
        return false;
    }
    QString why;
    boost::any value = kaPreferenceKeys::parseValue(*known, assignment.mid(equals + 1), why);
    if (value.empty()) {
        error = QString("preference '%1': %2").arg(QString::fromStdString(key), why);
        return false;
    }
    kaPreferences::getData().setAny(key, value);
    return true;
}

bool readPreferencesFile(const QString& path, kaMessage& out, QString& error) {
    QString why;
    if (!kaPreferences::read(path, out, why)) {
        error = QString("Couldn't read preferences '%1': %2").arg(path, why);
        return false;
    }
    // A value the library would read with another type, or outside what it can take, stops the
    // run here, in one line, instead of deep inside an export.
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        if (!kaPreferenceKeys::check(key, out.get(key.name), why)) {
            error = QString("Couldn't use preferences '%1': \"%2\" %3").arg(path, key.name, why);
            return false;
        }
    }
    return true;
}

std::string preferencesHelp() {
    std::string text = "Preferences (--set \"Key=value\", or a --prefs file):\n";
    for (const kaPreferenceKeys::Key& key : kaPreferenceKeys::all()) {
        QString type = kaPreferenceKeys::typeLabel(*key.type);
        if (key.minimum > -1e299 || key.maximum < 1e299)
            type += QString(" %1..%2").arg(key.minimum, 0, 'g', 10).arg(key.maximum, 0, 'g', 10);
        if (key.listSize > 0)
            type += QString(", %1 values").arg(key.listSize);
        text += "  \"" + std::string(key.name) + "\" (" + type.toStdString() +
                "): " + key.description + "\n";
    }
    return text;
}

CLI::Validator rangeCheck(double minimum, double maximum) {
    const QString range = QString("%1..%2").arg(minimum, 0, 'g', 10).arg(maximum, 0, 'g', 10);
    return CLI::Validator(
        [minimum, maximum, range](std::string& text) {
            bool ok = false;
            const double value = QString::fromStdString(text).toDouble(&ok);
            if (ok && value >= minimum && value <= maximum)
                return std::string();
            return "Value " + text + " is not in " + range.toStdString();
        },
        range.toStdString());
}

void describe(CLI::App& command, const std::string& explanation) {
    command.footer("\n" + explanation);
}

std::string missingProfileWarning(int colorSpace) {
    auto preferenceFile = [](const char* key) {
        boost::any value = kaPreferences::getData().get(key);
        const QString* name = boost::any_cast<QString>(&value);
        return name ? kaFile::expandFilename(*name) : QString();
    };
    if (colorSpace == 4) {
        const QString file = preferenceFile("Imageprofile");
        if (file.isEmpty())
            return "colour space 4 has no profile (\"Imageprofile\" names none); the file "
                   "carries none";
        if (!kaFile::exists(file))
            return "colour space 4 has no profile (\"Imageprofile\" names '" + file.toStdString() +
                   "', which does not exist); the file carries none";
    }
    if (colorSpace == 3 && !kaColor::getICCProfile(3)->isLoaded())
        return "colour space 3 has no profile (no display reports one and "
               "\"Monitorprofile\" names none that exists); the file carries none";
    return std::string();
}

CLI::Option* addOutput(CLI::App& command, std::string& out, const char* description) {
    return command.add_option("OUT", out, description)->required()->type_name("");
}

} // namespace kaexport
