// Playing a scenario: one timer, for the next event.
#include <algorithm>
#include <cmath>

#include "device_files.h"
#include "impl.h"
#include "modemsim/scenario.h"

namespace modemsim {

struct Play {
  Scenario scenario;
  double speed = 1;
  Clock::time_point start;
  std::size_t next = 0;    // event
  std::size_t storms = 0;  // still going on
  std::optional<NetCounters> net;
  Clock::time_point net_since;  // when `net` was right
};

namespace {

constexpr std::chrono::seconds kNetTick(1);

// A time that a slow speed stretches beyond the clock's range stays within it.
Clock::duration scaled(Milliseconds time, double speed) {
  constexpr double kLongest = 1e18;  // ns: 30 years
  return std::chrono::nanoseconds(
      std::llround(std::min(static_cast<double>(time.count()) * 1e6 / speed, kLongest)));
}

}  // namespace

bool Modem::Impl::play(const Scenario& scenario, double speed) {
  if (!running_ || !(speed > 0)) {
    error_ = running_ ? "the speed of a scenario must be above 0"
                      : "the modem must be started before a scenario is played";
    return false;
  }
  stop_playing();
  std::string problem;
  for (const auto& [path, contents] : scenario.files) {
    if (problem.empty()) problem = write_device_file(root_, path, contents);
  }
  if (problem.empty() && scenario.prox) problem = write_prox(root_, *scenario.prox, true);
  if (!problem.empty()) {
    error_ = problem;
    return false;
  }
  state_ = scenario.state;
  last_network_ = Network();
  faults_ = scenario.faults;
  answers_ = scenario.answers;
  last_sets_.clear();
  trace_rate_ = scenario.trace_rate;
  play_ = std::make_shared<Play>();
  play_->scenario = scenario;
  play_->speed = speed;
  play_->start = play_->net_since = Clock::now();
  play_->net = scenario.net;
  if (play_->net) tick_net(play_);
  schedule_event(play_);
  return true;
}

void Modem::Impl::stop_playing() {
  play_.reset();
}

bool Modem::Impl::played() const {
  return !play_ || (play_->next >= play_->scenario.timeline.size() && play_->storms == 0);
}

// A timer that finds another scenario in place does nothing: its own was stopped.
void Modem::Impl::schedule_event(const std::shared_ptr<Play>& play) {
  if (play->next >= play->scenario.timeline.size()) return;
  at(play->start + scaled(play->scenario.timeline[play->next].time, play->speed), [this, play] {
    if (play != play_) return;
    play_event(play, play->scenario.timeline[play->next]);
    play->next++;
    schedule_event(play);
  });
}

void Modem::Impl::play_event(const std::shared_ptr<Play>& play, const Event& event) {
  if (event_observer_) {
    event_observer_(format("%.3f s: ", static_cast<double>(event.time.count()) / 1000) + event.text);
  }
  const auto report = [this](const std::string& problem) {
    if (!problem.empty() && event_observer_) event_observer_(problem);
  };
  if (event.plug) report(plug() ? "" : error_);
  if (event.chunk) set_chunk(*event.chunk);
  if (event.clear_faults) {
    faults_.clear();
    answers_.clear();
  }
  faults_.insert(faults_.end(), event.faults.begin(), event.faults.end());
  answers_.insert(answers_.end(), event.answers.begin(), event.answers.end());
  for (const auto& [path, contents] : event.files) report(write_device_file(root_, path, contents));
  for (const std::string& path : event.remove) report(remove_device_file(root_, path));
  report(write_prox(root_, event.prox, false));
  if (event.net) {
    play->net = event.net;
    play->net_since = Clock::now();
    tick_net(play);
  }
  const Reported before = reported(state_);
  for (const auto& set : event.set) set(state_);
  if (!event.join.empty()) {
    Session session{state_, last_network_};
    move_to_network(session, event.join);
  }
  if (!event.quietly) report_change(before);
  if (!event.network_time.empty()) {
    state_.clock = event.network_time;
    if (state_.time_reports) {
      send_urc(event.network_time_ciev ? ciev_line(state_.clock, event.network_time_dst)
                                       : ctzv_line(state_.clock));
    }
  }
  if (event.reject && state_.reject_reports) {
    send_urc(reject_line(event.reject->procedure, event.reject->cause, event.reject->mcc, event.reject->mnc));
  }
  if (event.refresh) send_urc(refresh_line());
  for (const std::string& urc : event.urcs) send_urc(urc);
  if (event.raw_port) write(*event.raw_port, event.raw_bytes);
  if (event.storm) {
    play->storms++;
    play_storm(play, *event.storm, event.storm->count);
  }
  if (event.trace_bytes > 0) port(Port::kTrace).stream(event.trace_bytes, event.trace_rate);
  if (event.unplug) disconnect();
}

void Modem::Impl::play_storm(const std::shared_ptr<Play>& play, const Event::Storm& storm, int left) {
  if (play != play_) return;
  send_urc(storm.urc);
  const Clock::duration pause = scaled(storm.every, play->speed);
  while (--left > 0) {
    if (pause.count() > 0) {
      after(pause, [this, play, storm, left] { play_storm(play, storm, left); });
      return;
    }
    send_urc(storm.urc);
  }
  play->storms--;
}

// The counters go on while data flows; without rates the file is written once.
void Modem::Impl::tick_net(const std::shared_ptr<Play>& play) {
  if (play != play_ || !play->net) return;
  cancel(net_timer_);
  const auto now = Clock::now();
  const double seconds = std::chrono::duration<double>(now - play->net_since).count() * play->speed;
  NetCounters shown = *play->net;
  if (connected_) {
    shown.rx += static_cast<std::uint64_t>(seconds * static_cast<double>(shown.rx_rate));
    shown.tx += static_cast<std::uint64_t>(seconds * static_cast<double>(shown.tx_rate));
  }
  const std::string problem = write_net_counters(root_, shown, connected_);
  if (!problem.empty() && event_observer_) event_observer_(problem);
  if (connected_ && (shown.rx_rate > 0 || shown.tx_rate > 0)) {
    net_timer_ = after(kNetTick, [this, play] { tick_net(play); });
  }
}

// The interface of a modem that goes away or comes back does the same; it counts from 0 then.
void Modem::Impl::show_net_device() {
  if (!play_ || !play_->net) return;
  play_->net->rx = play_->net->tx = 0;
  play_->net_since = Clock::now();
  tick_net(play_);
}

bool Modem::play(const Scenario& scenario, double speed) {
  bool done = false;
  impl_->call([&] { done = impl_->play(scenario, speed); });
  return done;
}

bool Modem::wait_played(Milliseconds patience) {
  return impl_->wait_until([this] { return impl_->played(); }, patience);
}

void Modem::observe_events(std::function<void(const std::string&)> observer) {
  impl_->event_observer_ = std::move(observer);
}

}  // namespace modemsim
