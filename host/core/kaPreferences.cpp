#include "kaPreferences.h"

#include "kaLog.h"
#include "kaPreferenceKeys.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cmath>
#include <limits>

namespace {

struct Store {
    kaMessage data;
    QString path;
    // A file that could not be read is never overwritten: it is moved aside first.
    QString unreadablePath;
};

// Made once, on first use, from whichever thread gets there first.
Store& store() {
    static Store s{kaPreferenceKeys::defaults(), QString(), QString()};
    return s;
}

constexpr int kFormatVersion = 1;

QJsonObject toJson(const boost::any& value) {
    QJsonObject entry;
    const std::type_info& type = value.type();
    entry["type"] = QString::fromStdString(kaMessage::typeName(value));
    if (type == typeid(bool)) {
        entry["value"] = boost::any_cast<bool>(value);
    } else if (type == typeid(int)) {
        entry["value"] = boost::any_cast<int>(value);
    } else if (type == typeid(float)) {
        // float -> double is exact and the JSON writer prints doubles round-trip safe.
        entry["value"] = double(boost::any_cast<float>(value));
    } else if (type == typeid(std::vector<int>)) {
        QJsonArray array;
        for (int v : boost::any_cast<const std::vector<int>&>(value))
            array.append(v);
        entry["value"] = array;
    } else if (type == typeid(QString)) {
        entry["value"] = boost::any_cast<const QString&>(value);
    }
    return entry;
}

bool isInt(const QJsonValue& v) {
    if (!v.isDouble())
        return false;
    double d = v.toDouble();
    return std::floor(d) == d && d >= std::numeric_limits<int>::min() &&
           d <= std::numeric_limits<int>::max();
}

bool fromJson(const QJsonValue& json, boost::any& value, QString& why) {
    if (!json.isObject()) {
        why = "the entry is not an object with \"type\" and \"value\"";
        return false;
    }
    QJsonObject entry = json.toObject();
    QString type = entry.value("type").toString();
    QJsonValue v = entry.value("value");
    if (type == "bool" && v.isBool()) {
        value = v.toBool();
    } else if (type == "int" && isInt(v)) {
        value = v.toInt();
    } else if (type == "float" && v.isDouble()) {
        value = float(v.toDouble());
    } else if (type == "std::vector<int>" && v.isArray()) {
        std::vector<int> list;
        for (const QJsonValue& item : v.toArray()) {
            if (!isInt(item)) {
                why = "an element of the int list is not an integer";
                return false;
            }
            list.push_back(item.toInt());
        }
        value = list;
    } else if (type == "QString" && v.isString()) {
        value = v.toString();
    } else {
        why = QString("type \"%1\" with a value of the wrong form").arg(type);
        return false;
    }
    return true;
}

QString freeAsidePath(const QString& path) {
    QString aside = path + ".broken";
    for (int n = 1; QFileInfo::exists(aside); ++n)
        aside = QString("%1.broken-%2").arg(path).arg(n);
    return aside;
}

void report(QString* out, const QString& text) {
    if (out)
        *out = text;
}

} // namespace

kaMessage& kaPreferences::getData() {
    return store().data;
}

void kaPreferences::resetToDefaults() {
    store().data = kaPreferenceKeys::defaults();
}

QString kaPreferences::getPath() {
    return store().path;
}

bool kaPreferences::read(const QString& path, kaMessage& out, QString& error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString();
        return false;
    }
    QJsonParseError parseError;
    QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        error = QString("%1 at offset %2").arg(parseError.errorString()).arg(parseError.offset);
        return false;
    }
    if (!doc.isObject() || !doc.object().value("values").isObject()) {
        error = "no \"values\" object at the top level";
        return false;
    }
    // Parse everything first so that a bad entry leaves the defaults, not a mixture.
    kaMessage loaded = kaPreferenceKeys::defaults();
    QJsonObject values = doc.object().value("values").toObject();
    for (auto it = values.begin(); it != values.end(); ++it) {
        boost::any value;
        QString why;
        if (!fromJson(it.value(), value, why)) {
            error = QString("key \"%1\": %2").arg(it.key(), why);
            return false;
        }
        loaded.setAny(it.key().toStdString(), value);
    }
    out = loaded;
    return true;
}

bool kaPreferences::load(const QString& path, QString* error) {
    Store& s = store();
    s.path = path;
    kaMessage loaded;
    QString why;
    if (!read(path, loaded, why)) {
        s.data = kaPreferenceKeys::defaults();
        QString text =
            QString("Couldn't read preferences '%1': %2. Using the defaults; the file is "
                    "kept as it is.")
                .arg(path, why);
        kaLog::error("kaPreferences: %s", text.toUtf8().constData());
        s.unreadablePath = QFileInfo(path).absoluteFilePath();
        report(error, text);
        return false;
    }
    s.data = loaded;
    if (s.unreadablePath == QFileInfo(path).absoluteFilePath())
        s.unreadablePath.clear();
    return true;
}

bool kaPreferences::save(const QString& path, QString* error) {
    Store& s = store();
    QString absolute = QFileInfo(path).absoluteFilePath();
    if (!s.unreadablePath.isEmpty() && s.unreadablePath == absolute && QFileInfo::exists(path)) {
        QString aside = freeAsidePath(path);
        if (!QFile::rename(path, aside)) {
            QString text = QString("Couldn't move the unreadable preferences '%1' aside to '%2'; "
                                   "not saving over it.")
                               .arg(path, aside);
            kaLog::error("kaPreferences: %s", text.toUtf8().constData());
            report(error, text);
            return false;
        }
        kaLog::warning("kaPreferences: kept the unreadable preferences file as '%s'.",
                       aside.toUtf8().constData());
        s.unreadablePath.clear();
    }

    QJsonObject values;
    for (const auto& [key, value] : s.data.values())
        values[QString::fromStdString(key)] = toJson(value);
    QJsonObject root;
    root["version"] = kFormatVersion;
    root["values"] = values;

    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(root).toJson(QJsonDocument::Indented)) < 0 || !file.commit()) {
        QString text = QString("Couldn't save preferences '%1': %2").arg(path, file.errorString());
        kaLog::error("kaPreferences: %s", text.toUtf8().constData());
        report(error, text);
        return false;
    }
    s.path = path;
    return true;
}
