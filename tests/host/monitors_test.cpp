// The proximity monitor and the trace capture behind wabs_open, on the simulated modem.
#include <string>
#include <vector>

#include "host_fixture.h"

namespace {

class HostMonitors : public HostFixture {
 protected:
  modemsim::State initial_state() override {
    modemsim::State state;
    state.carrier_id = 202;
    return state;
  }
  void readings(const std::string& diff, const std::string& average) {
    root().write(kSensorFolder + std::string("prox_diff"), diff);
    root().write(kSensorFolder + std::string("prox_avg"), average);
  }
  std::vector<std::string> back_off_commands() {
    std::vector<std::string> found;
    for (const std::string& each : modem().commands()) {
      if (each.rfind("AT+BODYSARON", 0) == 0) found.push_back(each);
    }
    return found;
  }
};

TEST_F(HostMonitors, ProximitySwitchesTheModemsBackOff) {
  plug_sensor();
  test_clock::manual_select(true);
  readings("0", "7d0");
  open_module();
  ASSERT_TRUE(test_clock::tick());
  readings("2b", "0");
  ASSERT_TRUE(test_clock::tick());
  readings("2c", "0");
  modemsim::Fault refused;
  refused.command = "AT+BODYSARON";
  refused.times = 1;
  refused.replace = true;
  refused.reply = "\r\nERROR\r\n";
  modem().fault(refused);
  ASSERT_TRUE(test_clock::tick());
  EXPECT_FALSE(modem().state().body_sar);
  ASSERT_TRUE(test_clock::tick());
  EXPECT_TRUE(modem().state().body_sar);
  readings("1fff", "0");
  ASSERT_TRUE(test_clock::tick());
  EXPECT_FALSE(modem().state().body_sar);
  EXPECT_EQ(back_off_commands(), (std::vector<std::string>{"AT+BODYSARON=0", "AT+BODYSARON=1",
                                                           "AT+BODYSARON=1", "AT+BODYSARON=0"}));
  EXPECT_EQ(log_capture::count("I proxlib:::brio_rc [2]"), 1u);
  wabs_close();
  EXPECT_EQ(root().read(kSensorFolder + std::string("prox_ctrl0")), "70");
}

TEST_F(HostMonitors, TraceStreamsIntoItsFileUntilTheHostCloses) {
  constexpr char kFile[] = "/mnt/us/trace_log_2026_3_7_9_5_0.istp";
  constexpr size_t kSize = 1 << 20;
  setenv("TZ", "UTC0", 1);
  tzset();
  test_clock::set_wall(1772874300);
  root().write("/var/local/wan/debug/trace_filter.cfg", "# all\nat+xsystrace=1 rest\n");
  ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  EXPECT_EQ(asked("at+xsystrace=1"), 1u);
  modem().stream_trace(UINT64_MAX / 2);
  struct stat status = {};
  ASSERT_TRUE(eventually([&] {
    return stat(root().path(kFile).c_str(), &status) == 0 && static_cast<size_t>(status.st_size) >= kSize;
  }));
  wabs_close();
  std::string trace = root().read(kFile).value_or("");
  ASSERT_GE(trace.size(), kSize);
  size_t right = 0;
  while (right < trace.size() &&
         static_cast<unsigned char>(trace[right]) == modemsim::Modem::trace_byte(right)) {
    right++;
  }
  EXPECT_EQ(right, trace.size()) << "first byte that differs";
}

}  // namespace
