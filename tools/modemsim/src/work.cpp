// Commands in work, one after the other: their faults, the time they take, their answers and reports.
#include <strings.h>

#include <iterator>

#include "impl.h"

namespace modemsim {

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
  while (!busy_ && !queue_.empty()) {
    current_ = queue_.front();
    queue_.pop_front();
    fault_ = take_fault(current_);
    answer_.reset();
    const bool answers = !fault_.replace && !fault_.silent && !fault_.unplug;
    if (const Answer* scripted = answers ? take_answer(current_) : nullptr) answer_ = *scripted;
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
  if (fault.silent) {
    if (observer_) observer_({Port::kQuery, false, ""});
    return;
  }
  if (fault.replace) {
    write(Port::kQuery, fault.before + fault.reply + fault.after);
    return;
  }
  if (scripted) {
    write(Port::kQuery, fault.before);
    give_answer(*scripted);
    write(Port::kQuery, fault.after);
    return;
  }
  const Reported before = reported(state_);
  Session session{state_, last_network_};
  std::string answer = answer_command(current_, session);
  if (fault.joined) answer = join_lines(answer);
  write(Port::kQuery, fault.before + answer + fault.after);
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
