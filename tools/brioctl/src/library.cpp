#include "library.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <vector>

#include "report.h"

namespace brioctl {
namespace {

std::string program_directory() {
  char path[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  std::string text(path, length > 0 ? static_cast<size_t>(length) : 0);
  return text.substr(0, text.rfind('/'));
}

bool readable(const std::string& path) {
  return access(path.c_str(), R_OK) == 0;
}

// The library needs the device's IPC library. Off the device its stand-in is loaded first: the soname then
// matches.
void load_ipc_library() {
  if (dlopen("libnipc.so.1", RTLD_NOW | RTLD_GLOBAL) != nullptr) return;
  dlopen((program_directory() + "/../" BRIOCTL_LIBDIR "/brio_module/libnipc.so.1").c_str(),
         RTLD_NOW | RTLD_GLOBAL);
}

}  // namespace

void Library::load(const std::string& wanted) {
  std::vector<std::string> candidates;
  if (!wanted.empty()) {
    candidates.push_back(wanted);
  } else {
    const std::string near = program_directory() + "/../" BRIOCTL_LIBDIR "/libbrio_module.so.1";
    if (readable(near)) candidates.push_back(near);
    candidates.push_back("libbrio_module.so.1");
  }
  load_ipc_library();
  void* handle = nullptr;
  std::string reason;
  for (const std::string& candidate : candidates) {
    handle = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle != nullptr) {
      path = candidate;
      break;
    }
    reason = dlerror();
  }
  if (handle == nullptr) {
    throw Failure("The module library cannot be loaded: " + reason +
                  ".\nName it with --library, or install it where the loader looks (ldconfig -p).");
  }
  const auto resolve = [&](const char* name) {
    void* function = dlsym(handle, name);
    if (function == nullptr) {
      throw Failure(path + " does not export " + name +
                    ": it is another version; rebuild it or name it with --library.");
    }
    return function;
  };
#define OPERATION(result, member, ...) \
  member = {reinterpret_cast<decltype(&::member)>(resolve(#member)), #member};
#include "operations.def"
  sar_mode = static_cast<const int32_t*>(resolve("g_pre_sar_mode"));
}

}  // namespace brioctl
