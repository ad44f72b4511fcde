// Where scenarios are.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "modemsim/scenario.h"

namespace modemsim {

Scenario load_scenario(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  if (!file || std::filesystem::is_directory(path)) {
    throw ScenarioError("cannot read the scenario file " + path + ": is the name right?");
  }
  return parse_scenario(text.str(), path);
}

std::string find_scenario(const std::string& name) {
  namespace fs = std::filesystem;
  std::error_code failed;
  const fs::path program = fs::read_symlink("/proc/self/exe", failed);
  const fs::path folder = program.parent_path().parent_path() / MODEMSIM_SCENARIOS;
  if (name.find('/') != std::string::npos) return fs::is_regular_file(name, failed) ? name : "";
  // An installed scenario comes before a file of its name that somebody has put into the current folder.
  for (const fs::path& path : {folder / (name + ".toml"), fs::path(name), folder / name}) {
    if (fs::is_regular_file(path, failed)) return path.string();
  }
  return "";
}

}  // namespace modemsim
