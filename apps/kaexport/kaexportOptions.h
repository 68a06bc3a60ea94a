#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace kaexport {

// Walks a command's arguments: options with or without a value, and positional arguments.
// Errors are kept as text for the usage message.
class OptionReader {
public:
    explicit OptionReader(const QStringList& args)
        : _args(args) {}

    bool atEnd() const { return _index >= _args.size(); }
    // The next argument, consumed.
    QString next() { return _args.at(_index++); }
    // The value of option 'name' (the next argument); false with an error when it is missing.
    bool value(const QString& name, QString& out);
    bool intValue(const QString& name, int& out);
    // An argument no option of the command took: the one output name; false with an error for
    // an unknown option or a second name.
    bool outputName(const QString& arg, QString& out);

    QString error;

private:
    QStringList _args;
    int _index = 0;
};

// "all" or a comma-separated list of pass names -> pass indices in the given order.
bool parsePassList(const QString& text, std::vector<unsigned int>& passes, QString& error);

// Applies "Key=value" to the preference store, typed and checked against the known keys.
bool applyPreferenceAssignment(const QString& assignment, QString& error);

} // namespace kaexport
