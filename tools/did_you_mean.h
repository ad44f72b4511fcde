// The known word that a mistyped one is nearest to.
#ifndef TOOLS_DID_YOU_MEAN_H
#define TOOLS_DID_YOU_MEAN_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

inline std::size_t word_distance(const std::string& a, const std::string& b) {
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

// "; did you mean X?", or nothing when no word is near.
inline std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
  const auto far = [&](const std::string& each) {
    return 2 * word_distance(word, each) + (each[0] == word[0] ? 0U : 1U);
  };
  const auto near = std::min_element(known.begin(), known.end(),
                                     [&](const auto& a, const auto& b) { return far(a) < far(b); });
  const bool close =
      near != known.end() && word_distance(word, *near) <= std::max<std::size_t>((word.size() + 1) / 3, 1);
  return close ? "; did you mean " + *near + "?" : "";
}

#endif
