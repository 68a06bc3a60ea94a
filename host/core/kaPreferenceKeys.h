#pragma once

#include "kaMessage.h"

#include <QString>

#include <string>
#include <typeinfo>
#include <vector>

// The preference keys the host knows, with their value types and the host's defaults.
// The command line checks "--set" values against this table.
namespace kaPreferenceKeys {

struct Key {
    const char* name;
    const std::type_info* type;
    const char* description;
    // Allowed values of an int or float, and of each element of an int list.
    double minimum = -1e300;
    double maximum = 1e300;
    // Exact number of elements of an int list; 0: any number.
    int listSize = 0;
};

const std::vector<Key>& all();
// Null when the key is unknown.
const Key* find(const std::string& name);

// A fresh message holding the default value of every known key.
kaMessage defaults();

// Parses 'text' as a value of 'key's type: bool (true/false/1/0/yes/no/on/off), int,
// float, int list ("1,2,3" or "[1, 2, 3]") or string. Returns an empty any and sets 'error'
// when the text has the wrong form or the value is outside the key's range.
boost::any parseValue(const Key& key, const QString& text, QString& error);

// Whether 'value' has the key's type and lies in its range; 'error' says what is wrong
// ("must be an int from 0 to 100, not 500").
bool check(const Key& key, const boost::any& value, QString& error);

// The key's type as users read it: "bool", "int", "float", "list" (of ints) or "text".
QString typeLabel(const std::type_info& type);
// The allowed values in words, such as "an int from 0 to 100" or "a list of 3 ints from 0 to
// 255".
QString allowedValues(const Key& key);

} // namespace kaPreferenceKeys
