// Where scenarios are, and the word that was meant.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include "modemsim/scenario.h"

namespace modemsim {
namespace {

// How far one word is from another, for "did you mean".
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); j++) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); i++) {
    std::size_t corner = row[0]++;
    for (std::size_t j = 1; j <= b.size(); j++) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, corner + (a[i - 1] == b[j - 1] ? 0U : 1U)});
      corner = above;
    }
  }
  return row[b.size()];
}

}  // namespace

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

std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
  const auto far = [&](const std::string& each) {
    return 2 * distance(word, each) + (each[0] == word[0] ? 0U : 1U);
  };
  const auto near = std::min_element(known.begin(), known.end(),
                                     [&](const auto& a, const auto& b) { return far(a) < far(b); });
  const bool close = near != known.end() && distance(word, *near) <= word.size() / 3 + 1;
  return close ? "; did you mean " + *near + "?" : "";
}

}  // namespace modemsim
