// Text and time of day, as several tools need them.
#ifndef TOOLS_TEXT_H
#define TOOLS_TEXT_H

#include <cctype>
#include <ctime>
#include <string>

inline bool starts(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

inline std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(c & 0xFF));
  return text;
}

// `format` is strftime's.
inline std::string utc(std::time_t seconds, const char* format) {
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[40];
  std::strftime(text, sizeof text, format, &parts);
  return text;
}

#endif
