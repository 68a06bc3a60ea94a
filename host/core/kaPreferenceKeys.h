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
};

const std::vector<Key>& all();
// Null when the key is unknown.
const Key* find(const std::string& name);

// A fresh message holding the default value of every known key.
kaMessage defaults();

// Parses 'text' as a value of 'key's type: bool (true/false/1/0/yes/no/on/off), int,
// float, int list ("1,2,3" or "[1, 2, 3]") or string. Returns an empty any and sets 'error'
// when the text has the wrong form.
boost::any parseValue(const Key& key, const QString& text, QString& error);

} // namespace kaPreferenceKeys
