#pragma once

#include <QString>

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
class Validator;
} // namespace CLI

class kaMessage;

namespace kaexport {

// "all" or a comma-separated list of pass names -> pass indices in the given order.
bool parsePassList(const QString& text, std::vector<unsigned int>& passes, QString& error);
// The same as a check of the command line (the passes are parsed again by the command).
CLI::Validator passListCheck();

// Applies "Key=value" to the preference store, typed and checked against the known keys and
// their ranges.
bool applyPreferenceAssignment(const QString& assignment, QString& error);

// Reads a preferences file over the defaults into 'out' and checks every known key's type and
// range; false with one line saying what is wrong.
bool readPreferencesFile(const QString& path, kaMessage& out, QString& error);

// The known preferences with their types, ranges and meanings, for the program's help.
std::string preferencesHelp();

// Allowed values of a numeric option, shown as "MIN..MAX" and reported as "Value 9 is not in
// MIN..MAX".
CLI::Validator rangeCheck(double minimum, double maximum);

// Sets up a sub-command's help: its one-line summary stays its description (the program's
// command list shows it), 'explanation' follows its options.
void describe(CLI::App& command, const std::string& explanation);

// Colour spaces 3 (the monitor's) and 4 (the image profile) embed the profile file that
// the display or a preference names; "" when there is one, else what the user is told: the file
// then carries no profile.
std::string missingProfileWarning(int colorSpace);

// Adds the output name (a required positional argument) to a command.
CLI::Option* addOutput(CLI::App& command, std::string& out, const char* description);

} // namespace kaexport
