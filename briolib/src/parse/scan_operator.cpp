#include "parse/scan_operator.h"

#include <string.h>

#include "base/text.h"

namespace brio::parse {
namespace {

char* prv_last_letter(char* text, char* end) {
  while (end > text && is_space(end[-1])) end--;
  return end > text ? end - 1 : nullptr;
}

// Whether an operator begins at "(": a stat, then a name in quotes or, without them, one that another name
// follows. What names hold in brackets is not taken for it.
bool prv_opens_operator(const char* open) {
  static constexpr char kMarks[] = "\"(),";
  const char* text = skip_spaces(open + 1);
  size_t length = strcspn(text, kMarks);
  if (text[length] != ',' || length == 0) return false;
  for (size_t i = 0; i < length; i++) {
    if (!is_digit(text[i]) && !is_space(text[i])) return false;
  }
  for (int name = 0; name < 2; name++) {
    text = skip_spaces(text + length + 1);
    if (*text == '"') return true;
    length = strcspn(text, kMarks);
    if (text[length] != ',') return false;
  }
  return true;
}

// The last "(" between `first` and `end` at which an operator begins; `first` if there is no other.
char* prv_last_open(char* first, const char* end) {
  char* open = first;
  for (char* text = first + 1; text < end; text++) {
    if (*text == '(' && prv_opens_operator(text)) open = text;
  }
  return open;
}

// The "," before `end` when only digits (at least `minimum`), blanks and quotes lie between.
char* prv_number_comma(char* begin, char* end, size_t minimum, bool may_be_quoted) {
  size_t digits = 0;
  while (end > begin) {
    char c = *--end;
    if (c == ',') return digits >= minimum ? end : nullptr;
    if (is_digit(c)) {
      digits++;
    } else if (!is_space(c) && !(c == '"' && may_be_quoted)) {
      break;
    }
  }
  return nullptr;
}

// The "," before the unquoted name that ends at `end`; null when no such name ends there.
char* prv_unquoted_name_comma(char* begin, char* end) {
  while (end > begin) {
    char c = *--end;
    if (c == ',') return end;
    if (c == '"' || c == '(' || c == ')') break;
  }
  return nullptr;
}

// Whether an operator ends at `close`, a ")": the end of a name, a numeric operator and an access technology
// come before it.
bool prv_ends_operator(char* begin, char* close, ScanOperator* found) {
  char* technology = prv_number_comma(begin, close, 1, false);
  if (technology == nullptr) return false;
  char* numeric = prv_number_comma(begin, technology, kScanNumericMin, true);
  if (numeric == nullptr) return false;
  const char* name_end = prv_last_letter(begin, numeric);
  if (name_end == nullptr) return false;
  if (*name_end != '"' && prv_unquoted_name_comma(begin, numeric) == nullptr) return false;
  *found = {nullptr, nullptr, numeric, technology, close};
  return true;
}

// The place after a name that holds no quotes but its own; null when its closing quote is missing.
char* prv_simple_name_end(char* text) {
  text = skip_spaces(text);
  if (*text != '"') return text + strcspn(text, "\"(),");
  text = strchr(text + 1, '"');
  return text != nullptr ? skip_spaces(text + 1) : nullptr;
}

enum class Names { kCut, kMalformed, kInnerQuotes };

// Cuts the names of the operator that begins at `open`, when they hold no quotes but their own.
Names prv_cut_simple_names(char* open, char* end, char** cut) {
  size_t count = 0;
  for (char* name = open + strcspn(open, ",") + 1; name <= end;) {
    char* stop = prv_simple_name_end(name);
    if (stop == nullptr || stop > end) return Names::kInnerQuotes;
    count++;
    if (stop == end) return count == 2 ? Names::kCut : Names::kMalformed;
    if (*stop == ')' && list_goes_on(stop + 1)) return Names::kMalformed;
    if (*stop != ',') return Names::kInnerQuotes;
    if (count == 1) *cut = stop;
    name = stop + 1;
  }
  return Names::kMalformed;
}

// The "," between two quoted names that hold quotes of their own. It leaves the inner quotes of both in pairs
// or has no blanks around; null when that does not single one out.
char* prv_cut_quoted_names(char* first, const char* last) {
  size_t total = 0;
  for (const char* text = first; text <= last; text++) total += *text == '"' ? 1 : 0;
  char* cut = nullptr;
  unsigned best = 0;
  bool single = false;
  size_t quotes = 1;
  for (char* text = first + 1; text < last; text++) {
    if (*text != '"') continue;
    quotes++;
    char* comma = skip_spaces(text + 1);
    if (*comma != ',') continue;
    const char* next = skip_spaces(comma + 1);
    if (*next != '"' || next >= last) continue;
    bool in_pairs = quotes % 2 == 0 && total % 2 == 0;
    unsigned score = (in_pairs ? 2u : 0u) + (next == text + 2 ? 1u : 0u);
    if (cut != nullptr && score < best) continue;
    single = cut == nullptr || score > best;
    best = score;
    cut = comma;
  }
  return single ? cut : nullptr;
}

// The "," between the two names of which at least one holds quotes of its own.
char* prv_cut_other_names(char* open, char* end) {
  char* names = open + strcspn(open, ",") + 1;
  char* first = skip_spaces(names);
  const char* last = prv_last_letter(names, end);
  if (last == nullptr) return nullptr;
  if (*first == '"' && *last == '"') return prv_cut_quoted_names(first, last);
  if (*last == '"') {
    char* comma = first + strcspn(first, "\"(),");
    const char* name = *comma == ',' ? skip_spaces(comma + 1) : last;
    return *name == '"' && name < last ? comma : nullptr;
  }
  char* comma = prv_unquoted_name_comma(names, end);
  const char* name_end = comma != nullptr ? prv_last_letter(names, comma) : nullptr;
  return name_end != nullptr && *name_end == '"' && name_end > first ? comma : nullptr;
}

}  // namespace

bool list_goes_on(const char* text) {
  text = skip_spaces(text);
  return *text == '\0' || *text == ',' || *text == '(';
}

ScanOperator find_operator(char* first) {
  ScanOperator found = {};
  char* close = strchr(first, ')');
  while (close != nullptr && !prv_ends_operator(first + 1, close, &found)) close = strchr(close + 1, ')');
  if (close == nullptr) return found;
  char* const opens[] = {first, prv_last_open(first, found.numeric)};
  Names names = Names::kMalformed;
  for (char* open : opens) {
    found.open = open;
    names = prv_cut_simple_names(open, found.numeric, &found.cut);
    if (names == Names::kCut) return found;
  }
  found.cut = names == Names::kInnerQuotes ? prv_cut_other_names(found.open, found.numeric) : nullptr;
  return found;
}

}  // namespace brio::parse
