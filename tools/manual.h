// A program's manual page and shell completions, from what its --help says.
#ifndef TOOLS_MANUAL_H
#define TOOLS_MANUAL_H

#include <CLI/CLI.hpp>
#include <string>

namespace command_line {

// Adds `--generate man|bash|zsh`, which --help does not show: the packages' build asks for it. Prints and
// ends the parsing with CLI::Success.
void add_generator(CLI::App& app);

}  // namespace command_line

#endif
