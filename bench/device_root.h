// A temporary folder that stands for a device's "/", with what a device has there. Removed at the end.
#ifndef BENCH_DEVICE_ROOT_H
#define BENCH_DEVICE_ROOT_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace bench {

class DeviceRoot {
 public:
  DeviceRoot() {
    char name[] = "/tmp/bench-XXXXXX";
    if (mkdtemp(name) == nullptr) abort();
    dir_ = name;
    for (const char* folder : {"/dev", "/var/local/wan/debug", "/var/run", "/mnt/us", "/proc/net"}) {
      std::filesystem::create_directories(dir_ + folder);
    }
    for (const char* entry :
         {"prox_ctrl0", "sensor_sel", "prox_diff", "prox_avg", "prox_offset", "prox_use"}) {
      sensor(entry, 0);
    }
  }
  ~DeviceRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  DeviceRoot(const DeviceRoot&) = delete;
  DeviceRoot& operator=(const DeviceRoot&) = delete;

  const std::string& dir() const { return dir_; }
  void write(const std::string& path, const std::string& text) const {
    std::filesystem::create_directories(std::filesystem::path(dir_ + path).parent_path());
    std::ofstream(dir_ + path, std::ios::binary | std::ios::trunc) << text;
  }
  std::string read(const std::string& path) const {
    std::ostringstream text;
    text << std::ifstream(dir_ + path, std::ios::binary).rdbuf();
    return text.str();
  }
  // An entry of the proximity sensor.
  void sensor(const std::string& entry, int value) const {
    char text[16];
    snprintf(text, sizeof(text), "%x\n", static_cast<unsigned>(value));
    write("/sys/devices/virtual/proximity/proximity0/" + entry, text);
  }

 private:
  std::string dir_;
};

}  // namespace bench

#endif
