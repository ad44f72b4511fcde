// What the command lines of the tools share.
#ifndef TOOLS_COMMAND_LINE_H
#define TOOLS_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>

namespace command_line {

constexpr int kUsage = 2;  // exit status for wrong arguments

// Takes the arguments. False when there is nothing left to do: help was asked for, or an argument is wrong.
// Then `status` is how the program ends.
inline bool parse(CLI::App& app, int argc, char** argv, int* status) {
  app.set_version_flag("--version", app.get_name() + " " BRIO_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& wrong) {
    *status = app.exit(wrong) == 0 ? 0 : kUsage;
    return false;
  }
  return true;
}

// Checks of an option's text: "" or what is wrong with it.
inline std::string above_zero(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return *end == '\0' && value > 0 ? "" : "'" + text + "' is no number above 0";
}
inline std::function<std::string(const std::string&)> between(double low, double high) {
  return [=](const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool good = !text.empty() && *end == '\0' && value >= low && value <= high;
    std::ostringstream wrong;
    wrong << "'" << text << "' is no number from " << low << " to " << high;
    return good ? "" : wrong.str();
  };
}
inline std::string not_empty(const std::string& text) {
  return text.empty() ? "it is empty" : "";
}

}  // namespace command_line

#endif
