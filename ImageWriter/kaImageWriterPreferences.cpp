// Typed reads of the host's preference message.
#include "kaImageWriter.h"

#include "kaMessage.h"

#include <cstdio>

namespace {
template <typename T>
bool readTyped(const kaMessage& message, const char* key, T& value) {
    boost::any stored = message.get(key);
    if (stored.empty())
        return false;
    if (stored.type() == typeid(T)) {
        value = boost::any_cast<const T&>(stored);
        return true;
    }
    std::fprintf(stderr, "getFromMessage : Attribute '%s' has wrong type (is:'%s' != req:'%s')!\n",
                 key, kaMessage::typeName(stored).c_str(), kaMessage::typeName(typeid(T)).c_str());
    std::fflush(stderr);
    kaMessage::printBT();
    return false;
}
} // namespace

bool kaImageWriter::getFromMessage(const kaMessage& message, const char* key, bool& value) {
    return readTyped(message, key, value);
}
bool kaImageWriter::getFromMessage(const kaMessage& message, const char* key, int& value) {
    return readTyped(message, key, value);
}
bool kaImageWriter::getFromMessage(const kaMessage& message, const char* key, float& value) {
    return readTyped(message, key, value);
}
bool kaImageWriter::getFromMessage(const kaMessage& message, const char* key,
                                   std::vector<int>& value) {
    return readTyped(message, key, value);
}
bool kaImageWriter::getFromMessage(const kaMessage& message, const char* key, QString& value) {
    return readTyped(message, key, value);
}
