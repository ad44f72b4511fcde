#include "output.h"

#include <signal.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "printable.h"
#include "report.h"

namespace brioctl::output {
namespace {

constexpr char kUnwritten[] = "The output cannot be written.";

std::string s_verb;
bool s_json = false;
nlohmann::ordered_json s_result = nlohmann::ordered_json::object();
std::vector<std::string> s_notes;
std::string s_error;

void print(const nlohmann::ordered_json& object) {
  printf("%s\n", object.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

bool flushed() {
  return fflush(stdout) == 0 && ferror(stdout) == 0;
}

}  // namespace

void begin(const std::string& verb, bool json) {
  s_verb = verb;
  s_json = json;
}

bool json() {
  return s_json;
}

nlohmann::ordered_json& result() {
  return s_result;
}

void line() {
  nlohmann::ordered_json object = {{"verb", s_verb}};
  object.update(s_result);
  print(object);
  s_result = nlohmann::ordered_json::object();
  flush();
}

void note(const std::string& sentence) {
  s_notes.push_back(sentence);
  fprintf(stderr, "%s\n", printable(sentence).c_str());
}

void error(const std::string& sentence) {
  s_error = sentence;
}

void flush() {
  if (!flushed()) throw Failure(kUnwritten);
}

int end(int status, const std::string& error) {
  if (s_json) {
    nlohmann::ordered_json object = {
        {"verb", s_verb}, {"exit", status}, {"error", nullptr}, {"notes", s_notes}};
    if (const std::string& what = error.empty() ? s_error : error; !what.empty()) object["error"] = what;
    object.update(s_result);
    print(object);
  }
  if (flushed()) return status;
  // A reader that went away has read enough: the status tells.
  const bool told = error == kUnwritten || interrupted_status() == 128 + SIGPIPE;
  if (!told) fprintf(stderr, "brioctl: %s\n", kUnwritten);
  return status != 0 ? status : 1;
}

}  // namespace brioctl::output
