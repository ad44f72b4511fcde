#include "report.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <nlohmann/json.hpp>

#include "brio/wabs.h"
#include "printable.h"

namespace brioctl {
namespace {

int s_pause_event = -1, s_signal_event = -1;
std::atomic<int> s_interrupted{0},
    s_signal{0};  // lock-free, as a signal handler needs; the relay's thread reads them
static_assert(std::atomic<int>::is_always_lock_free);

void on_signal(int number) {
  // A pipe that breaks, or a terminal that closes, must not count as a second wish to end at once.
  if (s_interrupted == 0) s_signal = number;
  if (s_interrupted == 0 || number == SIGINT) s_interrupted = s_interrupted + 1;
  uint64_t one = 1;
  for (const int event : {s_pause_event, s_signal_event}) {
    ssize_t ignored = write(event, &one, sizeof(one));
    (void)ignored;
  }
}

std::string padded(const std::string& text, size_t width) {
  return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

}  // namespace

std::string status_name(uint32_t status) {
  switch (status) {
    case WABS_STATUS_OK:
      return "ok";
    case WABS_STATUS_NOT_OPEN:
      return "not open";
    case WABS_STATUS_LIBRARY_FAILURE:
      return "library failure";
    case WABS_STATUS_ALREADY_OPEN:
      return "already open";
    case WABS_STATUS_BUFFER_TOO_SMALL:
      return "buffer too small";
    case WABS_STATUS_NULL_POINTER:
      return "null pointer";
    case WABS_STATUS_NO_NETWORK_TIME:
      return "no network time";
    case WABS_STATUS_SCAN_RUNNING:
      return "scan running";
    case WABS_STATUS_SCAN_ABORTED:
      return "scan aborted";
    default:
      return "?";
  }
}

std::string library_status_name(uint32_t status) {
  static constexpr const char* kNames[] = {"ok",      "not open", "busy",        "fatal",       "failure",
                                           "timeout", "invalid",  "unavailable", "scan aborted"};
  return status < std::size(kNames) ? kNames[status] : "?";
}

std::string Row::status_text() const {
  return std::to_string(status) + " " + (of_library() ? library_status_name(status) : status_name(status));
}

// 80 columns wide: a row without a unit, or with one value that is long, is not kept to the columns.
std::string render_table(std::vector<Row> rows) {
  constexpr size_t kUsual = 18;
  size_t operation = 9, status = 6, value = 5;
  for (Row& row : rows) {
    row.value = printable(row.value);
    operation = std::max(operation, row.operation.size());
    if (row.status == 0) status = std::max(status, row.status_text().size());
    if (row.value.size() <= kUsual) value = std::max(value, row.value.size());
  }
  auto line = [&](const std::string& a, const std::string& b, const std::string& c, const std::string& d) {
    std::string text = padded(a, operation) + "  " + padded(b, status) + "  " + padded(c, value) + "  " + d;
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
  };
  std::string text = line("Operation", "Status", "Value", "Unit or meaning");
  text +=
      line(std::string(operation, '-'), std::string(status, '-'), std::string(value, '-'), "---------------");
  for (const Row& row : rows) {
    text += line(row.operation, row.status_text(), row.value, row.status == 0 ? row.unit : "");
  }
  return text;
}

nlohmann::ordered_json rows_json(const std::vector<Row>& rows) {
  nlohmann::ordered_json values = nlohmann::ordered_json::object();
  for (const Row& row : rows) {
    nlohmann::ordered_json entry;
    entry["status"] = row.status;
    entry["name"] = row.of_library() ? library_status_name(row.status) : status_name(row.status);
    if (row.value.empty()) {
      entry["value"] = nullptr;
    } else if (row.number) {
      entry["value"] = std::stoll(row.value);
    } else {
      entry["value"] = row.value;
    }
    if (row.status == 0 && !row.unit.empty()) entry["unit"] = row.unit;
    values[row.operation] = entry;
  }
  return values;
}

std::string masked(const std::string& digits, bool show) {
  std::string text = digits;
  if (!show) {
    for (size_t i = 6; i < text.size(); i++) text[i] = '*';
  }
  return text;
}

int interrupted() {
  return s_interrupted;
}

int interrupted_status() {
  return 128 + s_signal;
}

int interrupt_event() {
  return s_pause_event;
}

void forget_interrupt() {
  s_interrupted = 0;
  uint64_t ignored = 0;
  [[maybe_unused]] const ssize_t got = read(s_pause_event, &ignored, sizeof ignored);
}

int signal_event() {
  return s_signal_event;
}

void install_signals() {
  s_pause_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  s_signal_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  struct sigaction action = {};
  action.sa_handler = on_signal;
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT}) sigaction(number, &action, nullptr);
  // Over the limit a write fails then, as on a full disk.
  signal(SIGXFSZ, SIG_IGN);
}

bool pause_for(double seconds, int event) {
  auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (interrupted() == 0) {
    double left = std::chrono::duration<double>(until - std::chrono::steady_clock::now()).count();
    if (left <= 0) return true;
    pollfd items[] = {{s_pause_event, POLLIN, 0}, {event, POLLIN, 0}};
    if (poll(items, 2, static_cast<int>(left * 1000) + 1) > 0 && items[1].revents != 0) {
      return interrupted() == 0;
    }
  }
  return false;
}

}  // namespace brioctl
