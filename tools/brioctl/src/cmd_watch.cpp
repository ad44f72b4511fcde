// brioctl watch: one thread drives the modem and comes back to it, the other shows.
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "commands.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "quiet_thread.h"
#include "recorder.h"
#include "text.h"
#include "watch_layout.h"
#include "watch_screen.h"

namespace brioctl {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double kLook = 0.2;        // seconds between looks whether the modem is there
constexpr double kFirstWait = 0.5;   // before the modem is opened again
constexpr double kLongestWait = 30;  // it doubles with each failure up to this
constexpr int kAnswerWithin = 5;     // seconds

std::int64_t monotonic_ms() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
}

// The modem's host. All of the library runs on its thread.
class Host {
 public:
  Host(const Options& options, double every);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Runs `look` with the model, which the other thread does not touch meanwhile.
  template <typename Look>
  auto with_model(const Look& look) {
    const std::lock_guard<std::mutex> guard(mutex_);
    return look(model_);
  }
  int news() const { return news_; }  // readable when there is something new
  bool ended() const { return ended_; }
  void end();
  const std::string& failure() const { return failure_; }  // why it never began, once ended

 private:
  void run();
  void follow();
  bool open(bool again);
  void ask_signal();
  watch::Reading read();
  void take_events();
  bool wait(double seconds);
  bool lost();
  template <typename Change>
  void change(const Change& change);

  Session session_;
  double every_;
  std::mutex mutex_;  // guards model_ and ending_; below the journal's
  watch::Model model_;
  bool ending_ = false;
  std::condition_variable end_;
  std::atomic<bool> moved_{false};  // a report says that the registration changed
  std::atomic<bool> ended_{false};
  std::string failure_;
  int news_;
  std::thread thread_;
};

Host::Host(const Options& options, double every)
    : session_(options), every_(every), news_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  model_.modem = session_.modem_name();
  model_.every = every;
  model_.seconds_per_column = every;
  session_.recorder().journal()->listen([this](const at_log::Line& line) {
    change([&](watch::Model& model) { model.line(line, monotonic_ms()); });
    const bool report = line.port == at_log::Port::kUrc && !line.to_modem;
    if (report && starts(line.text, "+C") && line.text.find("REG: ") < 6) moved_ = true;  // of any domain
  });
  thread_ = quiet_thread([this] { run(); });
}

Host::~Host() {
  end();
  close(news_);
}

void Host::end() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ending_ = true;
  }
  end_.notify_all();
  if (thread_.joinable()) thread_.join();
}

template <typename Change>
void Host::change(const Change& change) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    change(model_);
  }
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(news_, &one, sizeof one);
}

// False when it is to end.
bool Host::wait(double seconds) {
  std::unique_lock<std::mutex> lock(mutex_);
  end_.wait_for(lock, Seconds(seconds), [this] { return ending_; });
  return !ending_;
}

bool Host::lost() {
  return session_.modem_gone() || session_.lib.brio_log_startup_status.function() == BRIO_STATUS_FATAL;
}

void Host::run() {
  try {
    bool open = this->open(false);
    if (!open && interrupted() == 0) failure_ = "The modem was not there all the time: " + model_.problem;
    log_sink::take_events();
    while (open) {
      change([](watch::Model& model) { model.opened(wall_clock_ms()); });
      follow();
      if (!wait(0)) break;
      change([](watch::Model& model) { model.gone(wall_clock_ms()); });
      open = this->open(true);
    }
    session_.close();
  } catch (const std::exception& problem) {
    failure_ = problem.what();
  }
  ended_ = true;
  change([](watch::Model&) {});
}

// Until the modem goes or the end.
void Host::follow() {
  auto next = Clock::now(), next_state = next;
  while (!lost()) {
    take_events();
    const auto now = Clock::now();
    if (now >= next) {
      uint32_t bars = 0;
      session_.lib.wabs_get_bars(&bars);  // keeps what the library holds current
      if (moved_.exchange(false) || now >= next_state) {
        session_.lib.briolib_get_gtscinfo();
        next_state = now + std::chrono::duration_cast<Clock::duration>(Seconds(watch::kStateEvery));
      }
      ask_signal();
      if (lost()) return;
      take_events();
      change([this](watch::Model& model) { model.read(read(), monotonic_ms(), wall_clock_ms()); });
      next += std::chrono::duration_cast<Clock::duration>(Seconds(every_));
      next = std::max(next, Clock::now());  // what a silent modem missed is not made up for
    }
    if (!wait(std::clamp(Seconds(next - Clock::now()).count(), 0.0, kLook))) return;
  }
}

// The answer comes by the journal.
void Host::ask_signal() {
  constexpr char kCommand[] = "AT+GTBARS?";
  const uint32_t status = session_.lib.blpkt_atcmd_request_with_callback_timeout.function(
      kCommand, SINGLELINE, "+GTBARS", nullptr, nullptr, 0, kAnswerWithin);
  std::string problem;
  if (status == BLPKT_STATUS_TIMEOUT) {
    problem = std::string("it does not answer ") + kCommand;
  } else if (status != BLPKT_STATUS_SUCCESS) {
    problem = std::string(kCommand) + " failed";
    if (const std::string refusal = log_sink::last_failed().refusal; !refusal.empty()) {
      problem += ": " + refusal;
    }
  }
  const std::lock_guard<std::mutex> guard(mutex_);
  model_.problem = problem;
}

