// Words, numbers and escapes of a session's commands.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lab/functions.h"

namespace lab {

namespace {

constexpr size_t kTextMost = 1 << 24;

// The character of an escape; `at` is the place after its backslash.
char unescape(const std::string& line, size_t& at) {
  const char c = line.at(at++);
  if (c != 'x') return c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
  at += 2;
  return static_cast<char>(std::stoi(line.substr(at - 2, 2), nullptr, 16));
}

}  // namespace

bool Arguments::more() {
  while (at_ < line_.size() && line_[at_] == ' ') at_++;
  return at_ < line_.size();
}

std::string Arguments::text() {
  if (!more()) throw UsageError("an argument is missing");
  std::string word;
  while (at_ < line_.size() && line_[at_] != ' ') {
    const char quote = line_[at_];
    if (quote != '"' && quote != '\'') {
      word += line_[at_++];
      continue;
    }
    std::string part;
    for (at_++; at_ < line_.size() && line_[at_] != quote;) {
      const char c = line_[at_++];
      part += c == '\\' && quote == '"' ? unescape(line_, at_) : c;
    }
    if (at_++ >= line_.size()) throw UsageError("a quote is left open");
    size_t digits = 0;
    const bool repeated = at_ < line_.size() && line_[at_] == '*';
    const int times = repeated ? std::stoi(line_.substr(at_ + 1), &digits) : 1;
    if (part.size() * static_cast<size_t>(std::max(times, 0)) > kTextMost) {
      throw UsageError("a text has at most 16 MiB");
    }
    for (int i = 0; i < times; i++) word += part;
    at_ += repeated ? digits + 1 : 0;
  }
  return word;
}

bool Arguments::take_null() {
  const bool null =
      more() && line_.compare(at_, 4, "null") == 0 && (line_.size() == at_ + 4 || line_[at_ + 4] == ' ');
  if (null) at_ += 4;
  return null;
}

long long Arguments::number() {
  return to_number(text());
}

bool Arguments::option(const std::string& key, std::string* value) {
  if (!more() || line_.compare(at_, key.size() + 1, key + "=") != 0) return false;
  *value = text().substr(key.size() + 1);
  return true;
}

std::vector<std::string> Arguments::words() {
  std::vector<std::string> all;
  while (more()) all.push_back(text());
  return all;
}

std::string Arguments::rest() {
  const bool one_word = more() && line_[at_] == '"';
  std::string whole = one_word ? text() : line_.substr(at_);
  if (!one_word) at_ = line_.size();
  return whole;
}

void Arguments::finish() {
  if (more()) throw UsageError("not understood: " + line_.substr(at_));
}

long long to_number(const std::string& text) {
  char* end = nullptr;
  const long long value = std::strtoll(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0') throw UsageError("not a number: " + text);
  return value;
}

double to_real(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0') throw UsageError("not a number: " + text);
  return value;
}

std::string escaped(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    char code[8] = {c};
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7F) snprintf(code, sizeof code, "\\x%02x", byte);
    text += c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\t' ? "\\t" : c == '\\' ? "\\\\" : code;
  }
  return text;
}

std::string quoted(const std::string& bytes) {
  return "\"" + escaped(bytes) + "\"";
}

bool holds_one(const std::string& text, const std::vector<std::string>& parts) {
  bool found = parts.empty();
  for (const auto& part : parts) found = found || text.find(part) != std::string::npos;
  return found;
}

}  // namespace lab
