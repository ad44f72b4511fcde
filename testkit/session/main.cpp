// session FILE: plays a session with the commands of briolab and of tests. --update writes what is shown into
// it.
#include <cstring>
#include <exception>
#include <iostream>

#include "kit/calls.h"
#include "kit_commands.h"
#include "lab/functions.h"
#include "session.h"
#include "session_file.h"

int main(int argc, char** argv) {
  const bool update = argc > 1 && std::strcmp(argv[1], "--update") == 0;
  if (argc != (update ? 3 : 2)) {
    std::cerr << "usage: session [--update] FILE\n";
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
    return lab::play_session(path, update) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << path << ": " << error.what() << "\n";
    return 2;
  }
}
