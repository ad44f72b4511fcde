// What this process holds: figures that must be the same before and after a test.
#ifndef KIT_PROCESS_H
#define KIT_PROCESS_H

#include <dirent.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <thread>

// Of a program built with a sanitizer, whose allocator mallinfo2 does not know.
extern "C" size_t __sanitizer_get_current_allocated_bytes(void) __attribute__((weak));

namespace process {

inline long entries(const char* directory) {
  long count = 0;
  DIR* dir = opendir(directory);
  while (dir != nullptr && readdir(dir) != nullptr) count++;
  if (dir != nullptr) closedir(dir);
  return count - 2;  // "." and ".."
}

inline long descriptors() {
  return entries("/proc/self/fd") - 1;  // the directory itself
}

inline long threads() {
  return entries("/proc/self/task");
}

// Whether a thread of this process does nothing.
inline bool waits(pid_t thread) {
  char path[64], state = 0;
  snprintf(path, sizeof path, "/proc/self/task/%d/stat", thread);
  FILE* stat = fopen(path, "re");
  if (stat == nullptr || fscanf(stat, "%*[^)]) %c", &state) != 1) state = 0;
  if (stat != nullptr) fclose(stat);
  return state == 'S';
}

// How long a wait lasts at most.
inline std::chrono::milliseconds g_patience{10000};

// Checks every millisecond whether `condition` holds; false when that takes longer than g_patience.
template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + g_patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Waits until no more than `most` are left: a joined thread leaves /proc a little later. How many there are
// then.
inline long settled_threads(long most) {
  eventually([most] { return threads() <= most; });
  return threads();
}

// From here on every thread's blocks count as used until they are freed: one arena, and none of the C
// library's caches, which keep freed blocks. Restarts the program.
inline void count_heap_exactly(char** argv) {
  static constexpr char kTunables[] = "GLIBC_TUNABLES";
  if (getenv(kTunables) == nullptr) {
    setenv(kTunables, "glibc.malloc.arena_max=1:glibc.malloc.tcache_count=0", 1);
    execv("/proc/self/exe", argv);
  }
}

// Bytes.
inline long heap_in_use() {
  if (__sanitizer_get_current_allocated_bytes != nullptr) {
    return static_cast<long>(__sanitizer_get_current_allocated_bytes());
  }
  return static_cast<long>(mallinfo2().uordblks);
}

// A number of /proc/self/status by its name ("VmHWM"), -1 when there is none.
inline long status(const char* name) {
  FILE* file = fopen("/proc/self/status", "re");
  if (file == nullptr) return -1;
  char line[256];
  long value = -1;
  while (fgets(line, sizeof(line), file) != nullptr) {
    if (strncmp(line, name, strlen(name)) == 0 && line[strlen(name)] == ':') {
      sscanf(line + strlen(name) + 1, "%ld", &value);
    }
  }
  fclose(file);
  return value;
}

}  // namespace process

#endif
