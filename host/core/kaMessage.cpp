#include "kaMessage.h"

#include <cxxabi.h>
#include <execinfo.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

kaMessage::kaMessage(const kaMessage& other)
    : _values(other.values())
    , _id(other._id) {}

kaMessage& kaMessage::operator=(const kaMessage& other) {
    if (this == &other)
        return *this;
    // The copy is made before taking this lock: two messages never lock each other.
    Map copy = other.values();
    std::unique_lock<std::shared_mutex> lock(_lock);
    _values.swap(copy);
    _id = other._id;
    return *this;
}

kaMessage::Map kaMessage::values() const {
    std::shared_lock<std::shared_mutex> lock(_lock);
    return _values;
}

boost::any kaMessage::get(const std::string& key) const {
    std::shared_lock<std::shared_mutex> lock(_lock);
    auto it = _values.find(key);
    return it == _values.end() ? boost::any() : it->second;
}

bool kaMessage::has(const std::string& key) const {
    std::shared_lock<std::shared_mutex> lock(_lock);
    return _values.count(key) != 0;
}

void kaMessage::store(const std::string& key, boost::any value) {
    std::unique_lock<std::shared_mutex> lock(_lock);
    _values[key].swap(value);
    // The old value goes when 'value' does, after the lock: a reader's copy of it stays valid.
}

void kaMessage::set(const std::string& key, bool value) {
    store(key, value);
}
void kaMessage::set(const std::string& key, int value) {
    store(key, value);
}
void kaMessage::set(const std::string& key, float value) {
    store(key, value);
}
void kaMessage::set(const std::string& key, const std::vector<int>& value) {
    store(key, value);
}
void kaMessage::set(const std::string& key, const QString& value) {
    store(key, value);
}

bool kaMessage::setAny(const std::string& key, const boost::any& value) {
    if (value.empty() || !isStorableType(value.type()))
        return false;
    store(key, value);
    return true;
}

bool kaMessage::remove(const std::string& key) {
    std::unique_lock<std::shared_mutex> lock(_lock);
    return _values.erase(key) != 0;
}

void kaMessage::clear() {
    Map old;
    std::unique_lock<std::shared_mutex> lock(_lock);
    _values.swap(old);
}

bool kaMessage::isStorableType(const std::type_info& type) {
    return type == typeid(bool) || type == typeid(int) || type == typeid(float) ||
           type == typeid(std::vector<int>) || type == typeid(QString);
}

std::string kaMessage::typeName(const std::type_info& type) {
    if (type == typeid(bool))
        return "bool";
    if (type == typeid(int))
        return "int";
    if (type == typeid(float))
        return "float";
    if (type == typeid(std::vector<int>))
        return "std::vector<int>";
    if (type == typeid(QString))
        return "QString";
    if (type == typeid(void))
        return "empty";
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && demangled ? demangled.get() : type.name();
}

std::string kaMessage::typeName(const boost::any& value) {
    return typeName(value.type());
}

namespace {
// backtrace_symbols gives "binary(mangled+0x12) [0xaddr]"; show the demangled function.
std::string readableFrame(const char* symbol) {
    const char* open = std::strchr(symbol, '(');
    const char* plus = open ? std::strchr(open, '+') : nullptr;
    if (!open || !plus || plus == open + 1)
        return symbol;
    std::string mangled(open + 1, plus);
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), std::free);
    if (status != 0 || !demangled)
        return symbol;
    return std::string(symbol, open) + ": " + demangled.get();
}
} // namespace

void kaMessage::printBT() {
    void* frames[64];
    int count = backtrace(frames, 64);
    std::unique_ptr<char*, void (*)(void*)> symbols(backtrace_symbols(frames, count), std::free);
    std::fprintf(stderr, "back-trace (%d frames):\n", count - 1);
    // Frame 0 is printBT itself.
    for (int i = 1; i < count; ++i) {
        std::string line = symbols ? readableFrame(symbols.get()[i]) : std::string("?");
        std::fprintf(stderr, "  #%-2d %s\n", i - 1, line.c_str());
    }
    std::fflush(stderr);
}
