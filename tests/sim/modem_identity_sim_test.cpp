// Modem identity, SAR back-off and factory commands against the simulated modem.
#include <cstring>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/answer_fixture.h"

namespace {

using ModemIdentity = AnswerFixture;
using FactoryCommands = ModemIdentity;
using SarBackOff = ModemIdentity;

void expect_blanks() {
  modem_info record;
  memset(&record, 'x', sizeof(record));
  EXPECT_EQ(0u, brio_copy_modem_info(&record));
  for (const char* text : {record.fw_ver, record.serial, record.imei, record.hw_ver}) EXPECT_STREQ(" ", text);
  EXPECT_EQ(0x7878, record.fault_ct);
}

TEST_F(ModemIdentity, IsReadOnceAfterOpenAndThenServedFromMemory) {
  briolib_reset_modem_info();
  expect_blanks();
  modem_info record = {};
  EXPECT_EQ(1u, brio_get_modem_info(&record));
  EXPECT_EQ(6u, brio_get_modem_info(nullptr));
  modem().with_state([](modemsim::State& state) { state.fault_count = 12; });
  open_ready();
  expect_blanks();
  briolib_log_set_log_mask(BRIO_LOG_MODEM_INFO | BRIO_LOG_DEBUG);
  for (int round = 0; round < 3; round++) {
    memset(&record, 'x', sizeof(record));
    EXPECT_EQ(0u, brio_get_modem_info(&record));
    EXPECT_STREQ("L816_18000.1000.00.24.01.01", record.fw_ver);
    EXPECT_STREQ("SN1234567890", record.serial);
    EXPECT_STREQ("356938035643809", record.imei);
    EXPECT_STREQ("V1.0.1", record.hw_ver);
    EXPECT_EQ(12, record.fault_ct);
  }
  EXPECT_EQ(Commands{"AT+GTMODINFO?"}, modem().commands());
  EXPECT_TRUE(
      log_capture::has(":fw_ver[L816_18000.1000.00.24.01.01]imei[356938035643809]"
                       "serial[SN1234567890]hw_ver[V1.0.1]fault_ct[12]\n"));
  EXPECT_TRUE(log_capture::has(":recv_func_prv_briolib_get_modem_info called \"L816_18000"));

  modem_info copy;
  memset(&copy, 'x', sizeof(copy));
  EXPECT_EQ(0u, brio_copy_modem_info(&copy));
  EXPECT_STREQ(record.fw_ver, copy.fw_ver);
  EXPECT_STREQ(record.serial, copy.serial);
  EXPECT_STREQ(record.imei, copy.imei);
  EXPECT_STREQ(record.hw_ver, copy.hw_ver);
  EXPECT_EQ(0x7878, copy.fault_ct);  // is not copied

  // Served without the gate while closed, forgotten by the next open.
  brio_close();
  EXPECT_EQ(0u, brio_get_modem_info(&record));
  modem().with_state([](modemsim::State& state) { state.serial = "NEW"; });
  open_ready();
  expect_blanks();
  EXPECT_EQ(0u, brio_get_modem_info(&record));
  EXPECT_STREQ("NEW", record.serial);
}

TEST_F(ModemIdentity, AFailureIsNotRemembered) {
  open_ready();
  answer("AT+GTMODINFO?", "\r\nERROR\r\n");
  modem_info record;
  memset(&record, 'x', sizeof(record));
  EXPECT_EQ(4u, brio_get_modem_info(&record));
  EXPECT_EQ('x', record.fw_ver[0]);
  modem().clear_faults();
  EXPECT_EQ(0u, brio_get_modem_info(&record));
  EXPECT_STREQ("V1.0.1", record.hw_ver);
}

TEST_F(ModemIdentity, AnAnswerWithoutFieldsCountsAsRead) {
  open_ready();
  const char* const cases[][2] = {
      {"\r\nOK\r\n", ":prv_briolib_get_modem_info:at_resp is invalid:\n"},
      {"\r\n+GTMODINFO:\r\n\r\nOK\r\n", ":prv_briolib_get_modem_info:resp is invalid:\n"}};
  for (const auto& c : cases) {
    briolib_reset_modem_info();
    modem().clear_faults();
    modem().clear_commands();
    answer("AT+GTMODINFO?", c[0]);
    modem_info record;
    memset(&record, 'x', sizeof(record));
    EXPECT_EQ(0u, brio_get_modem_info(&record));
    EXPECT_EQ(0u, brio_get_modem_info(&record));
    EXPECT_EQ(1u, modem().commands().size());
    EXPECT_STREQ("", record.fw_ver);
    EXPECT_TRUE(log_capture::has(c[1]));
  }
}

TEST_F(FactoryCommands, AreSentAndTheirFailureIsTranslated) {
  const struct {
    uint32_t (*call)();
    const char* command;
    const char* error;
  } cases[] = {
      {[] { return brio_set_fake_security_mode(0); }, "AT*FAKECFG=0", "can't turn off fake security\n"},
      {[] { return brio_set_fake_security_mode(1); }, "AT*FAKECFG=1", "can't turn off fake security\n"},
      {[] { return brio_set_fake_security_mode(256); }, "AT*FAKECFG=1", "can't turn off fake security\n"},
      {brio_clear_mru, "AT*MRUCLEAR", "can't clear MRU\n"},
      {brio_turn_off_rf, "AT+CFUN=0", "can't turn off RF mode\n"},
  };
  open_ready();
  for (const auto& c : cases) {
    modem().clear_faults();
    modem().clear_commands();
    log_capture::clear();
    EXPECT_EQ(0u, c.call());
    EXPECT_EQ(Commands{c.command}, modem().commands());
    EXPECT_FALSE(log_capture::has("factory_test"));
    answer(c.command, "\r\n+CME ERROR: 3\r\n");
    EXPECT_EQ(4u, c.call());
    EXPECT_TRUE(log_capture::has(std::string(":factory_test:err_no=2:") + c.error)) << c.command;
  }
  EXPECT_EQ(0, modem().state().radio);
  modem().clear_faults();
  modemsim::Fault silent;
  silent.silent = true;
  modem().fault(silent);
  test_clock::scale_waits(0.002);
  EXPECT_EQ(5u, brio_clear_mru());
  EXPECT_TRUE(log_capture::has(":factory_test:err_no=1:can't clear MRU\n"));
}

TEST_F(SarBackOff, FollowsEveryCall) {
  EXPECT_EQ(1u, brio_set_sar_pwr(1));
  EXPECT_TRUE(log_capture::has(":brio_set_sar_power::improper brio library status\n"));
  EXPECT_TRUE(modem().commands().empty());
  open_ready();
  const Commands sent = {"AT+BODYSARON=1", "AT+BODYSARON=1", "AT+BODYSARON=1", "AT+BODYSARON=0"};
  for (uint32_t on : {1u, 1u, 0x80000000u, 0u}) EXPECT_EQ(0u, brio_set_sar_pwr(on));
  EXPECT_EQ(sent, modem().commands());
  EXPECT_FALSE(modem().state().body_sar);
  answer("AT+BODYSARON", "\r\nERROR\r\n");
  EXPECT_EQ(2u, brio_set_sar_pwr(1));  // the packet status as it is
}

}  // namespace
