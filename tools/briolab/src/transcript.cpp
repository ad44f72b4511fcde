#include "transcript.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "session.h"

namespace lab {

namespace {

// Expected and real output; equal lines at both ends stand once.
void print_difference(const std::string& path, const Step& step) {
  const auto &left = step.expected, &right = step.shown;
  size_t head = 0;
  size_t tail = 0;
  const size_t shorter = std::min(left.size(), right.size());
  while (head < shorter && left[head] == right[head]) head++;
  while (head + tail < shorter && left[left.size() - 1 - tail] == right[right.size() - 1 - tail]) tail++;
  std::cout << path << ":" << step.line << ":\n> " << step.command << "\n";
  for (size_t i = 0; i < head; i++) std::cout << "  " << left[i] << "\n";
  for (size_t i = head; i < left.size() - tail; i++) std::cout << "- " << left[i] << "\n";
  for (size_t i = head; i < right.size() - tail; i++) std::cout << "+ " << right[i] << "\n";
  for (size_t i = left.size() - tail; i < left.size(); i++) std::cout << "  " << left[i] << "\n";
}

// Throws UsageError for a file that cannot be read or holds no command.
std::vector<Step> read_transcript(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw UsageError("cannot be read");
  std::vector<Step> steps(1);
  std::string line;
  for (size_t number = 1; std::getline(file, line); number++) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.compare(0, 2, "> ") == 0) {
      steps.push_back({number, line.substr(2), {}, {}, {}});
    } else {
      (line.empty() || line[0] == '#' ? steps.back().comments : steps.back().expected).push_back(line);
    }
  }
  if (steps.size() == 1) throw UsageError("holds no command");
  if (!steps[0].expected.empty()) throw UsageError("output in front of the first command");
  return steps;
}

}  // namespace

void write_transcript(const std::string& path, const std::vector<Step>& steps) {
  std::ofstream file(path);
  for (const Step& step : steps) {
    if (step.line != 0) file << "> " << step.command << "\n";
    for (const auto& line : step.shown) file << line << "\n";
    for (const auto& line : step.comments) file << line << "\n";
  }
  file.close();
  if (!file) throw UsageError(path + " cannot be written");
}

bool play_transcript(const std::string& path, bool update) {
  auto steps = read_transcript(path);
  Session session;
  bool holds = true;
  for (Step& step : steps) {
    if (step.line == 0) continue;
    try {
      step.shown = session.run(step.command);
    } catch (const std::exception& error) {
      session.end();
      throw UsageError("line " + std::to_string(step.line) + ": " + step.command + ": " + error.what());
    }
    if (step.shown == step.expected || update) continue;
    print_difference(path, step);
    holds = false;
  }
  const std::string left = session.end();
  if (left != "none") {
    std::cout << path << ": left behind: " << left << "\n";
    holds = false;
  }
  if (update) write_transcript(path, steps);
  return holds;
}

}  // namespace lab
