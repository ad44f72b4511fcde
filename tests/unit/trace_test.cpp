// The trace capture's stop against its stream; all else: tests/sessions/trace.
#include <sys/stat.h>

#include <atomic>
#include <string>
#include <thread>

#include "brio/brio.h"
#include "kit/calls.h"
#include "support/sim_fixture.h"

using process::eventually;

namespace {

std::atomic<bool> s_inside{false}, s_let_go{false};
std::atomic<size_t> s_copied{0};

// The copy thread stays in its first write until it is let go.
ssize_t hold_copy(int fd, const char* data, size_t size) {
  struct stat info;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
    s_inside = true;
    eventually([] { return s_let_go.load(); });
    s_copied += size;
  }
  return write(fd, data, size);
}

class Trace : public SimFixture {
  void close_library() override {
    brio_trace_tst_stop();
    brio_close();
  }
};

}  // namespace

TEST_F(Trace, StopWinsOverDataThatWaits) {
  faults::on_write = hold_copy;
  root().write("/filter", "AT+TRACE=1\n");
  ASSERT_EQ(brio_open("/dev/ttyACM2") + brio_trace_tst_log("/filter", "/t"), 0u);
  modem().raw(modemsim::Port::kTrace, std::string(3000, 't'));
  ASSERT_TRUE(eventually([] { return s_inside.load(); }));
  const long sent = faults::calls("send");
  std::thread stopper(brio_trace_tst_stop);
  EXPECT_TRUE(eventually([sent] { return faults::calls("send") > sent; }));
  s_let_go = true;
  stopper.join();
  EXPECT_TRUE(s_copied > 0 && s_copied <= 1023) << "one block, the rest was not touched: " << s_copied;
}
