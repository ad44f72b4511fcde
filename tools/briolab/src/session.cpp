// The session around the commands: start and end, what changed since the last look.
#include "session.h"
#include "kit/process.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>

#include "base/clock.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "kit/clock.h"
#include "nipc/nipc_standin.h"

namespace lab {

namespace {

// A report that no parser takes: the line that says so is the proof that all before it was handled.
constexpr char kMarker[] = "SETTLED";
constexpr char kDropped[] = "process_line:ERROR:cleaning up!";

std::mutex s_events_mutex;  // guards the three below
std::condition_variable s_events_changed;
Session::Lines s_events;
bool s_holding = false, s_held = false;

// Any thread that raises an event.
uint32_t record_event(uint32_t id, uint32_t size, const void* data) {
  std::string line = std::to_string(id);
  if (id == BRIO_EVENT_TIME_INFO && data != nullptr) {
    line += " " + describe(*static_cast<const network_time*>(data));
  } else {
    const auto* words = static_cast<const int32_t*>(data);
    for (uint32_t i = 0; words != nullptr && i < size / 4; i++) line += " " + std::to_string(words[i]);
  }
  std::unique_lock<std::mutex> guard(s_events_mutex);
  s_events.push_back(line);
  s_held = s_holding;
  s_events_changed.notify_all();
  s_events_changed.wait(guard, [] { return !s_holding; });
  return 0;
}

Session::Lines split(const std::string& text, char at) {
  Session::Lines parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, at);) parts.push_back(part);
  return parts;
}

// Adds "name=value" where the value differs; of a row of numbers or a record only the parts that do.
void add_changes(Session::Lines& changes, const std::string& name, const std::string& before,
                 const std::string& after) {
  if (before == after) return;
  const bool record = after[0] == '{', row = after.find_first_not_of("-0123456789,") == std::string::npos;
  const auto old = split(before, record ? ' ' : ','), now = split(after, record ? ' ' : ',');
  if ((!record && !row) || now.size() < 2 || old.size() != now.size()) {
    changes.push_back(name + "=" + after);
    return;
  }
  for (size_t i = 0; i < now.size(); i++) {
    if (old[i] == now[i]) continue;
    const std::string part = now[i].substr(now[i][0] == '{' ? 1 : 0, now[i].find('}'));
    changes.push_back(name);
    changes.back().append(record ? "." : "[" + std::to_string(i) + "]=").append(part);
  }
}

// Whether the level letter and the priority agree.
bool fits(const log_capture::Line& line) {
  const bool module = line.text.compare(1, 6, " blib:") != 0;
  const std::map<char, int> priorities = {
      {'D', LOG_DEBUG}, {'I', module ? LOG_NOTICE : LOG_INFO}, {'W', LOG_WARNING}, {'E', LOG_ERR}};
  const auto found = priorities.find(line.text[0]);
  return found != priorities.end() && found->second == line.priority;
}

bool marks(const log_capture::Line& line) {
  return line.text.find(kMarker) != std::string::npos;
}

}  // namespace

