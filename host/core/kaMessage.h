#pragma once

#include <QString>

#include <boost/any.hpp>

#include <map>
#include <shared_mutex>
#include <string>
#include <typeinfo>
#include <vector>

// A map from key to a typed value. Values are exactly one of bool, int, float,
// std::vector<int> or QString; the set() overloads make any other type a compile error.
// Safe from any thread: background image writers read the preferences while the GUI thread
// changes or reloads them (a reader/writer lock; a read never sees half of an assignment).
class kaMessage {
public:
    using Map = std::map<std::string, boost::any>;

    kaMessage() = default;
    // A message with an id: what kind of message it is, for handlers of several kinds.
    explicit kaMessage(int id)
        : _id(id) {}
    int getId() const { return _id; }
    kaMessage(const kaMessage& other);
    kaMessage& operator=(const kaMessage& other);

    // The stored value, or an empty any when the key is absent.
    boost::any get(const std::string& key) const;
    bool has(const std::string& key) const;

    void set(const std::string& key, bool value);
    void set(const std::string& key, int value);
    void set(const std::string& key, float value);
    void set(const std::string& key, const std::vector<int>& value);
    void set(const std::string& key, const QString& value);
    void set(const std::string& key, const char* value) { set(key, QString::fromUtf8(value)); }
    // Stores an any that already holds one of the five types; returns false (and stores
    // nothing) for any other content.
    bool setAny(const std::string& key, const boost::any& value);
    template <typename T>
    void set(const std::string& key, T value) = delete;

    // Removes the key; returns whether it was there.
    bool remove(const std::string& key);
    void clear();
    // A copy of every entry.
    Map values() const;

    // Readable name of a value's type ("bool", "int", "float", "std::vector<int>", "QString");
    // "empty" for an empty any and the compiler's name for anything else.
    static std::string typeName(const boost::any& value);
    static std::string typeName(const std::type_info& type);
    static bool isStorableType(const std::type_info& type);

    // Prints the calling thread's back-trace to standard error.
    static void printBT();

private:
    void store(const std::string& key, boost::any value);

    mutable std::shared_mutex _lock;
    Map _values;
    int _id = 0;
};
