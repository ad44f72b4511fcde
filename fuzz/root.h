// A temporary root directory with a device's folders, the library on it, and somebody who plants other things
// in its files' places.
#ifndef FUZZ_ROOT_H
#define FUZZ_ROOT_H

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "clock/test_clock.h"
#include "fuzz.h"
#include "modemsim/device_root.h"

namespace fuzz {

struct Root : modemsim::DeviceRoot {
  Root() {
    rest_sensor();
    setenv("TZ", "UTC", 1);
    brio_set_root_dir(dir().c_str());
  }

  // Traces start at this time.
  static void stop_wall_clock() { test_clock::set_wall(1772874300); }

  // One of the files that the library reads from the input; an empty one is removed. From 0xC0 on, something
  // else in the place of one that it reads or writes.
  void take_file(Input& in) {
    const uint8_t choice = in.byte();
    files_left_ = true;
    if (choice >= 0xC0) return plant(kPlaces[choice % 16 % std::size(kPlaces)], choice / 16 % 4);
    const char* const file = kFiles[choice % std::size(kFiles)];
    place(file, std::string(in.field('|')));
  }

  // Nothing differs from what was written here but what the library writes.
  void check_files() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir())) {
      if (!entry.is_regular_file() || entry.is_symlink()) continue;
      const std::string file = entry.path().string().substr(dir().size());
      if (is_written(file)) continue;
      const auto written = written_.find(file);
      require(written != written_.end() && read(file) == written->second);
    }
  }

  void remove_files() {
    if (!std::exchange(files_left_, false)) return;
    written_.clear();
    for (const char* file : kFiles) remove(file);
    for (const char* file : kPlaces) remove(file);
    remove(kOther);
    for (const auto& trace : std::filesystem::directory_iterator(dir() + "/mnt/us"))
      std::filesystem::remove(trace);
    rest_sensor();
  }

 private:
  void place(const char* file, const std::string& content) {
    remove(file);
    written_.erase(file);
    if (!content.empty()) write(file, written_[file] = content);
  }
  // Of two links to the other file, a pipe and a folder.
  void plant(const char* file, int kind) {
    place(kOther, "AT+TRACE=1\n");
    place(file, "");
    const std::string at = path(file), other = path(kOther);
    if (kind == 0) require(symlink(other.c_str(), at.c_str()) == 0);
    if (kind == 1) require(link(other.c_str(), at.c_str()) == 0), written_[file] = written_[kOther];
    if (kind == 2) require(mkfifo(at.c_str(), 0600) == 0);
    if (kind == 3) make_directory(file);
  }
  static bool is_written(const std::string& file) {
    for (const char* name : {"/var/local/wan/mcc", "/var/local/wan/static_info", "/var/run/fatal_reject",
                             "/mnt/us/trace_log_", "/sys/"})
      if (file.rfind(name, 0) == 0) return true;
    return false;
  }

  static constexpr char kOther[] = "/other";
  static constexpr const char* kPlaces[] = {"/var/local/wan/briolib_log_config",
                                            "/var/run/mcsdwc.dat",
                                            "/var/local/wan/info",
                                            "/mnt/us/apn",
                                            "/var/local/wan/debug/trace_filter.cfg",
                                            "/var/local/wan/mcc",
                                            "/var/local/wan/static_info",
                                            "/var/run/fatal_reject",
                                            "/mnt/us/trace_log_2026_3_7_9_5_0.istp"};
  static constexpr const char* kFiles[] = {"/var/local/wan/briolib_log_config",
                                           "/var/run/mcsdwc.dat",
                                           "/var/local/wan/info",
                                           "/mnt/us/apn",
                                           "/var/local/wan/debug/trace_filter.cfg",
                                           "/var/local/wan/mcc",
                                           "/proc/net/dev",
                                           "/var/local/wan/static_info",
                                           "/sys/devices/virtual/proximity/proximity0/prox_diff",
                                           "/sys/devices/virtual/proximity/proximity0/prox_use"};

  bool files_left_ = false;
  std::map<std::string, std::string> written_;
};

}  // namespace fuzz

#endif
