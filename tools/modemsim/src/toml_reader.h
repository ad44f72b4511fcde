// Reads TOML tables key by key, with an error sentence for everything that is not understood.
#ifndef MODEMSIM_TOML_READER_H
#define MODEMSIM_TOML_READER_H

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "did_you_mean.h"
#include "modemsim/scenario.h"

namespace modemsim {

struct Source {
  std::string file;     // "" for a setting that was given by hand
  bool latin1 = false;  // a character of a text, U+0000 to U+00FF, is a byte
};

[[noreturn]] inline void fail(const Source& source, const toml::source_region& place,
                              const std::string& what) {
  if (source.file.empty()) throw ScenarioError(what);
  throw ScenarioError(source.file + ":" + std::to_string(place.begin.line) + ": " + what);
}

// One TOML table that is being read. Keys that nobody asked for are an error at the end.
class Reader {
 public:
  Reader(const Source& source, const toml::table& table, std::string place)
      : source_(source), table_(table), place_(std::move(place)) {}

  const Source& source() const { return source_; }
  const toml::table& table() const { return table_; }
  std::string name(const std::string& key) const { return place_.empty() ? key : place_ + "." + key; }

  const toml::node* find(const std::string& key) {
    known_.push_back(key);
    return table_.get(key);
  }

  [[noreturn]] void wrong(const toml::node& node, const std::string& key, const std::string& wanted) const {
    fail(source_, node.source(), name(key) + " must be " + wanted);
  }
  [[noreturn]] void missing(const std::string& key, const std::string& what) const {
    fail(source_, table_.source(), name(key) + " is missing: " + what);
  }

  bool number(const std::string& key, long long low, long long high, long long& value) {
    const toml::node* node = find(key);
    if (node == nullptr) return false;
    const auto got = node->value_exact<std::int64_t>();
    const std::string range = " from " + std::to_string(low) + " to " + std::to_string(high);
    if (!got || *got < low || *got > high) wrong(*node, key, "a whole number" + range);
    value = *got;
    return true;
  }

  template <typename Int>
  bool number_into(const std::string& key, long long low, long long high, Int& place) {
    long long value = 0;
    if (!number(key, low, high, value)) return false;
    place = static_cast<Int>(value);
    return true;
  }

  bool text(const std::string& key, std::string& place) {
    const toml::node* node = find(key);
    if (node == nullptr) return false;
    const auto got = node->value_exact<std::string>();
    if (!got) wrong(*node, key, "a text in quotes");
    place = bytes(*node, key, *got);
    return true;
  }

  // A line that the modem says. Its line ends are not part of it.
  bool line(const std::string& key, std::string& place) {
    if (!text(key, place)) return false;
    check_line(*table_.get(key), key, place);
    return true;
  }

  bool flag(const std::string& key, bool& place) {
    const toml::node* node = find(key);
    if (node == nullptr) return false;
    const auto got = node->value_exact<bool>();
    if (!got) wrong(*node, key, "true or false");
    place = *got;
    return true;
  }

  bool real(const std::string& key, double& place,
            const std::string& wanted = "a number from 0 to 1000000000") {
    const toml::node* node = find(key);
    if (node == nullptr) return false;
    const auto got = node->value<double>();
    if (!got || node->is_boolean() || !(*got >= 0) || *got > 1e9) wrong(*node, key, wanted);
    place = *got;
    return true;
  }

  bool seconds(const std::string& key, Milliseconds& place) {
    const std::string wanted = "a number of seconds: 0, or 0.001 to 1000000000";
    double value = 0;
    if (!real(key, value, wanted)) return false;
    place = Milliseconds(std::llround(value * 1000));
    if (value > 0 && place.count() == 0) wrong(*table_.get(key), key, wanted);
    return true;
  }

  // How often: for ever, or at least once.
  void times(const std::string& key, int& place) {
    if (number_into(key, -1, 1000000, place) && place == 0) {
      wrong(*table_.get(key), key, "a whole number above 0, or -1 for ever");
    }
  }

  // A table below this one, or null.
  const toml::table* sub(const std::string& key) {
    const toml::node* node = find(key);
    if (node == nullptr) return nullptr;
    if (!node->is_table()) wrong(*node, key, "a table");
    return node->as_table();
  }

  // One table or several under the same key.
  std::vector<const toml::table*> subs(const std::string& key) {
    std::vector<const toml::table*> tables;
    const toml::node* node = find(key);
    if (node == nullptr) return tables;
    if (node->is_table()) return {node->as_table()};
    if (!node->is_array()) wrong(*node, key, "a list of tables");
    for (const toml::node& item : *node->as_array()) {
      if (!item.is_table()) wrong(item, key, "a list of tables");
      tables.push_back(item.as_table());
    }
    return tables;
  }

  // One text or a list of them.
  std::vector<std::string> texts(const std::string& key) {
    const toml::node* node = find(key);
    if (node == nullptr) return {};
    if (const auto single = node->value_exact<std::string>()) return {bytes(*node, key, *single)};
    std::vector<std::string> list;
    if (!node->is_array()) wrong(*node, key, "a text in quotes or a list of them");
    for (const toml::node& item : *node->as_array()) {
      const auto got = item.value_exact<std::string>();
      if (!got) wrong(item, key, "a text in quotes or a list of them");
      list.push_back(bytes(item, key, *got));
    }
    return list;
  }

  std::vector<std::string> lines(const std::string& key) {
    auto list = texts(key);
    for (const std::string& each : list) check_line(*table_.get(key), key, each);
    return list;
  }

  void finish() const {
    for (const auto& [key, node] : table_) {
      const std::string word(key.str());
      if (std::find(known_.begin(), known_.end(), word) != known_.end()) continue;
      fail(source_, key.source(), name(word) + " is not known" + did_you_mean(word, known_));
    }
  }

 private:
  void check_line(const toml::node& node, const std::string& key, const std::string& text) const {
    if (text.find_first_of("\r\n") == std::string::npos) return;
    wrong(node, key, "without line ends, which the modem sets itself (raw sends bytes as they are)");
  }

  std::string bytes(const toml::node& node, const std::string& key, const std::string& text) const {
    if (!source_.latin1) return text;
    std::string result;
    for (std::size_t at = 0; at < text.size(); at++) {
      const auto lead = static_cast<unsigned char>(text[at]);
      if (lead > 0xC3) wrong(node, key, "of characters up to U+00FF (encoding is latin1)");
      result += lead < 0x80 ? text[at] : static_cast<char>(lead << 6 | (text[++at] & 0x3F));
    }
    return result;
  }

  const Source& source_;
  const toml::table& table_;
  std::string place_;
  std::vector<std::string> known_;
};

}  // namespace modemsim

#endif
