#include "call_count.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Calls that nothing else makes mark begin and end.
constexpr long kBegin = SYS_getppid, kEnd = SYS_getpgid;

}  // namespace

void bench::count_begin() {
  syscall(kBegin);
}

void bench::count_end() {
  syscall(kEnd, 0);
}

std::map<long, long> bench::count_system_calls(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    _exit(work() ? 0 : 1);
  }
  std::map<long, long> counts;
  bool counting = false;
  int status = 0;
  pid_t thread = waitpid(child, &status, __WALL);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
  while (thread > 0 && (thread != child || WIFSTOPPED(status))) {
    __ptrace_syscall_info call = {};
    const bool at_call = WIFSTOPPED(status) && WSTOPSIG(status) == (SIGTRAP | 0x80) &&
                         ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(call), &call) > 0;
    if (at_call && call.op == PTRACE_SYSCALL_INFO_ENTRY) {
      const auto number = static_cast<long>(call.entry.nr);
      if (number == kEnd) counting = false;
      if (counting) counts[number]++;
      if (number == kBegin) counting = true;
    }
    ptrace(PTRACE_SYSCALL, thread, nullptr, nullptr);
    thread = waitpid(-1, &status, __WALL);
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? counts : std::map<long, long>();
}
