// Scenario files: TOML into a Scenario, with an error sentence for everything that is not understood.
#include "modemsim/scenario.h"

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include "state.h"

namespace modemsim {
namespace {

[[noreturn]] void fail(const std::string& file, const toml::node& node, const std::string& what) {
  throw ScenarioError(file + ":" + std::to_string(node.source().begin.line) + ": " + what);
}

// How far one word is from another, for "did you mean".
std::size_t distance(std::string_view a, std::string_view b) {
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

// One TOML table that is being read. Keys that nobody asked for are an error at the end.
class Reader {
 public:
  Reader(const std::string& file, const toml::table& table, std::string place)
      : file_(file), table_(table), place_(std::move(place)) {}

  const std::string& file() const { return file_; }
  const toml::table& table() const { return table_; }
  std::string name(const std::string& key) const { return place_.empty() ? key : place_ + "." + key; }

  const toml::node* find(const std::string& key) {
    known_.push_back(key);
    return table_.get(key);
  }

  [[noreturn]] void wrong(const toml::node& node, const std::string& key, const std::string& wanted) const {
    fail(file_, node, name(key) + " must be " + wanted);
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
    place = *got;
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

  bool real(const std::string& key, double& place) {
    const toml::node* node = find(key);
    if (node == nullptr) return false;
    const auto got = node->value<double>();
    if (!got || node->is_boolean() || !(*got >= 0) || *got > 1e9) wrong(*node, key, "a number of 0 or more");
    place = *got;
    return true;
  }

  bool seconds(const std::string& key, Milliseconds& place) {
    double value = 0;
    if (!real(key, value)) return false;
    place = Milliseconds(std::llround(value * 1000));
    return true;
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
    if (const auto single = node->value_exact<std::string>()) return {*single};
    std::vector<std::string> list;
    if (!node->is_array()) wrong(*node, key, "a text in quotes or a list of them");
    for (const toml::node& item : *node->as_array()) {
      const auto got = item.value_exact<std::string>();
      if (!got) wrong(item, key, "a text in quotes or a list of them");
      list.push_back(*got);
    }
    return list;
  }

  void finish() const {
    for (const auto& [key, node] : table_) {
      const std::string word(key.str());
      if (std::find(known_.begin(), known_.end(), word) != known_.end()) continue;
      throw ScenarioError(file_ + ":" + std::to_string(key.source().begin.line) + ": " + name(word) +
                          " is not known" + did_you_mean(word, known_));
    }
  }

 private:
  const std::string& file_;
  const toml::table& table_;
  std::string place_;
  std::vector<std::string> known_;
};

using Setters = std::vector<std::function<void(State&)>>;

// Every member of State that the table names.
Setters read_state(Reader& reader) {
  Setters setters;
  const auto number = [&](const NumberField& field) {
    long long value = 0;
    if (!reader.number(field.name, field.low, field.high, value)) return;
    setters.push_back([&field, value](State& state) { state.*field.member = static_cast<int>(value); });
  };
  const auto flag = [&](const FlagField& field) {
    bool value = false;
    if (!reader.flag(field.name, value)) return;
    setters.push_back([&field, value](State& state) { state.*field.member = value; });
  };
  for (const NumberField& field : kNumberFields) number(field);
  for (const FlagField& field : kFlagFields) flag(field);
  for (const Domain& domain : kDomains) {
    for (const NumberField* field : {&domain.stat, &domain.reject_cause, &domain.mode}) number(*field);
  }
  for (const Report& report : kReports) flag(report.on);
  for (const TextField& field : kTextFields) {
    std::string value;
    if (!reader.text(field.name, value)) continue;
    setters.push_back([&field, value](State& state) { state.*field.member = value; });
  }
  for (const TimeField& field : kTimeFields) {
    Milliseconds value{0};
    if (!reader.seconds(field.name, value)) continue;
    setters.push_back([&field, value](State& state) { state.*field.member = value; });
  }
  reader.finish();
  return setters;
}

int file_number(const Reader& reader, const toml::key& key) {
  const std::string word(key.str());
  for (const SimFileName& file : kSimFileNames) {
    if (word == file.name) return file.number;
  }
  char* end = nullptr;
  const long number = std::strtol(word.c_str(), &end, 10);
  if (!word.empty() && *end == '\0' && number > 0 && number < 65536) return static_cast<int>(number);
  std::string names;
  for (const SimFileName& file : kSimFileNames) names += std::string(names.empty() ? "" : ", ") + file.name;
  throw ScenarioError(reader.file() + ":" + std::to_string(key.source().begin.line) + ": " +
                      reader.name(word) + " is no file of a SIM: give its decimal number or one of " + names);
}

void read_sim_files(Reader& reader, std::map<int, std::string>& files) {
  for (const auto& [key, node] : reader.table()) {
    const std::string word(key.str());
    const int number = file_number(reader, key);
    const auto contents = node.value_exact<std::string>();
    const bool valid = contents && contents->size() % 2 == 0 &&
                       contents->find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
    if (!valid) reader.wrong(node, word, "the contents as pairs of hexadecimal digits in quotes");
    files[number] = *contents;
  }
}

Operator read_operator(Reader reader) {
  Operator entry;
  reader.number_into("stat", 0, 3, entry.stat);
  reader.text("long_name", entry.long_name);
  reader.text("short_name", entry.short_name);
  reader.text("numeric", entry.numeric);
  reader.number_into("rat", 0, 7, entry.rat);
  reader.number_into("lac", 0, 0xFFFF, entry.lac);
  reader.number_into("cell_id", 0, 0x7FFFFFFF, entry.cell_id);
  reader.number_into("tac", 0, 0xFFFF, entry.tac);
  reader.number_into("arfcn", 0, 0xFFFF, entry.arfcn);
  reader.number_into("band", 0, 0xFFFF, entry.band);
  reader.text("band_text", entry.band_text);
  reader.finish();
  return entry;
}

Fault read_fault(Reader reader) {
  Fault fault;
  std::size_t oversize = 0;
  reader.text("command", fault.command);
  reader.number_into("skip", 0, 1000000, fault.skip);
  reader.number_into("times", -1, 1000000, fault.times);
  fault.replace = reader.text("reply", fault.reply);
  reader.flag("replace", fault.replace);
  reader.flag("silent", fault.silent);
  reader.seconds("delay", fault.delay);
  reader.text("before", fault.before);
  reader.text("after", fault.after);
  reader.flag("joined", fault.joined);
  reader.flag("unplug", fault.unplug);
  if (reader.number_into("oversize", 1, 10000000, oversize)) {
    fault.before += std::string(oversize, 'x') + "\r\n";
  }
  reader.finish();
  return fault;
}

Answer read_answer(Reader reader) {
  Answer answer;
  if (!reader.text("command", answer.command) || answer.command.empty()) {
    fail(reader.file(), reader.table(), reader.name("command") + " is missing: the whole command");
  }
  if (reader.find("lines") == nullptr) {
    fail(reader.file(), reader.table(),
         reader.name("lines") + " is missing: an empty list is no answer at all");
  }
  answer.lines = reader.texts("lines");
  for (const std::string& line : answer.lines) {
    if (line.find_first_of("\r\n") != std::string::npos) {
      reader.wrong(*reader.find("lines"), "lines", "lines without line ends, each one for itself");
    }
  }
  reader.number_into("times", -1, 1000000, answer.times);
  reader.seconds("delay", answer.delay);
  reader.text("after", answer.after);
  for (const auto* table : reader.subs("reports")) {
    Reader report(reader.file(), *table, reader.name("reports"));
    TimedLine line;
    report.seconds("t", line.time);
    report.text("line", line.line);
    report.finish();
    answer.reports.push_back(line);
  }
  reader.finish();
  return answer;
}

std::map<std::string, std::string> read_files(Reader reader) {
  std::map<std::string, std::string> files;
  for (const auto& [key, node] : reader.table()) {
    const std::string path(key.str());
    reader.text(path, files[path]);
    if (path.find("..") != std::string::npos || path.empty()) {
      fail(reader.file(), node, reader.name(path) + " must be a path of the device without \"..\"");
    }
  }
  return files;
}

Prox read_prox(Reader reader) {
  Prox prox;
  const auto entry = [&](const char* key, long long low, long long high, std::optional<int>& place) {
    long long value = 0;
    if (reader.number(key, low, high, value)) place = static_cast<int>(value);
  };
  entry("diff", -4096, 4095, prox.diff);
  entry("avg", -32768, 65535, prox.avg);
  entry("offset", -32768, 65535, prox.offset);
  entry("use", -32768, 65535, prox.use);
  reader.finish();
  return prox;
}

NetCounters read_net(Reader reader) {
  constexpr long long kMost = 1000000000000LL;
  NetCounters net;
  reader.number_into("rx", 0, kMost, net.rx);
  reader.number_into("tx", 0, kMost, net.tx);
  reader.number_into("rx_rate", 0, kMost, net.rx_rate);
  reader.number_into("tx_rate", 0, kMost, net.tx_rate);
  reader.finish();
  return net;
}

void read_network_time(Reader& reader, Event& event) {
  const toml::node* node = reader.find("network_time");
  if (node == nullptr) return;
  if (!node->is_table()) {
    reader.text("network_time", event.network_time);
    return;
  }
  Reader table(reader.file(), *node->as_table(), reader.name("network_time"));
  std::string by = "ctzv";
  table.text("clock", event.network_time);
  if (table.text("by", by) && by != "ctzv" && by != "ciev") table.wrong(*node, "by", "\"ctzv\" or \"ciev\"");
  event.network_time_ciev = by == "ciev";
  table.number_into("dst", 0, 2, event.network_time_dst);
  table.finish();
}

void read_raw(Reader& reader, Event& event) {
  const toml::table* table = reader.sub("raw");
  if (table == nullptr) return;
  Reader raw(reader.file(), *table, reader.name("raw"));
  std::string port = "urc";
  raw.text("port", port);
  raw.text("bytes", event.raw_bytes);
  raw.finish();
  if (port != "trace" && port != "query" && port != "urc") {
    raw.wrong(*table, "port", "\"trace\", \"query\" or \"urc\"");
  }
  event.raw_port = port == "trace" ? Port::kTrace : port == "query" ? Port::kQuery : Port::kUrc;
}

void read_bursts(Reader& reader, Event& event) {
  if (const toml::table* table = reader.sub("storm")) {
    Reader storm(reader.file(), *table, reader.name("storm"));
    event.storm = Event::Storm();
    storm.text("urc", event.storm->urc);
    storm.number_into("count", 1, 10000000, event.storm->count);
    storm.seconds("every", event.storm->every);
    storm.finish();
    if (event.storm->count == 0) storm.wrong(*table, "count", "given: how many reports?");
  }
  if (const toml::table* table = reader.sub("trace")) {
    Reader trace(reader.file(), *table, reader.name("trace"));
    double mib = 0;
    trace.number_into("bytes", 1, 1LL << 40, event.trace_bytes);
    if (trace.real("mib", mib)) event.trace_bytes = static_cast<std::uint64_t>(mib * 1048576);
    trace.number_into("rate", 0, 1LL << 40, event.trace_rate);
    trace.finish();
    if (event.trace_bytes == 0) trace.wrong(*table, "bytes", "given (or mib): how much trace?");
  }
  if (const toml::table* table = reader.sub("reject")) {
    Reader reject(reader.file(), *table, reader.name("reject"));
    event.reject = Event::Reject();
    reject.number_into("procedure", 0, 255, event.reject->procedure);
    reject.number_into("cause", 0, 255, event.reject->cause);
    reject.number_into("mcc", 0, 999, event.reject->mcc);
    reject.number_into("mnc", 0, 999, event.reject->mnc);
    reject.finish();
  }
}

// The event as its line in the file shows it: the keys but t.
std::string event_text(const toml::table& table) {
  toml::table rest = table;
  rest.erase("t");
  std::ostringstream text;
  text << toml::json_formatter(rest, toml::format_flags::quote_dates_and_times);
  std::string line;
  for (const char c : text.str()) {
    if (c == '\n' || (c == ' ' && !line.empty() && line.back() == ' ')) continue;
    line += c;
  }
  return line;
}

Event read_event(Reader reader) {
  Event event;
  event.line = static_cast<int>(reader.table().source().begin.line);
  event.text = event_text(reader.table());
  if (!reader.seconds("t", event.time)) {
    fail(reader.file(), reader.table(),
         reader.name("t") + " is missing: the second at which the event happens");
  }
  reader.flag("plug", event.plug);
  std::size_t chunk = 0;
  if (reader.number_into("chunk", 0, 1000000, chunk)) event.chunk = chunk;
  reader.flag("clear_faults", event.clear_faults);
  for (const auto* table : reader.subs("fault")) {
    event.faults.push_back(read_fault(Reader(reader.file(), *table, reader.name("fault"))));
  }
  for (const auto* table : reader.subs("answer")) {
    event.answers.push_back(read_answer(Reader(reader.file(), *table, reader.name("answer"))));
  }
  if (const auto* table = reader.sub("files")) {
    event.files = read_files(Reader(reader.file(), *table, reader.name("files")));
  }
  event.remove = reader.texts("remove");
  if (const auto* table = reader.sub("prox")) {
    event.prox = read_prox(Reader(reader.file(), *table, reader.name("prox")));
  }
  if (const auto* table = reader.sub("net")) {
    event.net = read_net(Reader(reader.file(), *table, reader.name("net")));
  }
  if (const auto* table = reader.sub("set")) {
    Reader set(reader.file(), *table, reader.name("set"));
    event.set = read_state(set);
  }
  reader.flag("quietly", event.quietly);
  reader.text("join", event.join);
  read_network_time(reader, event);
  reader.flag("refresh", event.refresh);
  event.urcs = reader.texts("urc");
  read_raw(reader, event);
  read_bursts(reader, event);
  reader.flag("unplug", event.unplug);
  reader.finish();
  return event;
}

Scenario read_scenario(const toml::table& root, const std::string& name) {
  Scenario scenario;
  scenario.file = name;
  Reader reader(scenario.file, root, "");
  reader.text("title", scenario.title);
  if (const auto* table = reader.sub("state")) {
    Reader state(scenario.file, *table, "state");
    for (const auto& set : read_state(state)) set(scenario.state);
  }
  if (const auto* table = reader.sub("sim_files")) {
    Reader files(scenario.file, *table, "sim_files");
    scenario.state.files.clear();
    read_sim_files(files, scenario.state.files);
  }
  for (const auto* table : reader.subs("operator")) {
    scenario.state.operators.push_back(read_operator(Reader(scenario.file, *table, "operator")));
  }
  for (const auto* table : reader.subs("fault")) {
    scenario.faults.push_back(read_fault(Reader(scenario.file, *table, "fault")));
  }
  for (const auto* table : reader.subs("answer")) {
    scenario.answers.push_back(read_answer(Reader(scenario.file, *table, "answer")));
  }
  if (const auto* table = reader.sub("files")) {
    scenario.files = read_files(Reader(scenario.file, *table, "files"));
  }
  if (const auto* table = reader.sub("prox")) {
    scenario.prox = read_prox(Reader(scenario.file, *table, "prox"));
  }
  if (const auto* table = reader.sub("net")) scenario.net = read_net(Reader(scenario.file, *table, "net"));
  if (const auto* table = reader.sub("trace")) {
    Reader trace(scenario.file, *table, "trace");
    trace.number_into("rate", 0, 1LL << 40, scenario.trace_rate);
    trace.finish();
  }
  for (const auto* table : reader.subs("at")) {
    scenario.timeline.push_back(read_event(Reader(scenario.file, *table, "at")));
  }
  reader.finish();
  std::stable_sort(scenario.timeline.begin(), scenario.timeline.end(),
                   [](const Event& a, const Event& b) { return a.time < b.time; });
  return scenario;
}

}  // namespace

Scenario parse_scenario(const std::string& text, const std::string& name) {
  try {
    return read_scenario(toml::parse(text, std::string_view(name)), name);
  } catch (const toml::parse_error& error) {
    throw ScenarioError(name + ":" + std::to_string(error.source().begin.line) +
                        ": this is not TOML: " + std::string(error.description()));
  }
}

Scenario load_scenario(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  if (!file || std::filesystem::is_directory(path)) {
    throw ScenarioError("cannot read the scenario file " + path + ": is the name right?");
  }
  return parse_scenario(text.str(), path);
}

std::string find_scenario(const std::string& name) {
  namespace fs = std::filesystem;
  std::error_code failed;
  const fs::path program = fs::read_symlink("/proc/self/exe", failed);
  const fs::path folder = program.parent_path().parent_path() / MODEMSIM_SCENARIOS;
  if (name.find('/') != std::string::npos) return fs::is_regular_file(name, failed) ? name : "";
  // An installed scenario comes before a file of its name that somebody has put into the current folder.
  for (const fs::path& path : {folder / (name + ".toml"), fs::path(name), folder / name}) {
    if (fs::is_regular_file(path, failed)) return path.string();
  }
  return "";
}

std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
  const auto far = [&](const std::string& each) {
    return 2 * distance(word, each) + (each[0] == word[0] ? 0U : 1U);
  };
  const auto near = std::min_element(known.begin(), known.end(),
                                     [&](const auto& a, const auto& b) { return far(a) < far(b); });
  const bool close = near != known.end() && distance(word, *near) <= word.size() / 3 + 1;
  return close ? "; did you mean " + *near + "?" : "";
}

}  // namespace modemsim
