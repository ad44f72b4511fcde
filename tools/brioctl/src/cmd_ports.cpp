// brioctl ports: the serial ports that may be a modem's.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "errors.h"
#include "holders.h"
#include "output.h"
#include "printable.h"
#include "text.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

struct Found {
  std::string path, role, interface, device, holder;
};

std::string line_of(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// What the kernel tells of a USB serial port: its interface's number and name, the device's numbers and name.
void describe(Found& port) {
  std::error_code failed;
  const fs::path tty = fs::canonical(port.path, failed).filename();
  const fs::path interface = fs::canonical("/sys/class/tty" / tty / "device", failed);
  if (failed) return;
  const std::string number = line_of(interface / "bInterfaceNumber");
  if (number.empty()) return;
  port.interface = number + " " + line_of(interface / "interface");
  const fs::path device = interface.parent_path();
  port.device =
      line_of(device / "idVendor") + ":" + line_of(device / "idProduct") + " " + line_of(device / "product");
}

std::string or_dash(const std::string& text) {
  const std::string shown = printable(text.substr(0, text.find_last_not_of(' ') + 1));
  return shown.empty() ? "-" : shown;
}

}  // namespace

int run_ports(const Options& options) {
  const auto session = options.simulate ? std::make_unique<Session>(options) : nullptr;
  const std::string root = session ? session->host_path("") : options.root;
  const PortPaths used = device_ports(options, root);
  std::vector<Found> ports;
  std::error_code failed;
  for (const fs::directory_entry& entry : fs::directory_iterator(root + "/dev", failed)) {
    const std::string name = entry.path().filename();
    // A tap in the port's place sets the port aside as NAME.tapped.
    const bool serial = starts(name, "ttyACM") || starts(name, "ttyUSB");
    if (!serial || entry.path().has_extension()) continue;
    Found port;
    port.path = entry.path();
    if (!entry.exists() || tap_was_killed(port.path)) {  // a link to nothing
      fprintf(stderr, "brioctl: %s: %s.\n", printable(port.path).c_str(),
              printable(open_problem(ENOENT, port.path)).c_str());
      continue;
    }
    port.role = port.path == used.query   ? "query"
                : port.path == used.urc   ? "URC"
                : port.path == used.trace ? "trace"
                                          : "";
    describe(port);
    for (const Holder& holder : holders({port.path})) {
      port.holder +=
          (port.holder.empty() ? "" : ", ") + holder.name + " (pid " + std::to_string(holder.pid) + ")";
    }
    ports.push_back(port);
  }
  if (failed) throw Failure(root + "/dev cannot be read: " + failed.message() + ".");
  std::sort(ports.begin(), ports.end(), [](const Found& a, const Found& b) { return a.path < b.path; });
  auto& list = output::result()["ports"] = nlohmann::ordered_json::array();
  for (const Found& port : ports) {
    list.push_back({{"port", port.path},
                    {"used_as", port.role},
                    {"interface", port.interface},
                    {"device", port.device},
                    {"held_by", port.holder}});
  }
  if (ports.empty()) {
    throw Failure("There is no ttyACM or ttyUSB port in " + root +
                  "/dev. Is the modem plugged in and switched on? dmesg shows what the kernel saw.");
  }
  if (output::json()) return 0;
  const auto longest = std::max_element(ports.begin(), ports.end(), [](const Found& a, const Found& b) {
    return a.path.size() < b.path.size();
  });
  const int width = static_cast<int>(longest->path.size());
  printf("%-*s %-8s %-28s %-40s %s\n", width, "Port", "Used as", "Interface", "Device", "Held by");
  for (const Found& port : ports) {
    printf("%-*s %-8s %-28s %-40s %s\n", width, printable(port.path).c_str(), or_dash(port.role).c_str(),
           or_dash(port.interface).c_str(), or_dash(port.device).c_str(), or_dash(port.holder).c_str());
  }
  return 0;
}

}  // namespace brioctl
