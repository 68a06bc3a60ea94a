#include "kaexportOptions.h"

#include "kaPreferenceKeys.h"
#include "kaPreferences.h"
#include "kaRenderPasses.h"

namespace kaexport {

bool OptionReader::value(const QString& name, QString& out) {
    if (atEnd()) {
        error = QString("option %1 needs a value").arg(name);
        return false;
    }
    out = next();
    return true;
}

bool OptionReader::intValue(const QString& name, int& out) {
    QString text;
    if (!value(name, text))
        return false;
    bool ok = false;
    out = text.toInt(&ok);
    if (!ok)
        error = QString("option %1 needs an integer, not '%2'").arg(name, text);
    return ok;
}

bool OptionReader::outputName(const QString& arg, QString& out) {
    if (arg.startsWith("--")) {
        error = QString("unknown option '%1'").arg(arg);
        return false;
    }
    if (!out.isEmpty()) {
        error = QString("one output name only, not also '%1'").arg(arg);
        return false;
    }
    out = arg;
    return true;
}

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

} // namespace kaexport
