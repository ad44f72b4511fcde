// The library's functions by name, with arguments from words and results as one line, and its records as
// names and values.
#ifndef LAB_FUNCTIONS_H
#define LAB_FUNCTIONS_H

#include <cstddef>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace lab {

// A command that cannot be run: unknown, a wrong argument, or what it needs failed to set up.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What follows a command's name. Words are separated by blanks; parts of a word may be in "..." with
// the escapes of C or in '...' as they are, and "A"*200 repeats a quoted part.
class Arguments {
 public:
  explicit Arguments(std::string line) : line_(std::move(line)) {}
  bool more();
  std::string text();
  bool take_null();  // the word null, not quoted
  long long number();
  bool option(const std::string& key, std::string* value);  // key=value, if that comes next
  std::string rest();  // all that is left, unchanged, or one word in double quotes
  std::vector<std::string> words();
  void finish();  // nothing may be left

 private:
  std::string line_;
  size_t at_ = 0;
};

long long to_number(const std::string& text);
double to_real(const std::string& text);
std::string escaped(const std::string& bytes);
std::string quoted(const std::string& bytes);
// Whether the text holds one of the parts; without parts every text does.
bool holds_one(const std::string& text, const std::vector<std::string>& parts);
// The words between the commas; of a qualified or bracketed word its last part.
std::vector<std::string> split_names(const std::string& names);

using Fields = std::vector<std::pair<std::string, std::string>>;

// Shared record, SIM blocks, SIM status and the exported words.
Fields shared_fields();
// Sets a field of the shared record, lib_mask or module_mask.
void set_shared_field(const std::string& name, const std::string& value);
// A record of the library as "name=value ...".
template <typename R>
std::string describe(const R& record);

// A function of the library. Called with its arguments, it returns the line that shows the result.
struct Call {
  std::function<std::string(Arguments&)> run;
  std::string words;  // what it takes: "TEXT NUMBER"
  std::string operator()(Arguments& arguments) const { return run(arguments); }
};
std::map<std::string, Call>& calls();
void add_parts(std::map<std::string, Call>& table);  // those that only tests call (testkit/session/parts.cpp)

}  // namespace lab

#endif
