// Commands in work, one after the other: their faults, the time they take, their answers and reports.
#include <strings.h>

#include <iterator>

#include "impl.h"

namespace modemsim {

namespace {

// Takes the OK off an answer; false when it has none.
bool drop_ok(std::string& answer) {
  const std::string ok = "OK\r\n";
  const std::size_t at = answer.size() < ok.size() ? std::string::npos : answer.size() - ok.size();
  if (at == std::string::npos || answer.substr(at) != ok || (at > 0 && answer[at - 1] != '\n')) return false;
  const std::string before = answer.substr(0, at);
  const bool blank = before == "\r\n" || (at > 3 && before.substr(at - 4) == "\r\n\r\n");
  answer = blank ? before.substr(0, at - 2) : before;
  return true;
}

}  // namespace

void Modem::Impl::take_line(const std::string& line) {
  if (line.empty()) return;
  {
    const std::lock_guard<std::mutex> guard(log_mutex_);
    commands_.push_back(line);
    log_changed_.notify_all();
  }
  if (observer_) observer_({Port::kQuery, true, line});
  if (replay_) {
    replay_command(line);
    return;
  }
  if (state_.echo) write(Port::kQuery, line + "\r");
  if (line == "^" && busy_ && scanning_) {
    drop_current();
    write(Port::kQuery, kOk);
  } else {
    queue_.push_back(line);
  }
  work_on_commands();
}

void Modem::Impl::work_on_commands() {
  while (!busy_ && !(parts_.empty() && queue_.empty())) {
    if (parts_.empty()) {
      // An answer may be that of a whole line.
      const bool whole = find_answer(queue_.front()) != nullptr;
      const auto parts = whole ? std::vector<std::string>{queue_.front()} : split_line(queue_.front());
      parts_.assign(parts.begin(), parts.end());
      queue_.pop_front();
    }
    current_ = parts_.front();
    parts_.pop_front();
    fault_ = take_fault(current_);
    answer_.reset();
    const bool answers = !fault_.replace && !fault_.silent && !fault_.unplug;
    if (const Answer* scripted = answers ? take_answer(current_) : nullptr) {
      answer_ = *scripted;
      for (const TimedLine& report : answer_->reports) {
        after_if_plugged(report.time, [this, line = report.line] { send_urc(line); });
      }
    }
    Parsed parsed;
    const bool parses = parse_command(current_, parsed);
    const bool known = !answer_ && parses;
    const Milliseconds time = fault_.delay + (answer_ ? answer_->delay
                                              : known ? command_time(parsed, state_)
                                                      : Milliseconds(0));
    if (time <= Milliseconds(0)) {
      finish_command();
      continue;
    }
    busy_ = true;
    scanning_ = parses && is_scan(parsed);
    work_timer_ = after(time, [this] {
      busy_ = scanning_ = false;
      finish_command();
      work_on_commands();
    });
  }
}

void Modem::Impl::drop_current() {
  if (busy_) cancel(work_timer_);
  busy_ = scanning_ = false;
  parts_.clear();
}

void Modem::Impl::finish_command() {
  const Fault fault = std::move(fault_);
  fault_ = Fault();
  note_set(current_);
  const std::optional<Answer> scripted = std::move(answer_);
  answer_.reset();
  if (fault.unplug) {
    disconnect();
    return;
  }
  const Reported before = reported(state_);
  std::string answer;
  if (fault.silent || (scripted && scripted->lines.empty())) {
    if (observer_) observer_({Port::kQuery, false, ""});
  } else if (fault.replace) {
    answer = fault.reply;
  } else if (scripted) {
    for (const std::string& line : scripted->lines) answer += "\r\n" + line + "\r\n";
  } else {
    Session session{state_, last_network_};
    answer = answer_command(current_, session);
    if (fault.joined) answer = join_lines(answer);
  }
  // Of the commands of a line the last one says OK. One that fails ends the line.
  if (!parts_.empty() && !drop_ok(answer)) parts_.clear();
  if (!fault.silent) write(Port::kQuery, fault.before + answer + fault.after);
  report_change(before);
}

Fault Modem::Impl::take_fault(const std::string& command) {
  Fault chosen;
  bool found = false;
  for (auto it = faults_.begin(); it != faults_.end();) {
    if (strncasecmp(command.c_str(), it->command.c_str(), it->command.size()) != 0) {
      ++it;
      continue;
    }
    if (it->skip > 0) {
      it->skip--;
    } else if (!found && it->times != 0) {
      chosen = *it;
      found = true;
      if (it->times > 0) it->times--;
    }
    it = it->times == 0 ? faults_.erase(it) : std::next(it);
  }
  return chosen;
}

void Modem::Impl::report_change(const Reported& before) {
  for (const std::string& line : reports_of_change(before, state_)) send_urc(line);
}

void Modem::Impl::write(Port which, const std::string& bytes) {
  if (bytes.empty()) return;
  if (observer_) observer_({which, false, bytes});
  port(which).queue(bytes);
}

void Modem::Impl::set_chunk(std::size_t bytes) {
  chunk_ = bytes;
  port(Port::kQuery).set_chunk(bytes);
  port(Port::kUrc).set_chunk(bytes);
}

void Modem::Impl::stream_background_trace() {
  PtyPort& trace = port(Port::kTrace);
  const bool wanted = trace_rate_ > 0 && state_.trace_on && trace.is_open();
  if (wanted != trace.streams_for_ever()) trace.stream_for_ever(wanted ? trace_rate_ : 0);
}

std::string Modem::Impl::join_lines(const std::string& answer) {
  std::string text;
  for (std::size_t at = answer.compare(0, 2, "\r\n") == 0 ? 2 : 0; at < answer.size();) {
    const bool blank = answer.compare(at, 4, "\r\n\r\n") == 0;
    text += answer.substr(at, blank ? 2 : 1);
    at += blank ? 4 : 1;
  }
  return text;
}

}  // namespace modemsim
