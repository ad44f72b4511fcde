// What the command lines of the tools share.
#ifndef TOOLS_COMMAND_LINE_H
#define TOOLS_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "did_you_mean.h"
#include "printable.h"

#include "manual.h"

namespace command_line {

constexpr int kUsage = 2;  // exit status for wrong arguments

// A sentence about an argument that nothing takes, with the known word that is nearest.
inline std::string unexpected(const CLI::App& app, const std::string& argument) {
  const std::string word = argument.substr(0, argument.find('='));
  const bool option = word.size() > 1 && word[0] == '-';
  const CLI::App* innermost = &app;
  while (!innermost->get_subcommands().empty()) innermost = innermost->get_subcommands().front();
  std::vector<std::string> known;
  if (option) {
    for (const CLI::App* each : {&app, innermost}) {
      for (const CLI::Option* one : each->get_options()) {
        for (const std::string& name : one->get_lnames()) known.push_back("--" + name);
      }
    }
  } else {
    for (const CLI::App* each : innermost->get_subcommands({})) known.push_back(each->get_name());
  }
  return (option          ? "There is no option "
          : known.empty() ? "Nothing takes the argument "
                          : "There is no command ") +
         printable(word) + did_you_mean(word, known);
}

// Takes the arguments. False when there is nothing left to do: help was asked for, or an argument is wrong.
// Then `status` is how the program ends.
inline bool parse(CLI::App& app, int argc, char** argv, int* status) {
  app.set_version_flag("--version", app.get_name() + " " BRIO_VERSION);
  add_generator(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& wrong) {
    const std::vector<std::string> extra = app.remaining(true);
    const bool told = wrong.get_exit_code() == 0 || extra.empty();
    *status = wrong.get_exit_code() == 0 ? 0 : kUsage;
    if (told) app.exit(wrong);
    if (!told) std::cerr << unexpected(app, extra[0]) << "\nRun with --help for more information.\n";
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
inline std::string not_negative(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' && value >= 0 ? "" : "'" + text + "' is no number, 0 or above";
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
// The number of a scan's entry, or MCC and MNC.
inline std::string number_or_plmn(const std::string& text) {
  static const std::regex known("[0-9]{1,2}|[0-9]{3}-?[0-9]{2,3}");
  return std::regex_match(text, known) ? ""
                                       : "'" + text + "' is neither a number of the list nor MCC and MNC";
}
inline std::string not_empty(const std::string& text) {
  return text.empty() ? "it is empty" : "";
}

}  // namespace command_line

#endif
