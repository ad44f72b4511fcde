#include "relay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "errors.h"
#include "quiet_thread.h"
#include "report.h"

namespace brioctl {
namespace {

// For a modem that has stopped reading; more is not taken from the host.
constexpr std::size_t kMaxWaiting = 65536;
// For a host that has stopped reading; the rest is lost, as in a port that nobody reads.
constexpr std::size_t kHostRoom = 1 << 20;
constexpr int kLastReads = 1000;

void wake(int event) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t count = write(event, &one, sizeof one);
}

}  // namespace

Relay::Relay(const std::string& query_port, const std::string& urc_port, at_log::Journal* journal)
    : journal_(journal) {
  ways_[1].port = at_log::Port::kUrc;
  try {
    inotify_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (inotify_ < 0 || wake_ < 0) {
      throw Failure(std::string("The AT log cannot be taken: ") + std::strerror(errno) + ".");
    }
    open_modem(ways_[0], query_port);
    open_modem(ways_[1], urc_port);
    for (Way& way : ways_) {
      const std::string problem = way.host.create(inotify_);
      if (!problem.empty()) throw Failure("The AT log cannot be taken: " + problem + ".");
      way.host.set_room(kHostRoom);
    }
  } catch (const Failure&) {
    close_all();
    throw;
  }
  query_device_ = ways_[0].host.device();
  urc_device_ = ways_[1].host.device();
  thread_ = quiet_thread([this] { run(); });
}

Relay::~Relay() {
  end_ = true;
  wake(wake_);
  thread_.join();
  close_all();
}

void Relay::close_all() {
  for (Way& way : ways_) {
    if (way.modem >= 0) close(way.modem);
    way.host.close();
  }
  for (const int fd : {inotify_, wake_}) {
    if (fd >= 0) close(fd);
  }
}

void Relay::open_modem(Way& way, const std::string& path) {
  way.modem = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (way.modem < 0) throw Failure(path + ": " + open_problem(errno, path) + ".");
  termios settings{};
  if (tcgetattr(way.modem, &settings) != 0) throw Failure(path + " is no serial port.");
  cfmakeraw(&settings);
  settings.c_cflag |= CLOCAL | CREAD;
  settings.c_cc[VMIN] = 1;  // a read of no bytes is a hang-up then
  settings.c_cc[VTIME] = 0;
  cfsetispeed(&settings, B921600);
  cfsetospeed(&settings, B921600);
  tcsetattr(way.modem, TCSANOW, &settings);
}

