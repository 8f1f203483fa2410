#pragma once

#include <string>
#include <vector>

namespace korrun {

// The paths of the files in which the library looks for settings besides the working directory: the
// user's, if there is a place for one, and the system's.
std::vector<std::string> settingsFiles();

// Whether the file gives the key of that section a value.
bool setsKey(const std::string& file, const std::string& section, const std::string& key);

// Gives programs that are started from here the settings of an installation, by their environment
// variables, as far as the variable is not set and no settings file has a value of its own: a
// variable would override the file.
void giveShippedSettings();

} // namespace korrun
