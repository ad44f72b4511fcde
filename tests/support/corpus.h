// Corpora of modem lines in tests/data: one case a line, its fields separated by " | ", "#" begins a comment
// line. A field "-" is an empty text.
#ifndef TESTS_SUPPORT_CORPUS_H
#define TESTS_SUPPORT_CORPUS_H

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

inline std::vector<std::vector<std::string>> read_corpus(const std::string& name, size_t fields) {
  std::vector<std::vector<std::string>> cases;
  std::ifstream file(std::string(TEST_DATA_DIR) + "/" + name);
  std::string line;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> row;
    const std::string separator = " | ";
    size_t start = 0;
    for (size_t end = line.find(separator); end != std::string::npos; end = line.find(separator, start)) {
      row.push_back(line.substr(start, end - start));
      start = end + separator.size();
    }
    row.push_back(line.substr(start));
    for (auto& field : row) {
      if (field == "-") field.clear();
    }
    EXPECT_EQ(fields, row.size()) << name << ": " << line;
    if (row.size() == fields) cases.push_back(row);
  }
  EXPECT_FALSE(cases.empty()) << name;
  return cases;
}

#endif
