// A temporary root directory with a device's folders, and the library on it.
#ifndef FUZZ_ROOT_H
#define FUZZ_ROOT_H

#include <filesystem>

#include "fuzz.h"
#include "modemsim/device_root.h"

namespace fuzz {

struct Root : modemsim::DeviceRoot {
  Root() {
    rest_sensor();
    brio_set_root_dir(dir().c_str());
  }

  // One of the files that the library reads from the input; an empty one is removed.
  void take_file(Input& in) {
    const char* const path = kFiles[in.byte() % std::size(kFiles)];
    const std::string_view content = in.field('|');
    files_left_ = true;
    content.empty() ? remove(path) : write(path, std::string(content));
  }
  void remove_files() {
    if (!std::exchange(files_left_, false)) return;
    for (const char* path : kFiles) remove(path);
    for (const auto& trace : std::filesystem::directory_iterator(dir() + "/mnt/us"))
      std::filesystem::remove(trace);
    rest_sensor();
  }

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
};

}  // namespace fuzz

#endif
