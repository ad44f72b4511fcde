// Random readings of the proximity sensor and what the monitor must do about them: the back-off's mode,
// commands to the modem, the scan rate and the time between polls.
#include <ostream>
#include <vector>

#include "base/clock.h"
#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "support/random.h"
#include "support/sim_fixture.h"

namespace {

constexpr char kFolder[] = "/sys/devices/virtual/proximity/proximity0/";

struct Device {
  int carrier;
  int offset, useful;
};

void PrintTo(const Device& device, std::ostream* out) {
  *out << device.carrier << ',' << device.offset << ',' << device.useful;
}

class ProxModel : public SimFixture, public testing::WithParamInterface<Device> {
  modemsim::State initial_state() override {
    modemsim::State state;
    state.carrier_id = GetParam().carrier;
    return state;
  }
  void close_library() override {
    prox_close();
    brio_close();
  }
};

time_t now_seconds() {
  timespec now;
  EXPECT_TRUE(brio::clock_monotonic(&now));
  return now.tv_sec;
}

TEST_P(ProxModel, RandomPolls) {
  const auto [carrier, offset, useful] = GetParam();
  const bool sends = carrier == 202 || carrier == 216, calibrated = offset <= 3700 && useful <= 10000;
  Random random(static_cast<unsigned>(carrier + offset));
  const auto write = [&](const std::string& entry, const char* format, unsigned value) {
    char text[16];
    snprintf(text, sizeof text, format, value);
    root().write(kFolder + entry, text);
  };
  const auto control = [&] { return root().read(std::string(kFolder) + "prox_ctrl0"); };
  ASSERT_EQ(0u, brio_open("/dev/ttyACM2"));
  wabs_set_log_mask(WABS_LOG_NOTICE);
  test_clock::manual_select(true);
  test_clock::stop();
  write("prox_ctrl0", "", 0);
  int average = 0, fast_polls = 0;
  bool examined = false;
  for (int poll = 0, period = 0, mode = 2; poll < 320; poll++) {
    if (poll % 16 == 0) {  // another run; what it learned stays
      prox_close();
      ASSERT_TRUE(poll == 0 || control() == "70");
      ASSERT_EQ(0u, prox_open());
      ASSERT_EQ("77", control());
      period = 5, mode = 2;
    }
    const int diff = random.chance(60) ? random.one_of({43, 44, 0, -1, 4095, -4096})
                                       : static_cast<int>(random.below(8192)) - 4096;
    const int drop = random.one_of({0, 1000, 1001, -1001, 40000});
    const int next = static_cast<int16_t>(random.chance(30) ? random.below(65536) : average - drop);
    write("prox_diff", random.one_of({"%x", "%X\n", "0x%x\n", " %x q", "%07xff"}), diff & 0x1FFF);
    write("prox_avg", "%x", next & 0xFFFF);
    write("prox_offset", "%x", offset & 0xFFFF);
    write("prox_use", "%x", useful & 0xFFFF);
    write("sensor_sel", "", 0);
    const std::string gone = random.one_of(
        {"", "", "", "", "", "", "prox_diff", "prox_avg", "sensor_sel", "prox_use", "prox_offset"});
    if (!gone.empty()) root().remove(kFolder + gone);
    const bool refused = random.chance(20);
    modemsim::Fault error;
    error.command = "AT+BODYSARON", error.reply = "\r\nERROR\r\n", error.replace = true;
    if (refused) modem().fault(error);
    modem().clear_commands();
    const time_t before = now_seconds();
    ASSERT_TRUE(test_clock::tick());
    ASSERT_EQ(period, now_seconds() - before);
    modem().clear_faults();

    std::string rate = period == 5 ? "77" : *control();
    if (period == 5 && ++fast_polls >= 25) period = 6, rate = "c7";
    std::vector<std::string> commands;
    if (gone.empty() || (examined && (gone == "prox_use" || gone == "prox_offset"))) {
      const int fallen = average - next, near = diff >= 44 ? 1 : 0;
      if (calibrated && near != mode && (mode != 2 || near == 1 || fallen > 1000)) {
        const bool tells = sends && !(mode == 2 && near == 1);
        if (tells) commands = {near == 1 ? "AT+BODYSARON=1" : "AT+BODYSARON=0"};
        if (!tells || !refused) {
          if (mode == 2) period = 6, rate = "c7";
          mode = near;
        }
      }
      examined = true;
    }
    if (gone != "prox_diff" && gone != "prox_avg" && gone != "sensor_sel") average = next;
    ASSERT_EQ(mode, brio::relaxed_load(g_pre_sar_mode)) << poll << ": " << diff << " " << next << " " << gone;
    ASSERT_EQ(commands, modem().commands()) << poll;
    ASSERT_EQ(rate, control()) << poll;
    ASSERT_TRUE(gone == "sensor_sel" || root().read(std::string(kFolder) + "sensor_sel") == "1");
    ASSERT_EQ(examined && !calibrated, log_capture::has("::Disabling SAR")) << poll;
  }
}

INSTANTIATE_TEST_SUITE_P(Devices, ProxModel,
                         testing::Values(Device{202, 3700, 10000}, Device{216, -1, -32768}, Device{201, 0, 0},
                                         Device{202, 3701, 0}, Device{202, 0, 10001}));

}  // namespace
