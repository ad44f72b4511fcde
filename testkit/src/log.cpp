#include "kit/log.h"

#include <stdarg.h>
#include <stdio.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "kit/process.h"

namespace {

std::mutex s_mutex;  // guards all of these
std::condition_variable s_changed;
std::vector<log_capture::Line> s_lines;
std::string s_hooked;  // part of the line on which s_hook runs
std::function<void()> s_hook;

std::atomic<void (*)(const char*)> s_taker{nullptr};

size_t count_locked(const std::string& part) {
  size_t found = 0;
  for (const auto& line : s_lines) found += line.text.find(part) != std::string::npos;
  return found;
}

void capture(int priority, const char* format, va_list arguments) {
  if (const auto taker = s_taker.load(std::memory_order_relaxed)) {
    char line[2048];
    vsnprintf(line, sizeof line, format, arguments);
    return taker(line);
  }
  va_list copy;
  va_copy(copy, arguments);
  int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(length > 0 ? static_cast<size_t>(length) + 1 : 1, '\0');
  vsnprintf(&text[0], text.size(), format, arguments);
  text.pop_back();
  std::function<void()> hook;
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    if (s_hook && text.find(s_hooked) != std::string::npos) hook.swap(s_hook);
    s_lines.push_back({priority, std::move(text), std::this_thread::get_id()});
    s_changed.notify_all();
  }
  if (hook) hook();
}

}  // namespace

extern "C" {

void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  capture(priority, format, arguments);
  va_end(arguments);
}

void vsyslog(int priority, const char* format, va_list arguments) {
  capture(priority, format, arguments);
}

void __syslog_chk(int priority, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  capture(priority, format, arguments);
  va_end(arguments);
}

void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
  capture(priority, format, arguments);
}

}  // extern "C"

namespace log_capture {

void hand_to(void (*taker)(const char*)) {
  s_taker.store(taker, std::memory_order_relaxed);
}

void clear() {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_lines.clear();
}

std::vector<Line> lines() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_lines;
}

std::vector<Line> take() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return std::exchange(s_lines, {});
}

bool has(const std::string& part) {
  std::lock_guard<std::mutex> lock(s_mutex);
  return count_locked(part) > 0;
}

void on_line(const std::string& part, std::function<void()> hook) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_hooked = part;
  s_hook = std::move(hook);
}

bool wait_for(const std::string& part, size_t times) {
  std::unique_lock<std::mutex> lock(s_mutex);
  return s_changed.wait_for(lock, process::g_patience, [&] { return count_locked(part) >= times; });
}

}  // namespace log_capture
