// A writable text whose memory ends with its NUL, so that AddressSanitizer sees every step beyond it.
#ifndef KIT_EXACT_TEXT_H
#define KIT_EXACT_TEXT_H

#include <cstring>
#include <memory>
#include <string>

class ExactText {
 public:
  explicit ExactText(const std::string& text) : bytes_(new char[text.size() + 1]) {
    std::memcpy(bytes_.get(), text.c_str(), text.size() + 1);
  }
  char* get() { return bytes_.get(); }

 private:
  std::unique_ptr<char[]> bytes_;
};

#endif
