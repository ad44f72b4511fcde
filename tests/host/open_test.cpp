// Opening and closing the module on a modem that is slow, broken, missing or pulled.
#include <functional>

#include "host_fixture.h"

namespace {

using modemsim::Fault;

class OpenTest : public HostFixture {
 protected:
  // Body-SAR carrier: the proximity monitor runs. With a filter file the trace capture runs too.
  modemsim::State initial_state() override {
    modemsim::State state;
    state.carrier_id = 202;
    state.imsi = "234151234567890";
    return state;
  }
  void SetUp() override {
    HostFixture::SetUp();
    plug_sensor();
    root().write("/var/local/wan/debug/trace_filter.cfg", "AT+XSYSTRACE=1\n");
  }
  // Descriptors once the simulator, which takes part in the count, has seen that nobody holds a port.
  size_t closed_descriptors() {
    for (auto port : {modemsim::Port::kTrace, modemsim::Port::kQuery, modemsim::Port::kUrc}) {
      EXPECT_TRUE(modem().wait_open(port, false));
    }
    modem().state();
    return open_descriptors();
  }
  // A trace file is named after its second and never overwritten.
  void remove_traces() {
    root().remove("/mnt/us");
    root().make_directory("/mnt/us");
  }
};

Fault reply(const std::string& command, const std::string& bytes, int times) {
  Fault fault;
  fault.command = command;
  fault.reply = bytes;
  fault.replace = true;
  fault.times = times;
  return fault;
}

const char kSimNotRead[] = "\r\n+GTSIMSTATUS: 0,0\r\n\r\nOK\r\n";
const char kError[] = "\r\nERROR\r\n";

TEST_F(OpenTest, SimReadyOnTheThirdRead) {
  modem().fault(reply("AT+GTSIMSTATUS?", kSimNotRead, 2));
  EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
  EXPECT_EQ(asked("AT+GTSIMSTATUS?"), 3u);
  EXPECT_EQ(test_clock::sleeps(), std::vector<unsigned>(2, 5000));
  EXPECT_TRUE(log_capture::has("D brio:getting SIM status, retry = 2 ("));
}

TEST_F(OpenTest, SimNeverReady) {
  modem().fault(reply("AT+GTSIMSTATUS?", kSimNotRead, -1));
  EXPECT_EQ(wabs_open(), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_EQ(asked("AT+GTSIMSTATUS?"), 4u);
  EXPECT_EQ(test_clock::sleeps(), std::vector<unsigned>(4, 5000));
  EXPECT_EQ(asked("AT+GTMODINFO?"), 0u);
  EXPECT_TRUE(log_capture::has("E brio:simstat:status=0:bad sim status"));
}

// The modem answers nothing to a command, or goes away instead of answering.
Fault silence(const std::string& command, bool unplug) {
  Fault fault;
  fault.command = command;
  fault.silent = !unplug;
  fault.unplug = unplug;
  return fault;
}

TEST_F(OpenTest, FailureAtEveryStepLeavesNothingBehind) {
  struct Case {
    const char* name;
    std::function<void()> prepare;
    const char* line;
  };
  const Case cases[] = {
      {"no ports", [&] { modem().unplug(); }, "E brio:openlib:status=4:can't open brio library"},
      {"silent modem", [&] { modem().fault(silence("ATE0", false)); },
       "E brio:openlib:status=5:can't open brio library"},
      {"radio refused", [&] { modem().fault(reply("AT+CFUN=1", kError, -1)); },
       "E brio:openlib:status=5:can't open brio library"},
      {"pulled while the radio goes on", [&] { modem().fault(silence("AT+CFUN=1", true)); },
       "E brio:openlib:status=5:can't open brio library"},
      {"SIM status refused", [&] { modem().fault(reply("AT+GTSIMSTATUS?", kError, -1)); },
       "E brio:get:param=sim_status,error=4:can't get parameter"},
      {"no SIM", [&] { modem().with_state([](modemsim::State& state) { state.card_status = 2; }); },
       "E brio:simstat:status=1:bad sim status"},
      {"pulled at the SIM status", [&] { modem().fault(silence("AT+GTSIMSTATUS?", true)); },
       "E brio:get:param=sim_status,error="},
      {"modem information refused", [&] { modem().fault(reply("AT+GTMODINFO?", kError, -1)); },
       "E brio:get:param=modeminfo,error=4:can't get parameter"},
      {"pulled at the modem information", [&] { modem().fault(silence("AT+GTMODINFO?", true)); },
       "E brio:get:param=modeminfo,error="},
      {"ICCID refused", [&] { modem().fault(reply("AT+CCID", kError, -1)); },
       "E brio:get:param=sim_plmn_info,error=4:can't get parameter"},
  };
  test_clock::cap_waits(0.3);
  const size_t threads = thread_count();
  const size_t descriptors = closed_descriptors();
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    log_capture::clear();
    each.prepare();
    EXPECT_EQ(wabs_open(), WABS_STATUS_LIBRARY_FAILURE);
    EXPECT_TRUE(log_capture::has(each.line));
    EXPECT_EQ(wabs_is_blib_open(), 0u);
    EXPECT_EQ(brio_log_startup_status(), BRIO_STATUS_NOT_OPEN);
    EXPECT_EQ(NipcStandinOpenHandles(), 0u);
    EXPECT_TRUE(wait_thread_count(threads)) << thread_count();
    modem().clear_faults();
    modem().with_state([](modemsim::State& state) { state.card_status = 3; });
    if (!root().exists("/dev/ttyACM2")) {
      EXPECT_TRUE(modem().plug()) << modem().error();
    }
    EXPECT_EQ(closed_descriptors(), descriptors);  // the simulator's own are back
    remove_traces();
    EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
    EXPECT_GT(thread_count(), threads + 3);  // read, event, proximity and trace thread
    EXPECT_EQ(wabs_close(), WABS_STATUS_OK);
    EXPECT_EQ(closed_descriptors(), descriptors);
    remove_traces();
  }
}

TEST_F(OpenTest, SecondOpenLeavesNothingBehind) {
  const size_t threads = thread_count();
  const size_t descriptors = closed_descriptors();
  EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
  EXPECT_EQ(wabs_open(), WABS_STATUS_ALREADY_OPEN);
  EXPECT_EQ(wabs_is_blib_open(), 0u);
  EXPECT_EQ(NipcStandinOpenHandles(), 0u);
  EXPECT_TRUE(wait_thread_count(threads));
  EXPECT_EQ(closed_descriptors(), descriptors);
  EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
}

TEST_F(OpenTest, LostModemIsReportedAndComesBack) {
  open_module();
  modem().unplug();
  uint32_t bars = 77;
  EXPECT_TRUE(eventually([] { return brio_log_startup_status() == BRIO_STATUS_FATAL; }));
  EXPECT_EQ(wabs_get_bars(&bars), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_TRUE(log_capture::has("E brio:get:param=pdpa,error=3:can't get parameter"));
  char text[32];
  EXPECT_EQ(wabs_get_imsi(text, sizeof(text)), WABS_STATUS_OK);  // what was read at open is still served
  EXPECT_STREQ(text, "234151234567890");
  EXPECT_EQ(wabs_set_auto_mode(), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_EQ(wabs_close(), WABS_STATUS_OK);
  ASSERT_TRUE(modem().plug()) << modem().error();
  EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
  EXPECT_EQ(wabs_get_bars(&bars), WABS_STATUS_OK);
  EXPECT_EQ(bars, 4u);
}

// Whatever stands in the place of a file that the module reads, it opens and goes on.
TEST_F(OpenTest, BadFiles) {
  const char* files[] = {"/var/local/wan/briolib_log_config",
                         "/var/run/mcsdwc.dat",
                         "/mnt/us/apn",
                         "/var/local/wan/info",
                         "/var/local/wan/static_info",
                         "/var/local/wan/mcc",
                         "/var/local/wan/debug/trace_filter.cfg",
                         "/sys/devices/virtual/proximity/proximity0/prox_diff",
                         "/proc/net/dev"};
  std::string junk;
  for (int i = 0; i < 4096; i++) junk += static_cast<char>(i * 37 + 1);
  const std::function<void(const char*)> bad[] = {
      [&](const char* file) { root().write(file, junk); },
      [&](const char* file) { root().write(file, "x"); },
      [&](const char* file) { root().write(file, ""); },
      [&](const char* file) { root().write(file, std::string(1 << 20, 'A')); },
      [&](const char* file) { root().make_directory(file); },
  };
  char page[8192];
  for (const char* file : files) {
    int kind = 0;
    for (const auto& make : bad) {
      SCOPED_TRACE(std::string(file) + " " + std::to_string(kind++));
      root().remove(file);
      make(file);
      EXPECT_EQ(wabs_open(), WABS_STATUS_OK);
      uint32_t mcc = 0;
      uint32_t mnc = 0;
      EXPECT_EQ(wabs_get_mcc_mnc(&mcc, &mnc), WABS_STATUS_OK);
      for (int visit = 0; visit < 2; visit++) EXPECT_EQ(wabs_get_log_string(page, sizeof(page), 1), 0u);
      EXPECT_EQ(wabs_exit_611_logging(), 0u);
      EXPECT_EQ(wabs_close(), WABS_STATUS_OK);
    }
    root().remove(file);
  }
}

}  // namespace
