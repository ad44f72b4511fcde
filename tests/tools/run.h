// Runs the tools as programs and compares what they print and how they end.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <regex>
#include <string>
#include <vector>

struct Outcome {
  std::string text;  // standard output and error
  int status;
};

inline Outcome run(const std::string& command) {
  Outcome outcome;
  FILE* pipe = popen(("exec 2>&1 </dev/null; " + command).c_str(), "re");
  if (pipe == nullptr) return {"no pipe", -1};
  char bytes[4096];
  for (size_t size; (size = fread(bytes, 1, sizeof bytes, pipe)) > 0;) outcome.text.append(bytes, size);
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

struct Case {
  const char* command;
  int status;
  std::vector<const char*> lines;  // regular expressions, found in this order
};

inline void check(const char* program, const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    const Outcome outcome = run(std::string(program) + " " + c.command);
    EXPECT_EQ(c.status, outcome.status) << c.command << "\n" << outcome.text;
    EXPECT_EQ(std::string::npos, outcome.text.find_first_of("\x07\x1b\x7f\x9b\r")) << c.command << "\n"
                                                                                   << outcome.text;
    auto at = outcome.text.cbegin();
    for (const char* line : c.lines) {
      std::smatch found;
      const bool there = std::regex_search(at, outcome.text.cend(), found, std::regex(line));
      EXPECT_TRUE(there) << c.command << " shows no \"" << line << "\" where it belongs:\n" << outcome.text;
      if (there) at = found[0].second;
    }
  }
}
