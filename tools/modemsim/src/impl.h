// The inside of Modem. Apart from what the two mutexes guard, everything belongs to the simulator's thread
// (to the caller while that thread does not run).
#ifndef MODEMSIM_IMPL_H
#define MODEMSIM_IMPL_H

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "commands.h"
#include "modemsim/modem.h"
#include "modemsim/pty_port.h"
#include "modemsim/scenario.h"
#include "state.h"

namespace modemsim {

struct Play;    // a scenario that is being played
struct Replay;  // a recording that is being answered from

struct Modem::Impl {
  struct Waiter {
    std::function<bool()> condition;  // asked on the simulator's thread
    bool ready = false;               // guarded by log_mutex_
  };

  bool start(const std::string& where);
  void stop();

  // Runs `work` on the simulator's thread, in the order of the calls: now and then; call() waits until it
  // ran.
  void post(std::function<void()> work);
  void call(const std::function<void()>& work);
  bool wait_until(std::function<bool()> condition, Milliseconds patience);

  // The rest runs on the simulator's thread.
  void run();
  void wait();
  void look_who_opened();
  void run_timers();
  void read_port(Port port);
  void tell_waiters();
  std::uint64_t at(Clock::time_point time, std::function<void()> action);
  std::uint64_t after(Clock::duration delay, std::function<void()> action);
  // Nothing that was to be said before an unplugging is said after it.
  void after_if_plugged(Clock::duration delay, std::function<void()> action);
  void cancel(std::uint64_t timer);

  void close_wake_ups();
  bool connect();
  void disconnect();
  bool plug();

  void take_line(const std::string& line);
  void work_on_commands();
  void finish_command();
  void drop_current();
  Fault take_fault(const std::string& command);
  // answers.cpp
  Answer* find_answer(const std::string& command);
  const Answer* take_answer(const std::string& command);
  void note_set(const std::string& command);
  bool replay(const std::string& path, double speed);
  void replay_command(const std::string& command);
  void finish_reports();
  void forget_reports();
  void report_change(const Reported& before);
  PtyPort& port(Port which) { return ports_[static_cast<std::size_t>(which)]; }
  void write(Port which, const std::string& bytes);
  void send_urc(const std::string& line) { write(Port::kUrc, "\r\n" + line + "\r\n"); }
  void set_chunk(std::size_t bytes);
  void stream_background_trace();
  bool all_written() const;
  static std::string join_lines(const std::string& answer);

  // timeline.cpp
  bool play(const Scenario& scenario, double speed);
  void stop_playing();
  bool played() const;
  void schedule_event(const std::shared_ptr<Play>& play);
  void play_event(const std::shared_ptr<Play>& play, const Event& event);
  void play_storm(const std::shared_ptr<Play>& play, const Event::Storm& storm, int left);
  void tick_net(const std::shared_ptr<Play>& play);
  void show_net_device();

  // Guards running_ and mailbox_.
  std::mutex mutex_;
  bool running_ = false;
  std::vector<std::function<void()>> mailbox_;

  // Guards commands_, each waiter's `ready` and whether a call is done; log_changed_ tells of them.
  std::mutex log_mutex_;
  std::condition_variable log_changed_;
  std::vector<std::string> commands_;

  std::thread thread_;
  std::string root_;
  std::string error_;
  int wake_ = -1;
  int inotify_ = -1;
  std::size_t unplugged_ = 0;  // times
  bool connected_ = false;
  bool quit_ = false;

  std::array<PtyPort, 3> ports_;  // by Port
  std::array<std::size_t, 3> poll_index_{};
  std::array<bool, 3> readable_{};
  std::size_t chunk_ = 0;
  std::multimap<Clock::time_point, std::pair<std::uint64_t, std::function<void()>>> timers_;
  std::uint64_t last_timer_ = 0;
  std::vector<std::shared_ptr<Waiter>> waiters_;
  std::function<void(const Traffic&)> observer_;
  std::function<void(const std::string&)> event_observer_;

  State state_;
  Network last_network_;
  std::vector<Fault> faults_;
  std::vector<Answer> answers_;
  std::map<std::string, std::string> last_sets_;  // by the command's name
  std::string partial_line_;
  std::deque<std::string> queue_;  // lines that wait for the one in work
  std::deque<std::string> parts_;  // the commands of that line that follow the current one
  std::string current_;
  Fault fault_;  // of the current command
  bool busy_ = false;
  bool scanning_ = false;
  std::uint64_t work_timer_ = 0;

  std::optional<Answer> answer_;  // of the current command
  std::shared_ptr<Replay> replay_;
  std::shared_ptr<Play> play_;  // the scenario that is played, or null
  std::uint64_t net_timer_ = 0;
  std::uint64_t trace_rate_ = 0;
};

}  // namespace modemsim

#endif
