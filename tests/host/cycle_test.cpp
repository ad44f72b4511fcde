// Many lives of the module in one host process. The simulated modem runs in a process of its own, so that
// threads, descriptors and heap are the host's alone.
#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "brio/brio.h"
#include "brio/wabs.h"
#include "support/sim_fixture.h"

namespace {

// The modem's process; 0 when it did not start.
pid_t start_modem(const std::string& root, const modemsim::State& state) {
  int ready[2];
  if (pipe(ready) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    modemsim::Modem modem(state);
    if (!modem.start(root) || write(ready[1], "", 1) != 1) _exit(1);
    for (;;) pause();
  }
  close(ready[1]);
  char byte;
  const bool started = read(ready[0], &byte, 1) == 1;
  close(ready[0]);
  return started ? child : 0;
}

void cycle(const DeviceRoot& root) {
  uint32_t bars = 0;
  char page[8192];
  ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  ASSERT_EQ(wabs_get_bars(&bars), WABS_STATUS_OK);
  ASSERT_EQ(wabs_get_log_string(page, sizeof(page), 1), WABS_STATUS_OK);
  ASSERT_EQ(wabs_close(), WABS_STATUS_OK);
  root.remove("/mnt/us");  // trace files
  root.make_directory("/mnt/us");
  root.remove("/var/local/wan/static_info");
  log_capture::clear();
}

TEST(CycleTest, TwoHundredCyclesLeaveNothing) {
  mallopt(M_ARENA_MAX, 1);  // so that mallinfo2 counts what every thread allocates
  modemsim::State state;
  state.carrier_id = 202;  // the proximity monitor runs, and with a filter file the trace capture
  state.imsi = "234151234567890";
  DeviceRoot root;
  brio_set_root_dir(root.dir().c_str());
  for (const char* entry : {"prox_ctrl0", "sensor_sel", "prox_diff", "prox_avg", "prox_offset", "prox_use"}) {
    root.write(std::string("/sys/devices/virtual/proximity/proximity0/") + entry, "0");
  }
  root.write("/var/local/wan/debug/trace_filter.cfg", "AT+XSYSTRACE=1\n");
  const pid_t modem = start_modem(root.dir(), state);
  ASSERT_NE(modem, 0);

  cycle(root);
  const size_t threads = thread_count();
  const size_t descriptors = open_descriptors();
  // glibc keeps up to seven freed blocks of a size for their thread and counts them as used: let it fill up.
  for (int i = 0; i < 7; i++) cycle(root);
  const size_t heap = mallinfo2().uordblks;
  for (int i = 0; i < 200; i++) cycle(root);
  EXPECT_TRUE(wait_thread_count(threads)) << thread_count();
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(mallinfo2().uordblks, heap);
  kill(modem, SIGTERM);
  waitpid(modem, nullptr, 0);
}

}  // namespace
