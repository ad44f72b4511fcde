#include "recorder.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

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
  constexpr std::size_t kKept = 50;
  journal_.listen([this](const at_log::Line& line) {
    if (line.port == at_log::Port::kHost) return;
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
  if (file_ != nullptr) fclose(file_);
}

void Recorder::write_to(const std::string& path) {
  path_ = path;
  file_ = fopen(path.c_str(), "we");
  if (file_ == nullptr) throw Failure(path + " cannot be written: " + std::strerror(errno) + ".");
  fprintf(file_,
          "# AT log of brioctl " BRIO_VERSION ": UTC, ms, port, --> to the modem or <-- from it, line\n");
  journal_.listen([this](const at_log::Line& line) {
    fprintf(file_, "%s\n", at_log::format(line).c_str());
    if (fflush(file_) != 0) failed_ = true;
    lines_++;
  });
}

void Recorder::show() {
  journal_.listen([](const at_log::Line& line) {
    static constexpr const char* kPorts[] = {"query", "urc  ", "host "};
    fprintf(stderr, "%s %s %s %s\n", time_of_day(line.wall_ms).c_str(), kPorts[static_cast<int>(line.port)],
            line.to_modem ? "-->" : "<--", printable(line.text).c_str());
  });
}

void Recorder::finish() {
  journal_.finish();
  if (file_ == nullptr) return;
  const bool bad = ferror(file_) != 0;
  if (fclose(file_) != 0 || bad) {
    file_ = nullptr;
    throw Failure(path_ + " could not be written whole: " + std::strerror(errno) + ".");
  }
  file_ = nullptr;
}

}  // namespace brioctl
