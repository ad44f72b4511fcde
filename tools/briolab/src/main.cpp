// briolab: sessions with the library on a simulated modem, typed or from a file.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "command_line.h"
#include "interactive.h"
#include "session.h"
#include "session_file.h"

namespace {

constexpr int kDiffers = 1;

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "The library in the laboratory: opened on a simulated modem inside this process, with time and files\n"
      "at your command. Without FILE the commands come from the terminal; with FILE a session is played,\n"
      "and what differs from it is shown. Nothing outside a temporary folder is touched.",
      "briolab"};
  app.footer(
      "Exit status: 0; 1 when something differs or is left open; 2 when a file, or a command from a file "
      "or a pipe,\n"
      "cannot be used.\n\n"
      "Examples:\n"
      "  briolab                        type: open, call wabs_get_bars, urc +CREG: 5, help, Ctrl-D\n"
      "  briolab --record case.txt      the same, kept as a session\n"
      "  briolab case.txt               plays it and says where the library behaves otherwise now\n"
      "  echo 'call brio_open /dev/ttyACM2' | briolab -v");
  std::string file, record;
  bool update = false, verbose = false, commands = false, functions = false;
  auto* file_option = app.add_option("FILE", file, "Session to play");
  app.add_flag("--update", update, "Write what is shown into FILE")->needs(file_option);
  app.add_option("--record", record, "Write the typed session as a session")
      ->type_name("FILE")
      ->excludes(file_option);
  app.add_flag("-v,--verbose", verbose, "Show the library's whole log")->excludes(file_option);
  app.add_flag("--commands", commands, "Tell what can be typed");
  app.add_flag("--functions", functions, "List the functions that `call` knows, with their arguments");
  int ended = 0;
  if (!command_line::parse(app, argc, argv, &ended)) return ended;
  if (commands || functions) {
    std::cout << (commands ? lab::help() : "") << (functions ? lab::function_list() : "");
    return 0;
  }
  try {
    const bool good =
        file.empty() ? lab::run_interactively(record, verbose) : lab::play_session(file, update);
    return good ? 0 : kDiffers;
  } catch (const std::exception& error) {
    std::cerr << (file.empty() ? "briolab" : file) << ": " << error.what() << "\n";
    return command_line::kUsage;
  }
}
