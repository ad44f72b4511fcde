#include "base/log_text.h"

#include <stddef.h>
#include <string.h>

#include "base/text.h"

namespace brio {
namespace {

constexpr char kDigits[] = "0123456789";
constexpr char kHexDigits[] = "0123456789ABCDEFabcdef";
constexpr char kWordCharacters[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

constexpr size_t kImsiLeastDigits = 14;
constexpr size_t kIccidLeastDigits = 18;
constexpr size_t kIccidFileDigits = 20;
constexpr size_t kDashedMost = 2 * kIccidFileDigits;  // a dash after each digit
// A status word is one byte, in decimal.
constexpr size_t kStatusWordDigits = 3;

// Words in a result's name, or beside the number in an error's text, that make the number an identity.
constexpr const char* kIdentityNames[] = {"CCID", "CIMI", "IMSI"};

bool prv_holds(const char* text, const char* end, const char* name) {
  const char* found = strcasestr(text, name);
  return found != nullptr && found < end;
}

bool prv_names_subscriber(const char* text, const char* end) {
  for (const char* name : kIdentityNames) {
    if (prv_holds(text, end, name)) return true;
  }
  return false;
}

// Whether the word consists of these characters and dashes, and how many of them.
bool prv_consists_of(const char* characters, const char* word, size_t length, size_t* count) {
  *count = 0;
  for (size_t i = 0; i < length; i++) {
    if (word[i] == '-') continue;
    if (strchr(characters, word[i]) == nullptr) return false;
    ++*count;
  }
  return true;
}

// An ICCID begins with 89, with 98 where its digits are swapped in pairs, as in its file. No network's code
// begins so, but a list of networks may well consist of decimal digits.
bool prv_begins_iccid(const char* word) {
  return strncmp(word, "98", 2) == 0 || strncmp(word, "89", 2) == 0;
}

bool prv_is_iccid(const char* word, size_t length) {
  size_t count = 0;
  return prv_begins_iccid(word) && prv_consists_of(kHexDigits, word, length, &count) &&
         count >= kIccidLeastDigits;
}

bool prv_is_identity(const char* word, size_t length) {
  size_t count = 0;
  if (prv_consists_of(kDigits, word, length, &count) && count >= kImsiLeastDigits) return true;
  return prv_is_iccid(word, length);
}

bool prv_is_iccid_file(const char* word, size_t length) {
  return length == kIccidFileDigits && prv_is_iccid(word, length);
}

void prv_mask_digits(char* text, const char* end) {
  for (; text < end; text++) {
    if (is_digit(*text)) *text = '*';
  }
}

// Masks the words before `end` that `is_secret` tells, also where dashes divide them.
void prv_mask_words(char* text, const char* end, bool (*is_secret)(const char* word, size_t length)) {
  while (text < end) {
    size_t length = strspn(text, kWordCharacters);
    const size_t word = length > 0 ? length : 1;
    size_t secret = 0;
    for (;;) {
      if (is_secret(text, length)) secret = length;
      if (text[length] != '-' || length > kDashedMost) break;
      length += 1 + strspn(text + length + 1, kWordCharacters);
    }
    prv_mask_digits(text, text + secret);
    text += secret > 0 ? secret : word;
  }
}

// The text after the two status words; what is too long for one belongs to the file.
char* prv_file_contents(char* text) {
  for (int status_word = 0; status_word < 2; status_word++) {
    const size_t length = strcspn(text, ",");
    size_t digits = 0;
    for (size_t i = 0; i < length; i++) digits += is_digit(text[i]) ? 1 : 0;
    if (digits > kStatusWordDigits) break;
    text += length;
    if (*text == ',') text++;
  }
  return text;
}

}  // namespace

LogText::LogText(const char* text) {
  copy_text(text_, text != nullptr ? text : "");
}

const char* LogText::end() const {
  return text_ + strlen(text_);
}

LogText masked_line(const char* line, bool iccid_file_read) {
  LogText copy(line);
  char* start = skip_spaces(copy.text());
  const char* name = start + strspn(start, "+:");
  const char* name_end = name + strcspn(name, ":");
  if (strncmp(name, "CRSM", 4) == 0) return masked_sim_file(line, iccid_file_read);
  // The text of an error may hold anything.
  const char* error = strstr(name, "ERROR");
  const bool named = *start == '+' && (error == nullptr || error > name_end);
  const char* end = copy.end();
  const char* judged_end = named ? name_end : end;
  if (prv_names_subscriber(start, judged_end)) {
    prv_mask_digits(start, end);
  } else {
    // Beside its name an IMEI is told from an IMSI.
    prv_mask_words(start, judged_end, prv_holds(start, judged_end, "IMEI") ? prv_is_iccid : prv_is_identity);
  }
  return copy;
}

LogText masked_identity(const char* text) {
  LogText copy(text);
  prv_mask_digits(copy.text(), copy.end());
  return copy;
}

LogText masked_sim_file(const char* text, bool is_iccid) {
  LogText copy(text);
  if (is_iccid) {
    prv_mask_digits(prv_file_contents(copy.text()), copy.end());
  } else {
    prv_mask_words(copy.text(), copy.end(), prv_is_iccid_file);
  }
  return copy;
}

}  // namespace brio
