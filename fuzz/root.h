// A temporary root directory with a device's folders, and the library on it.
#ifndef FUZZ_ROOT_H
#define FUZZ_ROOT_H

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "brio/brio.h"
#include "fuzz.h"

namespace fuzz {

class Root {
 public:
  Root() : dir_((std::filesystem::temp_directory_path() / "brio_fuzz_XXXXXX").string()) {
    require(mkdtemp(&dir_[0]) != nullptr);
    for (const char* folder : {"/dev", "/var/run", "/mnt/us", "/proc/net", kSensor, "/var/local/wan/debug"}) {
      std::filesystem::create_directories(dir_ + folder);
    }
    rest_sensor();
    brio_set_root_dir(dir_.c_str());
  }
  ~Root() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  const std::string& dir() const { return dir_; }
  void write(const std::string& path, std::string_view content) const {
    std::ofstream(dir_ + path, std::ios::binary | std::ios::trunc) << content;
  }
  void remove(const std::string& path) const { unlink((dir_ + path).c_str()); }

  // One of the files that the library reads from the input; an empty one is removed.
  void take_file(Input& in) {
    const char* const path = kFiles[in.byte() % std::size(kFiles)];
    const std::string_view content = in.field('|');
    files_left_ = true;
    content.empty() ? remove(path) : write(path, content);
  }
  void remove_files() {
    if (!std::exchange(files_left_, false)) return;
    for (const char* path : kFiles) remove(path);
    for (const auto& trace : std::filesystem::directory_iterator(dir_ + "/mnt/us")) {
      unlink(trace.path().c_str());
    }
    rest_sensor();
  }

 private:
  static constexpr char kSensor[] = "/sys/devices/virtual/proximity/proximity0/";
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

  void rest_sensor() const {
    for (const char* entry :
         {"prox_ctrl0", "sensor_sel", "prox_diff", "prox_avg", "prox_offset", "prox_use"}) {
      write(std::string(kSensor) + entry, "0");
    }
  }

  std::string dir_;
  bool files_left_ = false;
};

}  // namespace fuzz

#endif