double now() {
  timespec time = {};
  brio::clock_monotonic(&time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void hold_events(bool hold) {
  std::lock_guard<std::mutex> guard(s_events_mutex);
  s_holding = hold;
  s_held = false;
  s_events_changed.notify_all();
}

bool wait_held() {
  std::unique_lock<std::mutex> guard(s_events_mutex);
  return s_events_changed.wait_for(guard, std::chrono::seconds(10), [] { return s_held; });
}

Session::Session(bool start) {
  setenv("TZ", "UTC0", 1);
  test_clock::reset();
  NipcStandinReset();
  brio_set_root_dir(root.dir().c_str());
  for (uint32_t id = 0; id < BRIO_EVENT_COUNT; id++) brio_set_callback_for_event_id(id, record_event);
  // Nobody need wait for an answer that is withheld.
  modem.observe([this](const modemsim::Traffic& traffic) {
    if (traffic.to_modem) test_clock::keep_wait();  // the wait before is over
    if (traffic.bytes.empty() || (alone && is_unfinished(traffic))) test_clock::expire_wait();
  });
  modem.observe_events([this](const std::string& event) { played.push_back(event); });
  expire_dropped();
  if (start && !modem.start(root.dir())) throw UsageError(modem.error());
  {
    brio::UrcDataLock lock;
    briolib_init_atcmd_data(0);
  }
  descriptors = process::descriptors();
  threads = process::threads();
  shown = shared_fields();
  time_seen = now();
}

std::string Session::end() {
  log_capture::on_line("", nullptr);
  hold_events(false);
  for (auto& each : running) each.second.wait();
  wabs_close();
  brio_trace_tst_stop();
  brio_close();
  modem.plug();
  return leftover();
}

void Session::unfinished(const std::string& reply) {
  std::lock_guard<std::mutex> guard(unfinished_mutex);
  unfinished_replies.push_back(reply);
}

bool Session::is_unfinished(const modemsim::Traffic& traffic) {
  if (traffic.to_modem || traffic.port != modemsim::Port::kQuery) return false;
  std::lock_guard<std::mutex> guard(unfinished_mutex);
  return std::any_of(unfinished_replies.begin(), unfinished_replies.end(), [&](const std::string& reply) {
    const size_t size = traffic.bytes.size();
    return size >= reply.size() && traffic.bytes.compare(size - reply.size(), reply.size(), reply) == 0;
  });
}

// The library gives up an answer that its command's type does not allow, and the request waits on.
void Session::expire_dropped() {
  log_capture::on_line(kDropped, [this] {
    if (alone) test_clock::expire_wait();
    expire_dropped();
  });
}

std::string Session::leftover() const {
  std::string more = also_left ? also_left() : "";
  if (!more.empty()) return more;
  const auto none = [this] { return process::descriptors() == descriptors && process::threads() <= threads; };
  if (process::eventually(none)) return "none";
  return "threads " + std::to_string(process::threads()) + " for " + std::to_string(threads) +
         ", descriptors " + std::to_string(process::descriptors()) + " for " + std::to_string(descriptors);
}

void Session::emit(const std::string& line) {
  const bool blank = !line.empty() && line.back() == ' ';
  seen.output.push_back(blank ? line.substr(0, line.size() - 1) + "\\x20" : line);
}

void Session::settle() {
  if (!running.empty() || holding || !modem.is_open(modemsim::Port::kUrc)) return;
  if (briolib_check_library_status() == BRIO_STATUS_NOT_OPEN) return;
  modem.urc(std::string("+") + kMarker + ": ");
  if (!log_capture::wait_for(std::string("No URC Callback func avail ") + kMarker, ++markers)) {
    throw UsageError("the library did not handle a report");
  }
  for (const auto& line : log_capture::lines()) {
    if (marks(line)) event_thread = line.thread;
  }
}

Session::Lines Session::readable(const std::vector<log_capture::Line>& lines, const Lines& parts) const {
  static const std::regex number(
      "((?:blib:[a-z_/0-9]+|\\(\\w+:\\w+):|(?:now|last|diff|nospace:size)=)[0-9]+"),
      pointer("(=|pointer: |(?:loc |Free|freed|\\]|_p)\\[)0x[0-9a-f]+");
  Lines all;
  for (const auto& line : lines) {
    if (marks(line) || !holds_one(line.text, parts)) continue;
    std::string text = std::regex_replace(std::regex_replace(line.text, number, "$1N"), pointer, "$1P");
    for (size_t at; (at = text.find(root.dir())) != std::string::npos;) text.erase(at, root.dir().size());
    all.push_back((fits(line) ? "" : "<" + std::to_string(line.priority) + "> ") + escaped(text));
  }
  return all;
}

Session::Lines Session::take_log(const Lines& parts) {
  Lines all = readable(log, parts);
  log.clear();
  return all;
}

void Session::show_log(const Lines& parts) {
  for (const auto& line : take_log(parts)) emit(line);
}

void Session::observe() {
  if (!running.empty()) return;  // what another thread does now has no fixed place here
  const auto received = modem.commands();
  for (size_t same = 1; commands_seen < received.size(); commands_seen += same, same = 1) {
    const std::string& command = received[commands_seen];
    while (commands_seen + same < received.size() && received[commands_seen + same] == command) same++;
    seen.sent.push_back(escaped(command) + (same > 1 ? " x" + std::to_string(same) : ""));
  }
  {
    std::lock_guard<std::mutex> guard(s_events_mutex);
    seen.events.insert(seen.events.end(), s_events.begin(), s_events.end());
    s_events.clear();
  }
  const Fields fields = shared_fields();
  for (size_t i = 0; i < fields.size(); i++) {
    add_changes(seen.changed, fields[i].first, shown[i].second, fields[i].second);
  }
  shown = fields;
  // The event thread's lines come after those of the others: nothing else orders them.
  const auto all = log_capture::lines();
  std::vector<log_capture::Line> fresh(all.begin() + static_cast<std::ptrdiff_t>(log_seen), all.end());
  std::stable_partition(fresh.begin(), fresh.end(),
                        [this](const auto& line) { return line.thread != event_thread; });
  log_seen = all.size();
  log.insert(log.end(), fresh.begin(), fresh.end());
  seen.lines.insert(seen.lines.end(), fresh.begin(), fresh.end());
  for (const auto& line : fresh) {
    if (line.text.find(kDropped) == std::string::npos) continue;
    seen.notes.emplace_back(
        "the library dropped an answer that its command does not allow: its request timed out");
  }
  if (follow.empty()) return;
  const Lines followed = take_log(follow);
  seen.log.insert(seen.log.end(), followed.begin(), followed.end());
}

void Session::forget() {
  observe();
  seen = {};
  log.clear();
  sleeps_seen = test_clock::sleeps().size();
}

void Session::command(const std::string& line) {
  Arguments arguments(line);
  const std::string name = arguments.text();
  const auto found = commands().find(name);
  if (found == commands().end()) throw UsageError("no such command" + did_you_mean(name));
  found->second(*this, arguments);
  arguments.finish();
}

Seen Session::run(const std::string& line) {
  seen = {};
  command(line);
  if (line.compare(0, 4, "raw ") != 0) observe();
  return seen;
}

Seen::Lines Seen::text() const {
  Lines all;
  for (const auto& each : notes) all.push_back("note: " + each);
  all.insert(all.end(), output.begin(), output.end());
  for (const auto& each : sent) all.push_back("sent " + each);
  for (const auto& each : events) all.push_back("event " + each);
  std::string names;
  for (const auto& each : changed) names += " " + each;
  if (!changed.empty()) all.push_back("changed" + names);
  all.insert(all.end(), log.begin(), log.end());
  return all;
}

}  // namespace lab
