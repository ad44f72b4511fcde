#include "recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "printable.h"
#include "report.h"

namespace brioctl {

std::string time_of_day(std::int64_t wall_ms) {
  const std::time_t seconds = wall_ms / 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  char whole[40];
  std::snprintf(whole, sizeof whole, "%s.%03d", text, static_cast<int>(wall_ms % 1000));
  return whole;
}

std::int64_t wall_clock_ms() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

Recorder::Recorder(bool identities) : journal_(identities) {
  journal_.listen_remarks(
      [](const std::string& text) { terminal().put("brioctl: " + printable(text) + "\n"); });
  constexpr std::size_t kKept = 50;
  journal_.listen([this](const at_log::Line& line) {
    if (line.port == at_log::Port::kHost || line.port == at_log::Port::kModem) return;
    const std::lock_guard<std::mutex> guard(last_mutex_);
    last_.push_back(line);
    if (last_.size() > kKept) last_.pop_front();
  });
}

std::vector<at_log::Line> Recorder::last(std::size_t count) {
  const std::lock_guard<std::mutex> guard(last_mutex_);
  const std::size_t from = last_.size() > count ? last_.size() - count : 0;
  return {last_.begin() + static_cast<std::ptrdiff_t>(from), last_.end()};
}

Recorder::~Recorder() {
  log_.reset();
  if (file_ >= 0) close(file_);
}

void Recorder::check_place(const std::string& path, bool force) {
  // A recording that was refused before its first line is no recording.
  std::error_code failed;
  if (force || !std::filesystem::is_regular_file(path, failed)) return;
  std::ifstream old(path);
  for (std::string line; std::getline(old, line);) {
    if (!line.empty() && line[0] != '#') throw Failure(path + " exists; --force replaces it.");
  }
}

void Recorder::write_to(const std::string& path) {
  path_ = path;
  file_ = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file_ < 0) throw Failure(path + " cannot be written: " + std::strerror(errno) + ".");
  log_ = std::make_unique<Outlet>(file_);
  log_->put("# AT log of brioctl " BRIO_VERSION ": UTC, ms, port, --> to the modem or <-- from it, line\n");
  journal_.listen_remarks([this](const std::string& text) { log_->put("# " + printable(text) + "\n"); });
  journal_.listen([this](const at_log::Line& line) {
    log_->put(at_log::format(line) + "\n");
    lines_++;
  });
}

void Recorder::show() {
  journal_.listen([](const at_log::Line& line) {
    static constexpr const char* kPorts[] = {"query", "urc  ", "host ", "modem"};
    terminal().put(time_of_day(line.wall_ms) + " " + kPorts[static_cast<int>(line.port)] +
                   (line.to_modem ? " --> " : " <-- ") + printable(line.text) + "\n");
  });
}

void Recorder::finish() {
  journal_.finish();
  terminal().finish();
  if (file_ < 0) return;
  int error = log_->finish();
  if (close(file_) != 0 && error == 0) error = errno;
  file_ = -1;
  if (error != 0) throw Failure(path_ + " could not be written whole: " + std::strerror(error) + ".");
}

}  // namespace brioctl
