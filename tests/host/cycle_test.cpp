// Many lives of the module in one host process. The simulated modem runs in a process of its own, so that
// threads, descriptors and heap are the host's alone.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host_fixture.h"

namespace {

class ModemProcess {
 public:
  ModemProcess(const std::string& root, const modemsim::State& state) {
    int to_child[2];
    int from_child[2];
    if (pipe(to_child) != 0 || pipe(from_child) != 0) return;
    child_ = fork();
    if (child_ == 0) {
      close(to_child[1]);
      close(from_child[0]);
      modemsim::Modem modem(state);
      char byte = modem.start(root) ? 'y' : 'n';
      if (write(from_child[1], &byte, 1) == 1) {
        while (read(to_child[0], &byte, 1) > 0) {
        }
      }
      modem.stop();
      _exit(0);
    }
    close(to_child[0]);
    close(from_child[1]);
    stop_ = to_child[1];
    char byte = 'n';
    started_ = read(from_child[0], &byte, 1) == 1 && byte == 'y';
    close(from_child[0]);
  }
  ~ModemProcess() {
    close(stop_);
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }
  bool started() const { return started_; }

 private:
  pid_t child_ = -1;
  int stop_ = -1;
  bool started_ = false;
};

void cycle(const DeviceRoot& root) {
  ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  uint32_t bars = 0;
  ASSERT_EQ(wabs_get_bars(&bars), WABS_STATUS_OK);
  char page[8192];
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
  for (const char* entry : kSensorEntries) root.write(kSensorFolder + std::string(entry), "0");
  root.write("/var/local/wan/debug/trace_filter.cfg", "AT+XSYSTRACE=1\n");
  ModemProcess modem(root.dir(), state);
  ASSERT_TRUE(modem.started());

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
}

}  // namespace
