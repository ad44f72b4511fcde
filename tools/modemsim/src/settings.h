// The members of State by their names in scenario files.
#ifndef MODEMSIM_SETTINGS_H
#define MODEMSIM_SETTINGS_H

#include <functional>
#include <string>
#include <vector>

#include "toml_reader.h"

namespace modemsim {

inline constexpr char kClockForm[] =
    "a time as in AT+CCLK?, \"26/03/07,09:05:00-28\" (the zone in quarters of an hour)";
bool read_clock(Reader& reader, const std::string& key, std::string& place);

using Setters = std::vector<std::function<void(State&)>>;

// Every member of State that the table names.
Setters read_state(Reader& reader);

}  // namespace modemsim

#endif