watch::Reading Host::read() {
  atcmd_snapshot snapshot{};
  watch::Reading reading;
  const int32_t sar = __atomic_load_n(session_.lib.sar_mode, __ATOMIC_RELAXED);
  reading.sar = sar >= BRIO_SAR_OFF && sar <= BRIO_SAR_INIT ? sar : -1;
  if (session_.lib.briolib_get_atcmd_snapshot.function(&snapshot, 1) != BRIO_STATUS_OK) return reading;
  reading.cs = snapshot.cs_reg_status;
  reading.ps = snapshot.ps_reg_status;
  if (snapshot.rat != 0xFF) reading.rat = snapshot.rat;
  const std::string mcc(snapshot.mcc, strnlen(snapshot.mcc, sizeof snapshot.mcc));
  const std::string mnc(snapshot.mnc, strnlen(snapshot.mnc, sizeof snapshot.mnc));
  if (mcc != BRIO_PLMN_UNKNOWN) reading.plmn = mcc + "-" + mnc;
  if (snapshot.cell_id != 0xFFFFFFFF) reading.cell = snapshot.cell_id;
  const bool lte = reading.rat == watch::kRatLte;
  if (lte) reading.tac = snapshot.tac;
  if (!lte && snapshot.lac != 0xFFFF) reading.lac = snapshot.lac;
  const std::string band(snapshot.band_text, strnlen(snapshot.band_text, sizeof snapshot.band_text));
  if (band != "BAND_NONE") {
    reading.band = band;
    if (snapshot.arfcn != 0) reading.channel = snapshot.arfcn;
  }
  return reading;
}

// The reports come by the journal, as they are.
void Host::take_events() {
  for (const std::string& text : log_sink::take_events()) {
    constexpr char kEvent[] = "event   ";
    if (text.rfind(kEvent, 0) != 0) continue;
    change([&](watch::Model& model) { model.event(text.substr(sizeof kEvent - 1), wall_clock_ms()); });
  }
}

// Waits for the modem as long as it takes; false when it is to end instead. The first time other failures
// than the modem's own are thrown.
bool Host::open(bool again) {
  const auto because = [&](const std::string& problem) {
    change([&](watch::Model& model) {
      if (!again && model.problem != problem) model.waits(problem, wall_clock_ms());
      model.problem = problem;
    });
  };
  for (double pause = again ? kFirstWait : 0, next = kFirstWait;; pause = next) {
    session_.disconnect();
    if (!wait(pause)) return false;
    const PortPaths ports = session_.ports();
    const bool query = access(ports.query.c_str(), F_OK) == 0;
    if (!query || access(ports.urc.c_str(), F_OK) != 0) {
      because("waiting for " + (query ? ports.urc : ports.query));
      next = kFirstWait;
      continue;
    }
    if (again) because("being opened again");
    std::string reason;
    try {
      session_.open_module();
      return true;
    } catch (const NotOpened& failure) {
      reason = failure.what();
    } catch (const Failure& failure) {
      if (!again && access(ports.query.c_str(), F_OK) == 0) throw;
      reason = failure.what();
    }
    next = std::min(2 * next, kLongestWait);
    because(reason.substr(0, reason.find('\n')));
  }
}

void show_screen(Host& host, double seconds) {
  constexpr double kColumns[] = {1, 2, 5, 10, 30, 60};  // seconds of the graph a column, times --every
  constexpr int kRefresh = 200;                         // ms
  watch::Terminal terminal;
  std::size_t zoom = 0;
  const auto until = Clock::now() + Seconds(seconds);
  while (!host.ended() && interrupted() == 0 && (seconds < 0 || Clock::now() < until)) {
    terminal.draw(host.with_model([&](watch::Model& model) {
      model.news.clear();
      model.seconds_per_column = model.every * kColumns[zoom];
      return watch::layout(model, terminal.width(), terminal.height(), monotonic_ms(), wall_clock_ms(),
                           terminal.ascii());
    }));
    const int key = terminal.key(kRefresh);
    if (key == 'q' || key == 'Q') return;
    if (key == '+' && zoom + 1 < std::size(kColumns)) zoom++;
    if (key == '-' && zoom > 0) zoom--;
  }
}

void print(const std::string& line) {
  printf("%s\n", line.c_str());
}

void print_lines(Host& host, double seconds, WatchFormat format) {
  const auto until = Clock::now() + Seconds(seconds);
  std::size_t lost = 0;
  if (format == WatchFormat::kCsv) print(watch::csv_heading());
  for (bool more = true; more;) {
    const double left = seconds < 0 ? 3600 : Seconds(until - Clock::now()).count();
    more = !host.ended() && left > 0 && pause_for(left, host.news());
    std::uint64_t ignored = 0;
    [[maybe_unused]] const ssize_t got = ::read(host.news(), &ignored, sizeof ignored);
    const auto news = host.with_model([&](watch::Model& model) {
      lost = model.lost;
      std::deque<watch::Record> taken;
      taken.swap(model.news);
      return taken;
    });
    for (const watch::Record& record : news) {
      if (format == WatchFormat::kJson) {
        output::result() = watch::as_json(record);
        output::line();
      } else {
        print(format == WatchFormat::kCsv ? watch::as_csv(record) : watch::as_line(record));
      }
    }
    output::flush();
  }
  if (lost > 0) fprintf(stderr, "brioctl: %zu lines were dropped: the output was read too slowly.\n", lost);
}

}  // namespace

int run_watch(const Options& options, double every, double seconds, WatchFormat format) {
  // -v writes to the same terminal.
  const bool screen = format == WatchFormat::kScreen && watch::screen_possible() &&
                      (options.verbose == 0 || isatty(STDERR_FILENO) == 0);
  Host host(options, every);
  if (screen) {
    show_screen(host, seconds);
  } else {
    print_lines(host, seconds, format);
  }
  host.end();
  if (!host.failure().empty()) throw Failure(host.failure());
  return 0;
}

}  // namespace brioctl
