// libbrio_module.so.1, loaded at run time as the WAN manager does.
#ifndef BRIOCTL_LIBRARY_H
#define BRIOCTL_LIBRARY_H

#include <string>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "called.h"

namespace brioctl {

// Every function that the library exports.
struct Library {
#define OPERATION(result, name, ...) Called<decltype(&::name)> name;
#include "operations.def"
  const int32_t* sar_mode = nullptr;  // g_pre_sar_mode, to be read atomically
  std::string path;

  // Loads `wanted`, or with "" the library that belongs to this brioctl, or else the system's. Throws
  // Failure.
  void load(const std::string& wanted);
};

}  // namespace brioctl

#endif
