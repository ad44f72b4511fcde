// Answers that a scenario spells out, and those of a recording.
#include <strings.h>

#include <algorithm>
#include <cmath>

#include "at_log.h"
#include "impl.h"
#include "text.h"

namespace modemsim {

namespace {

bool same(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// "AT+COPS" of AT+COPS=2, "AT@EPHY:BAS" of AT@EPHY:BAS(1).
std::string name_of(const std::string& command) {
  return upper(command.substr(0, command.find_first_of("=(?")));
}

bool sets(const std::string& command) {
  const std::size_t at = command.find_first_of("=(");
  return at != std::string::npos && command.compare(at, 2, "=?") != 0;
}

std::string framed(const std::string& line, bool torn) {
  return "\r\n" + line + (torn ? "" : "\r\n");
}

}  // namespace

// -- Of a scenario

Answer* Modem::Impl::find_answer(const std::string& command) {
  Answer* chosen = nullptr;
  for (Answer& answer : answers_) {
    if (answer.times == 0 || !same(answer.command, command)) continue;
    if (!answer.after.empty()) {
      const auto set = last_sets_.find(name_of(answer.after));
      if (set == last_sets_.end() || !same(set->second, answer.after)) continue;
    }
    if (chosen == nullptr || (chosen->after.empty() && !answer.after.empty())) chosen = &answer;
  }
  return chosen;
}

const Answer* Modem::Impl::take_answer(const std::string& command) {
  Answer* chosen = find_answer(command);
  if (chosen != nullptr && chosen->times > 0) chosen->times--;
  return chosen;
}

void Modem::Impl::note_set(const std::string& command) {
  if (sets(command)) last_sets_[name_of(command)] = command;
}

// -- Of a recording

using Exchanges = std::vector<at_log::Exchange>;

struct Replay {
  Exchanges exchanges;
  double speed = 1;
  std::size_t next = 0;       // the exchange whose command comes next
  std::size_t neighbour = 0;  // the exchange after one that answered away from `next`, 0 for none
  std::size_t followed = 0;   // commands that came at their place
  bool end_told = false;
  std::size_t left = 0;           // commands that did not
  std::string first_left;         // a sentence
  std::size_t generation = 0;     // of the exchange under way: timers of an older one do nothing
  std::vector<at_log::Line> due;  // reports of the exchange under way that have not been sent

  Exchanges::const_iterator place_of(const std::string& command);
};

namespace {

Clock::duration pause(const Replay& replay, std::int64_t milliseconds) {
  if (replay.speed <= 0) return Clock::duration(0);
  return std::chrono::microseconds(std::llround(static_cast<double>(milliseconds) * 1000 / replay.speed));
}

}  // namespace

bool Modem::Impl::replay(const std::string& path, double speed) {
  auto replay = std::make_shared<Replay>();
  replay->speed = speed;
  try {
    replay->exchanges = at_log::exchanges(at_log::load(path));
  } catch (const std::runtime_error& problem) {
    error_ = problem.what();
    return false;
  }
  // Reports that were recorded before the first command come with it: a host listens by then.
  if (!replay->exchanges.empty() && replay->exchanges[0].command.text.empty()) {
    replay->due = std::move(replay->exchanges[0].reports);
    replay->exchanges.erase(replay->exchanges.begin());
  }
  if (replay->exchanges.empty()) {
    error_ = path + " holds no command";
    return false;
  }
  replay_ = replay;
  return true;
}

// Reports that the recording has before the next command.
void Modem::Impl::finish_reports() {
  replay_->generation++;
  for (const at_log::Line& line : replay_->due) write(Port::kUrc, framed(line.text, line.torn));
  replay_->due.clear();
}

void Modem::Impl::forget_reports() {
  if (!replay_) return;
  replay_->generation++;
  replay_->due.clear();
}

// The place of the recording that answers a command, end() for none. `next` follows the host there when it
// left out no more than a few commands, or when two of its commands in a row are neighbours there.
Exchanges::const_iterator Replay::place_of(const std::string& command) {
  constexpr std::size_t kAhead = 20;
  const auto fits = [&](const at_log::Exchange& exchange) { return same(exchange.command.text, command); };
  const auto from = [this](std::size_t index) {
    return exchanges.cbegin() + static_cast<std::ptrdiff_t>(std::min(index, exchanges.size()));
  };
  auto found = from(next);
  if (neighbour != 0 && (found == exchanges.cend() || !fits(*found))) found = from(neighbour);
  neighbour = 0;
  const bool follows = found != exchanges.cend() && fits(*found);
  if (!follows) found = std::find_if(from(next), from(next + kAhead), fits);
  if (follows || found != from(next + kAhead)) {
    followed += follows ? 1 : 0;
    left += follows ? 0 : 1;
    next = static_cast<std::size_t>(found - exchanges.cbegin()) + 1;
    return found;
  }
  left++;
  found = std::find_if(from(next), exchanges.cend(), fits);
  if (found != exchanges.cend()) neighbour = static_cast<std::size_t>(found - exchanges.cbegin()) + 1;
  const auto last = std::find_if(std::make_reverse_iterator(from(next)), exchanges.crend(), fits);
  if (last != exchanges.crend()) found = last.base() - 1;
  return found;
}

void Modem::Impl::replay_command(const std::string& command) {
  Replay& replay = *replay_;
  finish_reports();
  const std::size_t expected = replay.next, left = replay.left;
  const auto found = replay.place_of(command);
  if (replay.left > left) {
    const bool end = expected == replay.exchanges.size();
    const std::string sentence = "left the recording at command " + std::to_string(expected + 1) +
                                 ": the host sent " + command + ", the recording " +
                                 (end ? "is at its end" : "has " + replay.exchanges[expected].command.text);
    if (left == 0) replay.first_left = sentence;
    if (event_observer_ && (!end || !replay.end_told)) event_observer_(sentence);
    replay.end_told = replay.end_told || end;
  }
  if (found == replay.exchanges.cend()) {
    write(Port::kQuery, kError);
    return;
  }
  // Each line at its time after the command.
  const std::int64_t start = found->command.ms;
  for (const at_log::Line& line : found->answers) {
    after_if_plugged(pause(replay, line.ms - start),
                     [this, line] { write(Port::kQuery, framed(line.text, line.torn)); });
  }
  replay.due = found->reports;
  for (const at_log::Line& line : found->reports) {
    after_if_plugged(pause(replay, line.ms - start), [this, generation = replay.generation] {
      if (!replay_ || generation != replay_->generation || replay_->due.empty()) return;
      const at_log::Line first = replay_->due.front();
      replay_->due.erase(replay_->due.begin());
      write(Port::kUrc, framed(first.text, first.torn));
    });
  }
}

bool Modem::replay(const std::string& path, double speed) {
  bool done = false;
  impl_->call([&] { done = impl_->replay(path, speed); });
  return done;
}

std::string Modem::replayed() {
  std::string text;
  impl_->call([&] {
    if (!impl_->replay_) return;
    const Replay& replay = *impl_->replay_;
    text = std::to_string(replay.followed) + " of " + std::to_string(replay.exchanges.size()) +
           " recorded commands came in their order";
    if (replay.left > 0) text += ", " + std::to_string(replay.left) + " others. First: " + replay.first_left;
  });
  return text;
}

}  // namespace modemsim
