#include "ports.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "report.h"

namespace brioctl {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
  std::error_code failed;
  dir_ = (fs::temp_directory_path(failed) / "brioctl_XXXXXX").string();
  if (failed || mkdtemp(dir_.data()) == nullptr) {
    throw Failure("A temporary folder cannot be made (TMPDIR, else /tmp): " +
                  (failed ? failed.message() : std::strerror(errno)) + ".");
  }
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(dir_, ignored);  // links are removed, not what they lead to
}

LinkedRoot::LinkedRoot(const std::string& root, const PortPaths& ports) {
  try {
    const fs::path whole = root.empty() ? "/" : fs::absolute(root);
    for (const fs::directory_entry& entry : fs::directory_iterator(whole)) {
      const fs::path name = entry.path().filename();
      if (name != "dev") fs::create_symlink(entry.path(), fs::path(dir()) / name);
    }
    const fs::path dev = fs::path(dir()) / "dev";
    fs::create_directory(dev);
    fs::create_symlink(fs::absolute(ports.trace), dev / "ttyACM1");
    fs::create_symlink(fs::absolute(ports.query), dev / "ttyACM2");
    fs::create_symlink(fs::absolute(ports.urc), dev / "ttyACM3");
  } catch (const fs::filesystem_error& problem) {
    throw Failure(std::string("The ports cannot be placed: ") + problem.what());
  }
}

}  // namespace brioctl