void Relay::run() {
  for (;;) {
    std::array<pollfd, 7> items{};
    std::size_t count = 0;
    items[count++] = {wake_, POLLIN, 0};
    items[count++] = {inotify_, POLLIN, 0};
    std::array<std::size_t, 2> modem_item{}, host_item{};
    for (std::size_t i = 0; i < ways_.size(); i++) {
      Way& way = ways_[i];
      if (way.modem >= 0) {
        modem_item[i] = count;
        items[count++] = {way.modem, static_cast<short>(POLLIN | (way.waiting.empty() ? 0 : POLLOUT)), 0};
      }
      if (way.host.is_open()) {
        host_item[i] = count;
        const bool room = way.waiting.size() < kMaxWaiting;
        items[count++] = {way.host.fd(),
                          static_cast<short>((room ? POLLIN : 0) | (way.host.blocked() ? POLLOUT : 0)), 0};
      }
    }
    const int heed = heed_signals();
    items[count++] = {signal_event(), POLLIN, 0};
    const int tick = journal_->tick();
    poll(items.data(), count, heed < 0 || (tick >= 0 && tick < heed) ? tick : heed);
    std::uint64_t ignored = 0;
    for (const int event : {wake_, signal_event()}) {
      [[maybe_unused]] const ssize_t got = read(event, &ignored, sizeof ignored);
    }
    look_who_opened();
    if (end_) return pass_the_rest();  // after the wake-up was taken, so that none is lost
    for (std::size_t i = 0; i < ways_.size(); i++) {
      Way& way = ways_[i];
      const auto ready = [&](std::size_t item) {
        return item != 0 && (items[item].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
      };
      if (ready(host_item[i]) && way.host.is_open()) from_host(way);
      if (ready(modem_item[i]) && way.modem >= 0) from_modem(way);
      to_modem(way);
      if (way.host.is_open()) way.host.flush();
    }
  }
}

// What was said before the end belongs to the log, and to whom it was said.
void Relay::pass_the_rest() {
  bool more = true;
  for (int i = 0; i < kLastReads && more; i++) {
    more = false;
    for (Way& way : ways_) {
      if (way.host.is_open() && way.waiting.size() < kMaxWaiting && from_host(way)) more = true;
      if (way.modem >= 0 && from_modem(way)) more = true;
      to_modem(way);
      if (way.host.is_open()) way.host.flush();
    }
  }
  for (Way& way : ways_) {
    tell_lost(way);
    if (way.waiting.empty()) continue;
    journal_->remark(std::to_string(way.waiting.size()) +
                     " bytes for the modem are lost: it did not take them");
  }
}

void Relay::tell_lost(Way& way) {
  if (way.lost == 0) return;
  journal_->remark(std::to_string(way.lost) +
                   " bytes of the modem did not reach the host, which did not read " +
                   (way.port == at_log::Port::kUrc ? "its URC port" : "its query port"));
  way.lost = 0;
}

void Relay::arm(int signals) {
  armed_ = signals;
  wake(wake_);
}

// How long until the next step, in ms; -1 for none.
int Relay::heed_signals() {
  using namespace std::chrono;
  constexpr milliseconds kGrace(500), kStuck(2500);
  const auto now = steady_clock::now();
  if (armed_ == 0 || interrupted() < armed_) {
    signalled_ = {};
    return -1;
  }
  if (signalled_ == steady_clock::time_point()) signalled_ = now;
  const auto passed = duration_cast<milliseconds>(now - signalled_);
  if (passed < kGrace) return static_cast<int>((kGrace - passed).count());
  if (!gone_) hang_up();
  if (passed >= kStuck && stuck_) stuck_();
  return static_cast<int>(std::max(kStuck - passed, milliseconds(1)).count());
}

void Relay::look_who_opened() {
  alignas(inotify_event) char buffer[1024];
  for (;;) {
    const ssize_t size = read(inotify_, buffer, sizeof buffer);
    if (size <= 0) return;
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, buffer + at, sizeof event);
      at += static_cast<ssize_t>(sizeof event + event.len);
      for (Way& way : ways_) {
        if (event.wd != way.host.watch()) continue;
        if ((event.mask & IN_OPEN) != 0) way.host.device_opened();
        if ((event.mask & IN_CLOSE) != 0) way.host.device_closed();
      }
    }
  }
}

bool Relay::from_modem(Way& way) {
  char bytes[4096];
  const ssize_t size = read(way.modem, bytes, sizeof bytes);
  if (size > 0) {
    journal_->bytes(way.port, false, bytes, static_cast<std::size_t>(size));
    const bool pending = way.host.pending();
    const bool room = way.host.queue(std::string(bytes, static_cast<std::size_t>(size)));
    if (room && !pending) tell_lost(way);
    if (!room && way.host.is_open()) way.lost += static_cast<std::size_t>(size);
  } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
    journal_->hung_up();
    hang_up();
  }
  return size > 0;
}

bool Relay::from_host(Way& way) {
  char bytes[4096];
  const std::size_t size = way.host.read(bytes, sizeof bytes);
  if (size == 0) return false;
  journal_->bytes(way.port, true, bytes, size);
  way.waiting.append(bytes, size);
  return true;
}

void Relay::to_modem(Way& way) {
  if (way.waiting.empty() || way.modem < 0) return;
  const ssize_t size = write(way.modem, way.waiting.data(), way.waiting.size());
  if (size > 0) way.waiting.erase(0, static_cast<std::size_t>(size));
}

// A modem that goes takes both ports with it.
void Relay::hang_up() {
  gone_ = true;  // first, for a host that asks why it was hung up on
  for (Way& way : ways_) {
    if (way.modem >= 0) close(way.modem);
    way.modem = -1;
    way.waiting.clear();
    tell_lost(way);
    way.host.close();
  }
}

}  // namespace brioctl
