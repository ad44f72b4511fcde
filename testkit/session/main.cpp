// session FILE: plays a session with the commands of briolab and of tests. --update writes what is shown into
// it, --list prints its commands.
#include <exception>
#include <iostream>
#include <string>

#include "kit/calls.h"
#include "kit_commands.h"
#include "lab/functions.h"
#include "session.h"
#include "session_file.h"

int main(int argc, char** argv) {
  const std::string option = argc == 3 ? argv[1] : "";
  if (argc != 2 && option != "--update" && option != "--list") {
    std::cerr << "usage: session [--update|--list] FILE\n";
    return 2;
  }
  lab::add_parts(lab::calls());
  lab::add_kit_commands();
  lab::also_left = [] {
    const long strays = faults::stray_closes();
    return strays == 0 ? std::string() : std::to_string(strays) + " closed that were not open";
  };
  const char* path = argv[argc - 1];
  try {
    if (option == "--list") return lab::list_session(path), 0;
    return lab::play_session(path, option == "--update") ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << path << ": " << error.what() << "\n";
    return 2;
  }
}
