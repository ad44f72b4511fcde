// Antennas against the simulated modem.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "brio/brio.h"
#include "support/sim_fixture.h"

namespace {

using modemsim::Fault;
using modemsim::State;
using Commands = std::vector<std::string>;

class Antenna : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    open_ready();
    modem().with_state([](State& state) {
      state.bas_a = 320;
      state.bas_b = -160;
      state.antenna = 1;
    });
  }
  void refuse(const std::string& command) {
    Fault fault;
    fault.command = command;
    fault.replace = true;
    fault.reply = "\r\nERROR\r\n";
    modem().fault(fault);
  }
};

TEST_F(Antenna, StatusIsReadAndHeld) {
  bas_status record = {0xFFFF, 0xFFFF, 255};
  EXPECT_EQ(0u, brio_get_bas_status(&record));
  EXPECT_EQ(static_cast<uint16_t>(-10), record.value_a);
  EXPECT_EQ(20, record.value_b);
  EXPECT_EQ(1, record.antenna);
  EXPECT_EQ((Commands{"AT@EPHY:EPHY_BAS_STATUS(2)"}), modem().commands());
  modem().clear_commands();
  uint32_t antenna = 9;
  EXPECT_EQ(0u, brio_get_curr_lte_ant(&antenna));
  EXPECT_EQ(1u, antenna);
  EXPECT_EQ(Commands{}, modem().commands());
  EXPECT_EQ(6u, brio_get_bas_status(nullptr));
  EXPECT_EQ(6u, brio_get_curr_lte_ant(nullptr));
}

TEST_F(Antenna, UnknownAntennaIsAskedFor) {
  uint32_t antenna = 9;
  EXPECT_EQ(0u, brio_get_curr_lte_ant(&antenna));
  EXPECT_EQ(1u, antenna);
  EXPECT_EQ((Commands{"AT@EPHY:EPHY_BAS_STATUS(2)"}), modem().commands());
}

TEST_F(Antenna, FailuresAreReported) {
  Fault fault;
  fault.command = "AT@EPHY:EPHY_BAS_STATUS(2)";
  fault.replace = true;
  fault.reply = "\r\nOK\r\n";
  modem().fault(fault);
  bas_status record = {0xFFFF, 0xFFFF, 255};
  EXPECT_EQ(5u, brio_get_bas_status(&record));
  EXPECT_EQ(0xFFFF, record.value_a);
  EXPECT_TRUE(log_capture::has(":recv_func_prv_briolib_read_bas_status::response is invalid"));
  uint32_t antenna = 9;
  EXPECT_EQ(7u, brio_get_curr_lte_ant(&antenna));
  EXPECT_EQ(9u, antenna);
  EXPECT_TRUE(log_capture::has(":brio_get_curr_lte_ant::get bas status failed"));
  EXPECT_EQ(2u, log_capture::count(":get_bas_status::get bas status failed"));
}

TEST_F(Antenna, LocksByChoice) {
  const std::string prepare = "AT@GTICOM:SIO_PSVCTRL(0)";
  for (uint32_t choice : {1u, 2u, 3u}) {
    modem().clear_commands();
    EXPECT_EQ(0u, brio_set_lte_ant(choice));
    EXPECT_EQ((Commands{prepare, "AT@EPHY:EPHY_BAS_SET(" + std::to_string(choice - 1) + ")"}),
              modem().commands());
  }
  for (uint32_t choice : {0u, 4u, 0xFFFFFFFFu}) {
    modem().clear_commands();
    EXPECT_EQ(6u, brio_set_lte_ant(choice));
    EXPECT_EQ((Commands{prepare}), modem().commands());
  }
  EXPECT_TRUE(log_capture::has(":LTE ant lock:err:can't lock ANT[0]"));
  refuse("AT@GTICOM");
  EXPECT_EQ(0u, brio_set_lte_ant(1));  // whatever the first command gives
  refuse("AT@EPHY:EPHY_BAS_SET");
  EXPECT_EQ(4u, brio_set_lte_ant(1));
  EXPECT_TRUE(log_capture::has(":setANT:err_no=2:can't set LTE ANT"));
}

TEST_F(Antenna, ClosedLibraryIsNotAsked) {
  close_library();
  modem().clear_commands();
  log_capture::clear();
  bas_status record = {};
  uint32_t antenna = 9;
  EXPECT_EQ(1u, brio_get_bas_status(&record));
  EXPECT_EQ(1u, brio_get_curr_lte_ant(&antenna));
  EXPECT_EQ(1u, brio_set_lte_ant(1));
  EXPECT_EQ(2u, log_capture::lines().size());
  EXPECT_TRUE(log_capture::has(":brio_get_bas_status::improper brio library status"));
  EXPECT_TRUE(log_capture::has(":brio_get_curr_lte_ant::improper brio library status"));
  EXPECT_EQ(Commands{}, modem().commands());
}

}  // namespace
