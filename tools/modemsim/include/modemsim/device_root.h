// A temporary folder used as a device's "/".
#ifndef MODEMSIM_DEVICE_ROOT_H
#define MODEMSIM_DEVICE_ROOT_H

#include <optional>
#include <string>

namespace modemsim {

// Made with the folders of a device: /dev, /var/local/wan/debug, /var/run, /mnt/us, /proc/net and the
// proximity sensor's sysfs folder. Removed at the end with everything in it and beside it (the library writes
// there when a trace has an empty prefix). Paths are the device's ("/var/run/mcsdwc.dat"). What cannot be
// made, written or removed throws std::filesystem::filesystem_error.
class DeviceRoot {
 public:
  explicit DeviceRoot(const std::string& name = "brio_root");  // begins so, below the temporary folder
  ~DeviceRoot();
  DeviceRoot(const DeviceRoot&) = delete;
  DeviceRoot& operator=(const DeviceRoot&) = delete;

  const std::string& dir() const { return dir_; }
  // The place of a device path in this file system. One that does not begin with "/" or holds ".." throws
  // std::invalid_argument: nothing outside the folder is touched.
  std::string path(const std::string& device_path) const;

  // Writes a file; folders on the way are made.
  void write(const std::string& device_path, const std::string& content) const;
  std::optional<std::string> read(const std::string& device_path) const;  // nothing when it cannot be opened
  // Removes a file, or a folder with everything in it.
  void remove(const std::string& device_path) const;
  void make_directory(const std::string& device_path) const;
  // The proximity sensor's entries, all 0; an entry ("prox_diff") as the driver shows it.
  void rest_sensor() const;
  void sensor(const std::string& entry, unsigned value) const;

 private:
  std::string top_, dir_;  // the temporary folder, the device's in it
};

}  // namespace modemsim

#endif
