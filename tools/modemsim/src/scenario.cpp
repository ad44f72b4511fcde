// Scenario files: TOML into a Scenario, with an error sentence for everything that is not understood.
#include "modemsim/scenario.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "settings.h"

namespace modemsim {
namespace {

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
  fail(reader.source(), key.source(),
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
  reader.times("times", fault.times);
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
    reader.missing("command", "the whole command");
  }
  if (reader.find("lines") == nullptr) reader.missing("lines", "an empty list is no answer at all");
  answer.lines = reader.lines("lines");
  reader.times("times", answer.times);
  reader.seconds("delay", answer.delay);
  reader.text("after", answer.after);
  for (const auto* table : reader.subs("reports")) {
    Reader report(reader.source(), *table, reader.name("reports"));
    TimedLine line;
    if (!report.seconds("t", line.time)) report.missing("t", "the second after the command");
    if (!report.line("line", line.line)) report.missing("line", "the report, without line ends");
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
      reader.wrong(node, path, "a path of the device without \"..\"");
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
    read_clock(reader, "network_time", event.network_time);
    return;
  }
  Reader table(reader.source(), *node->as_table(), reader.name("network_time"));
  std::string by = "ctzv";
  if (!read_clock(table, "clock", event.network_time)) table.missing("clock", kClockForm);
  if (table.text("by", by) && by != "ctzv" && by != "ciev") table.wrong(*node, "by", "\"ctzv\" or \"ciev\"");
  event.network_time_ciev = by == "ciev";
  table.number_into("dst", 0, 2, event.network_time_dst);
  table.finish();
}

void read_raw(Reader& reader, Event& event) {
  const toml::table* table = reader.sub("raw");
  if (table == nullptr) return;
  Reader raw(reader.source(), *table, reader.name("raw"));
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
    Reader storm(reader.source(), *table, reader.name("storm"));
    event.storm = Event::Storm();
    if (!storm.line("urc", event.storm->urc)) storm.missing("urc", "the report");
    storm.number_into("count", 1, 10000000, event.storm->count);
    storm.seconds("every", event.storm->every);
    storm.finish();
    if (event.storm->count == 0) storm.wrong(*table, "count", "given: how many reports?");
  }
  if (const toml::table* table = reader.sub("trace")) {
    Reader trace(reader.source(), *table, reader.name("trace"));
    double mib = 0;
    trace.number_into("bytes", 1, 1LL << 40, event.trace_bytes);
    if (trace.real("mib", mib)) event.trace_bytes = static_cast<std::uint64_t>(mib * 1048576);
    trace.number_into("rate", 0, 1LL << 40, event.trace_rate);
    trace.finish();
    if (event.trace_bytes == 0) trace.wrong(*table, "bytes", "given (or mib): how much trace?");
  }
  if (const toml::table* table = reader.sub("reject")) {
    Reader reject(reader.source(), *table, reader.name("reject"));
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
  if (!reader.seconds("t", event.time)) reader.missing("t", "the second at which the event happens");
  reader.flag("plug", event.plug);
  std::size_t chunk = 0;
  if (reader.number_into("chunk", 0, 1000000, chunk)) event.chunk = chunk;
  reader.flag("clear_faults", event.clear_faults);
  for (const auto* table : reader.subs("fault")) {
    event.faults.push_back(read_fault(Reader(reader.source(), *table, reader.name("fault"))));
  }
  for (const auto* table : reader.subs("answer")) {
    event.answers.push_back(read_answer(Reader(reader.source(), *table, reader.name("answer"))));
  }
  if (const auto* table = reader.sub("files")) {
    event.files = read_files(Reader(reader.source(), *table, reader.name("files")));
  }
  event.remove = reader.texts("remove");
  if (const auto* table = reader.sub("prox")) {
    event.prox = read_prox(Reader(reader.source(), *table, reader.name("prox")));
  }
  if (const auto* table = reader.sub("net")) {
    event.net = read_net(Reader(reader.source(), *table, reader.name("net")));
  }
  if (const auto* table = reader.sub("set")) {
    Reader set(reader.source(), *table, reader.name("set"));
    event.set = read_state(set);
  }
  reader.flag("quietly", event.quietly);
  reader.text("join", event.join);
  read_network_time(reader, event);
  reader.flag("refresh", event.refresh);
  event.urcs = reader.lines("urc");
  read_raw(reader, event);
  read_bursts(reader, event);
  reader.flag("unplug", event.unplug);
  reader.finish();
  return event;
}

Scenario read_scenario(const toml::table& root, const std::string& name) {
  Scenario scenario;
  scenario.file = name;
  Source source{name};
  Reader reader(source, root, "");
  std::string encoding = "utf-8";
  reader.text("encoding", encoding);
  if (encoding != "utf-8" && encoding != "latin1") {
    reader.wrong(*root.get("encoding"), "encoding", "\"utf-8\" or \"latin1\" (a character is a byte)");
  }
  source.latin1 = encoding == "latin1";
  reader.text("title", scenario.title);
  if (const auto* table = reader.sub("state")) {
    Reader state(source, *table, "state");
    for (const auto& set : read_state(state)) set(scenario.state);
  }
  if (const auto* table = reader.sub("sim_files")) {
    Reader files(source, *table, "sim_files");
    scenario.state.files.clear();
    read_sim_files(files, scenario.state.files);
  }
  for (const auto* table : reader.subs("operator")) {
    scenario.state.operators.push_back(read_operator(Reader(source, *table, "operator")));
  }
  for (const auto* table : reader.subs("fault")) {
    scenario.faults.push_back(read_fault(Reader(source, *table, "fault")));
  }
  for (const auto* table : reader.subs("answer")) {
    scenario.answers.push_back(read_answer(Reader(source, *table, "answer")));
  }
  if (const auto* table = reader.sub("files")) {
    scenario.files = read_files(Reader(source, *table, "files"));
  }
  if (const auto* table = reader.sub("prox")) {
    scenario.prox = read_prox(Reader(source, *table, "prox"));
  }
  if (const auto* table = reader.sub("net")) scenario.net = read_net(Reader(source, *table, "net"));
  if (const auto* table = reader.sub("trace")) {
    Reader trace(source, *table, "trace");
    trace.number_into("rate", 0, 1LL << 40, scenario.trace_rate);
    trace.finish();
  }
  for (const auto* table : reader.subs("at")) {
    scenario.timeline.push_back(read_event(Reader(source, *table, "at")));
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

}  // namespace modemsim
