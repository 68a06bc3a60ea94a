#include "kaFbxFile.h"

#include <QFile>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

// One record of the binary format: a name, its values (numbers and strings; arrays and raw
// bytes are skipped), and the records inside it.
struct Record {
    std::string name;
    std::vector<int64_t> integers;
    std::vector<double> numbers; // every numeric value, integers included
    std::vector<std::string> strings;
    std::vector<Record> children;
};

class Reader {
public:
    explicit Reader(const QByteArray& bytes)
        : _data(bytes) {}

    // The records at the top, after the 27-byte header; false when the file isn't binary FBX
    // or is cut short.
    bool readAll(std::vector<Record>& records) {
        static const char magic[] = "Kaydara FBX Binary  ";
        if (_data.size() < 27 || std::memcmp(_data.constData(), magic, 20) != 0)
            return false;
        _wide = value<uint32_t>(23) >= 7500; // 64-bit record offsets from version 7.5
        _at = 27;
        return readList(size_t(_data.size()), records);
    }

private:
    template <typename T>
    T value(size_t at) const {
        T v{};
        if (at + sizeof(T) <= size_t(_data.size()))
            std::memcpy(&v, _data.constData() + at, sizeof(T));
        return v;
    }
    template <typename T>
    bool take(T& v) {
        if (_at + sizeof(T) > size_t(_data.size()))
            return false;
        v = value<T>(_at);
        _at += sizeof(T);
        return true;
    }
    uint64_t offset() {
        if (_wide) {
            uint64_t v = 0;
            return take(v) ? v : 0;
        }
        uint32_t v = 0;
        return take(v) ? v : 0;
    }

    // Records up to 'end' or to the empty record that closes a list. Files nest a few levels;
    // a deeper one is taken as broken rather than let it exhaust the stack.
    bool readList(size_t end, std::vector<Record>& records, int depth = 0) {
        if (depth > 32)
            return false;
        while (_at < end) {
            const size_t start = _at;
            const uint64_t recordEnd = offset(), count = offset();
            offset(); // the size of the values
            uint8_t nameLength = 0;
            if (!take(nameLength))
                return false;
            if (recordEnd == 0) // the closing record
                return true;
            if (recordEnd > uint64_t(_data.size()) || recordEnd <= start ||
                _at + nameLength > size_t(_data.size()))
                return false;
            Record record;
            record.name.assign(_data.constData() + _at, nameLength);
            _at += nameLength;
            for (uint64_t i = 0; i < count; ++i)
                if (!readValue(record))
                    return false;
            if (_at < recordEnd && !readList(size_t(recordEnd), record.children, depth + 1))
                return false;
            _at = size_t(recordEnd);
            records.push_back(std::move(record));
        }
        return true;
    }

    bool readValue(Record& record) {
        char type = 0;
        if (!take(type))
            return false;
        auto integer = [&](auto v) {
            if (!take(v))
                return false;
            record.integers.push_back(int64_t(v));
            record.numbers.push_back(double(v));
            return true;
        };
        auto number = [&](auto v) {
            if (!take(v))
                return false;
            record.numbers.push_back(double(v));
            return true;
        };
        switch (type) {
        case 'Y':
            return integer(int16_t());
        case 'C':
            return integer(uint8_t());
        case 'I':
            return integer(int32_t());
        case 'L':
            return integer(int64_t());
        case 'F':
            return number(float());
        case 'D':
            return number(double());
        case 'S':
        case 'R': {
            uint32_t length = 0;
            if (!take(length) || _at + length > size_t(_data.size()))
                return false;
            if (type == 'S')
                record.strings.emplace_back(_data.constData() + _at, length);
            _at += length;
            return true;
        }
        case 'f':
        case 'd':
        case 'l':
        case 'i':
        case 'b': {
            uint32_t length = 0, encoding = 0, bytes = 0;
            if (!take(length) || !take(encoding) || !take(bytes) ||
                _at + bytes > size_t(_data.size()))
                return false;
            _at += bytes;
            return true;
        }
        default:
            return false;
        }
    }

    const QByteArray& _data;
    size_t _at = 0;
    bool _wide = false;
};

// An object's name without the class FBX appends after "\x00\x01".
std::string objectName(const Record& record) {
    if (record.strings.empty())
        return std::string();
    const std::string& name = record.strings.front();
    return name.substr(0, name.find(std::string("\0\x01", 2)));
}

const Record* child(const Record& record, const char* name) {
    for (const Record& c : record.children)
        if (c.name == name)
            return &c;
    return nullptr;
}

// The "P" record of property 'name' in a Properties70 record; null when it isn't there.
const Record* property(const Record* properties, const char* name) {
    if (properties)
        for (const Record& p : properties->children)
            if (!p.strings.empty() && p.strings.front() == name)
                return &p;
    return nullptr;
}

// The numbers of property 'name' of an object, else of its template, else 'fallback'.
std::vector<double> numbersOf(const Record& object, const Record* defaults, const char* name,
                              std::vector<double> fallback) {
    for (const Record* p :
         {property(child(object, "Properties70"), name), property(defaults, name)})
        if (p && p->numbers.size() >= fallback.size())
            return p->numbers;
    return fallback;
}

// The Properties70 of the template of 'type' objects ("FbxLight", "FbxCamera"), if any.
const Record* templateOf(const std::vector<Record>& top, const char* type) {
    for (const Record& section : top)
        if (section.name == "Definitions")
            for (const Record& objectType : section.children)
                for (const Record& t : objectType.children)
                    if (t.name == "PropertyTemplate" && !t.strings.empty() &&
                        t.strings.front() == type)
                        return child(t, "Properties70");
    return nullptr;
}

} // namespace

kaFbxFile kaFbxFile::read(const QString& fileName) {
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    std::vector<Record> top;
    if (!Reader(bytes).readAll(top))
        return {};
    const Record* cameraDefaults = templateOf(top, "FbxCamera");
    std::map<int64_t, double> zooms;       // by camera attribute id
    std::map<int64_t, std::string> models; // by model id
    for (const Record& section : top) {
        if (section.name != "Objects")
            continue;
        for (const Record& object : section.children) {
            if (object.integers.empty())
                continue;
            const int64_t id = object.integers.front();
            if (object.name == "Model") {
                models[id] = objectName(object);
            } else if (object.name == "NodeAttribute" && object.strings.size() >= 2 &&
                       object.strings[1] == "Camera") {
                const bool orthographic =
                    numbersOf(object, cameraDefaults, "CameraProjectionType", {0})[0] == 1.0;
                const double zoom = numbersOf(object, cameraDefaults, "OrthoZoom", {1})[0];
                if (orthographic && zoom > 0)
                    zooms[id] = zoom;
            }
        }
    }
    // Connections join an attribute (first) to its model (second).
    kaFbxFile result;
    for (const Record& section : top)
        if (section.name == "Connections")
            for (const Record& c : section.children) {
                if (c.name != "C" || c.integers.size() < 2)
                    continue;
                auto model = models.find(c.integers[1]);
                if (model == models.end())
                    continue;
                auto zoom = zooms.find(c.integers[0]);
                if (zoom != zooms.end())
                    result.orthographicZooms[model->second] = zoom->second;
            }
    return result;
}
