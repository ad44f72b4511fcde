// Files of the device around the modem, below a root folder: what other programs and the kernel would
// provide.
#ifndef MODEMSIM_DEVICE_FILES_H
#define MODEMSIM_DEVICE_FILES_H

#include <string>

#include "modemsim/scenario.h"

namespace modemsim {

// The proximity sensor's entries.
constexpr char kProxFolder[] = "/sys/devices/virtual/proximity/proximity0/";

// Why nothing should be written below `root`, or "": it is a folder of another user or others may write in
// it, or on the way there a folder or link is another user's, or others may replace it (a folder in which
// they may write, without the sticky bit). What is still to be made is fine.
std::string foreign_root(const std::string& root);

// Each returns "" or what went wrong. No link below the root is followed. Files are replaced whole: a reader
// sees the old or the new contents.
std::string make_device_folder(const std::string& root, const std::string& folder);
std::string write_device_file(const std::string& root, const std::string& path, const std::string& contents);
std::string remove_device_file(const std::string& root, const std::string& path);
// The sensor's entries that `prox` names; with `create` also the ones that a driver only takes values in.
std::string write_prox(const std::string& root, const Prox& prox, bool create);
// /proc/net/dev; without `connected` there is no wwan0.
std::string write_net_counters(const std::string& root, const NetCounters& net, bool connected);

}  // namespace modemsim

#endif
