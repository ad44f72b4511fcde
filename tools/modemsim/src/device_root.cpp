#include "modemsim/device_root.h"

#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "device_files.h"

namespace fs = std::filesystem;

namespace modemsim {

DeviceRoot::DeviceRoot(const std::string& name)
    : top_((fs::temp_directory_path() / (name + "_XXXXXX")).string()) {
  if (mkdtemp(top_.data()) == nullptr) {
    throw fs::filesystem_error("cannot make a folder", top_, {errno, std::generic_category()});
  }
  dir_ = top_ + "/device";
  for (const char* folder :
       {"/dev", "/var/local/wan/debug", "/var/run", "/mnt/us", "/proc/net", kProxFolder}) {
    make_directory(folder);
  }
}

DeviceRoot::~DeviceRoot() {
  std::error_code ignored;
  fs::remove_all(top_, ignored);
}

std::string DeviceRoot::path(const std::string& device_path) const {
  if (device_path.empty() || device_path[0] != '/' || device_path.find("..") != std::string::npos) {
    throw std::invalid_argument("not a path of the device: '" + device_path + "'");
  }
  return dir_ + device_path;
}

void DeviceRoot::write(const std::string& device_path, const std::string& content) const {
  const fs::path target = path(device_path);
  constexpr auto kMode = std::ios::binary | std::ios::out | std::ios::trunc;
  std::ofstream file(target, kMode);
  if (!file) {
    fs::create_directories(target.parent_path());
    file.open(target, kMode);
  }
  file << content;
  file.close();
  if (!file) throw fs::filesystem_error("cannot write", target, std::make_error_code(std::errc::io_error));
}

std::optional<std::string> DeviceRoot::read(const std::string& device_path) const {
  std::ifstream file(path(device_path), std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void DeviceRoot::remove(const std::string& device_path) const {
  fs::remove_all(path(device_path));
}

void DeviceRoot::make_directory(const std::string& device_path) const {
  fs::create_directories(path(device_path));
}

void DeviceRoot::rest_sensor() const {
  for (const char* entry : {"prox_ctrl0", "sensor_sel", "prox_diff", "prox_avg", "prox_offset", "prox_use"}) {
    sensor(entry, 0);
  }
}

void DeviceRoot::sensor(const std::string& entry, unsigned value) const {
  char text[16];
  snprintf(text, sizeof text, "%x\n", value);
  write(kProxFolder + entry, text);
}

}  // namespace modemsim
