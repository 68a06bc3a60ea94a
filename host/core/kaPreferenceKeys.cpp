#include "kaPreferenceKeys.h"

#include <QRegularExpression>
#include <QStringList>

namespace kaPreferenceKeys {

namespace {
const std::type_info* const kBool = &typeid(bool);
const std::type_info* const kInt = &typeid(int);
const std::type_info* const kFloat = &typeid(float);
const std::type_info* const kIntList = &typeid(std::vector<int>);
const std::type_info* const kString = &typeid(QString);
constexpr double kMaxInt = 2147483647.0;
// Far beyond any picture a machine can hold; a typo's extra zeros are caught.
constexpr double kMaxSide = 1048576.0;

bool hasRange(const Key& key) {
    return key.minimum > -1e299 || key.maximum < 1e299;
}

QString number(double value) {
    return QString::number(value, 'g', 10);
}

boost::any parseText(const Key& key, const QString& text, QString& error);
} // namespace

const std::vector<Key>& all() {
    static const std::vector<Key> keys = {
        {"ImageExport tiff hdr", kBool, "write TIFF/PSD exports as 32-bit float"},
        {"ImageExport exr half", kBool, "write EXR exports as half float"},
        {"ImageExport multi layer exr", kBool, "put all render passes into one layered file"},
        {"ImageExport add sig", kBool, "draw the text signature into exported images"},
        {"ImageExport width", kInt, "export width in pixels", 1, kMaxSide},
        {"ImageExport height", kInt, "export height in pixels", 1, kMaxSide},
        {"MovieExport ssfactor", kInt, "supersampling level", 0, 3},
        {"ImageExport ignore aspect", kBool, "keep the picture's shape (false: match the view's)"},
        {"MovieExport alpha", kBool, "export an alpha channel"},
        {"MovieExport start frame", kInt, "first frame of a sequence", 0, kMaxInt},
        {"MovieExport stop frame", kInt, "last frame of a sequence", 0, kMaxInt},
        {"MovieExport fps", kInt, "frames per second of sequences and movies", 1, 1000},
        {"MovieExport dpi", kFloat, "resolution written into image files", 1, 100000},
        {"ImageExport stereo mode", kInt, "0 mono, 1 two eyes, 2 five eyes, 3 nine eyes", 0, 3},
        {"ImageExport quality", kInt, "JPEG quality", 0, 100},
        {"ImageExport png level", kInt, "PNG compression: 0 none, 1 fastest .. 9 smallest", 0, 9},
        {"ImageExport show image", kBool, "show each saved image in a viewer"},
        {"ImageExport single viewer", kBool, "reuse one viewer window"},
        {"ImageExport sig position", kIntList, "signature x, y from the lower-left corner",
         -kMaxSide, kMaxSide, 2},
        {"ImageExport sig font size", kInt, "signature font pixel size", 1, 1000},
        {"ImageExport sig color", kIntList, "signature red, green, blue", 0, 255, 3},
        {"ImageExport sig comment", kString, "signature comment"},
        {"ImageExport sig add filename", kBool, "signature starts with the file name"},
        {"ImageExport sig add date", kBool, "signature shows the date"},
        {"ImageExport sig add time", kBool, "signature shows the time"},
        {"Image Export Max Framebuffer Memory", kInt, "tile memory budget in MB, 0 = unlimited",
         0, kMaxInt},
        {"Use System Monitor Profile", kBool, "embed the display's ICC profile (colour space 3)"},
        {"Monitorprofile", kString, "ICC profile file used for colour space 3 as fallback"},
        {"Imageprofile", kString, "ICC profile file used for colour space 4"},
        {"Headlight", kInt,
         "default lights (a headlight and a soft environment): 0 for scenes without lights, "
         "1 always, 2 never",
         0, 2},
        {"Exposure", kFloat, "stops of light: lights and glowing surfaces 2^stops as bright", -20,
         20},
        {"Play Sound On Export", kBool, "beep when an export has finished"},
    };
    return keys;
}

const Key* find(const std::string& name) {
    for (const Key& key : all())
        if (name == key.name)
            return &key;
    return nullptr;
}

kaMessage defaults() {
    kaMessage m;
    m.set("ImageExport tiff hdr", false);
    m.set("ImageExport exr half", false);
    m.set("ImageExport multi layer exr", false);
    m.set("ImageExport add sig", false);
    m.set("ImageExport width", 800);
    m.set("ImageExport height", 600);
    m.set("MovieExport ssfactor", 1);
    // Pictures keep their own shape unless the host wants them matched to its window.
    m.set("ImageExport ignore aspect", true);
    m.set("MovieExport alpha", false);
    m.set("MovieExport start frame", 0);
    m.set("MovieExport stop frame", 100);
    m.set("MovieExport fps", 25);
    m.set("MovieExport dpi", 72.0f);
    m.set("ImageExport stereo mode", 0);
    m.set("ImageExport quality", 90);
    // The fastest level. On the built-in scene at 8192 x 8192 on two cores
    // (bench/pngWriterBench.cpp) level 1 encodes 10 times as fast as OpenImageIO's PNG writer
    // and 3 times as fast as level 6, for files 1.5 and 1.8 times as large; level 2 saves only
    // 4 % more. A large export waits for its encoding; whoever wants smaller files sets more.
    m.set("ImageExport png level", 1);
    m.set("ImageExport show image", false);
    m.set("ImageExport single viewer", true);
    m.set("ImageExport sig position", std::vector<int>{10, 10});
    m.set("ImageExport sig font size", 14);
    m.set("ImageExport sig color", std::vector<int>{255, 255, 255});
    m.set("ImageExport sig comment", QString());
    m.set("ImageExport sig add filename", true);
    m.set("ImageExport sig add date", true);
    m.set("ImageExport sig add time", true);
    m.set("Image Export Max Framebuffer Memory", 2048);
    m.set("Use System Monitor Profile", true);
    m.set("Monitorprofile", QString());
    m.set("Imageprofile", QString());
    m.set("Headlight", 0);
    m.set("Exposure", 0.0f);
    m.set("Play Sound On Export", false);
    return m;
}

QString typeLabel(const std::type_info& type) {
    if (type == typeid(bool))
        return "bool";
    if (type == typeid(int))
        return "int";
    if (type == typeid(float))
        return "float";
    if (type == typeid(std::vector<int>))
        return "list";
    if (type == typeid(QString))
        return "text";
    return "unknown";
}

QString allowedValues(const Key& key) {
    const QString range = hasRange(key) ? QString(" from %1 to %2").arg(number(key.minimum),
                                                                        number(key.maximum))
                                        : QString();
    if (*key.type == typeid(std::vector<int>))
        return (key.listSize > 0 ? QString("a list of %1 ints").arg(key.listSize)
                                 : QString("a list of ints")) +
               range;
    if (*key.type == typeid(int))
        return "an int" + range;
    if (*key.type == typeid(float))
        return "a float" + range;
    if (*key.type == typeid(bool))
        return "a bool (true or false)";
    return "text";
}

bool check(const Key& key, const boost::any& value, QString& error) {
    if (value.empty() || value.type() != *key.type) {
        error = QString("must be %1, not %2")
                    .arg(allowedValues(key),
                         value.empty() ? QString("nothing")
                                       : "a value of type " + typeLabel(value.type()));
        return false;
    }
    auto inRange = [&](double v) { return v >= key.minimum && v <= key.maximum; };
    if (*key.type == typeid(int) && !inRange(boost::any_cast<int>(value))) {
        error = QString("must be %1, not %2").arg(allowedValues(key)).arg(boost::any_cast<int>(value));
        return false;
    }
    if (*key.type == typeid(float) && !inRange(double(boost::any_cast<float>(value)))) {
        error = QString("must be %1, not %2")
                    .arg(allowedValues(key), number(double(boost::any_cast<float>(value))));
        return false;
    }
    if (*key.type == typeid(std::vector<int>)) {
        const auto& list = boost::any_cast<const std::vector<int>&>(value);
        bool ok = key.listSize == 0 || int(list.size()) == key.listSize;
        QStringList items;
        for (int v : list) {
            ok = ok && inRange(v);
            items << QString::number(v);
        }
        if (!ok) {
            error = QString("must be %1, not [%2]").arg(allowedValues(key), items.join(", "));
            return false;
        }
    }
    return true;
}

boost::any parseValue(const Key& key, const QString& text, QString& error) {
    boost::any value = parseText(key, text, error);
    if (!value.empty() && !check(key, value, error))
        return boost::any();
    return value;
}

namespace {
boost::any parseText(const Key& key, const QString& text, QString& error) {
    const QString t = text.trimmed();
    bool ok = false;
    if (*key.type == typeid(bool)) {
        const QString l = t.toLower();
        if (l == "true" || l == "1" || l == "yes" || l == "on")
            return true;
        if (l == "false" || l == "0" || l == "no" || l == "off")
            return false;
        error = QString("'%1' is not a bool (true or false)").arg(text);
    } else if (*key.type == typeid(int)) {
        int v = t.toInt(&ok);
        if (ok)
            return v;
        error = QString("'%1' is not an integer").arg(text);
    } else if (*key.type == typeid(float)) {
        float v = t.toFloat(&ok);
        if (ok)
            return v;
        error = QString("'%1' is not a number").arg(text);
    } else if (*key.type == typeid(std::vector<int>)) {
        QString inner = t;
        if (inner.startsWith('[') && inner.endsWith(']'))
            inner = inner.mid(1, inner.size() - 2);
        std::vector<int> list;
        const QStringList parts = inner.split(',', Qt::KeepEmptyParts);
        for (const QString& part : parts) {
            if (part.trimmed().isEmpty() && parts.size() == 1)
                break; // "" or "[]" is the empty list
            int v = part.trimmed().toInt(&ok);
            if (!ok) {
                error = QString("'%1' is not a comma-separated list of integers").arg(text);
                return boost::any();
            }
            list.push_back(v);
        }
        return list;
    } else if (*key.type == typeid(QString)) {
        return text;
    }
    return boost::any();
}

} // namespace

} // namespace kaPreferenceKeys
