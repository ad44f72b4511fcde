// SIM status, identities and home PLMN, read from the simulated modem.
#include <cstring>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/answer_fixture.h"

namespace {

using SimCard = AnswerFixture;

TEST_F(SimCard, MapsTheCardStatusAndKeepsIt) {
  open_ready();
  struct Case {
    int card;
    uint32_t status;
  };
  const Case cases[] = {{0, SIM_NOT_READ},  {1, SIM_NOT_READ},   {2, NO_SIM},
                        {3, SIM_STATUS_OK}, {4, SIM_NOT_READ},   {5, NO_SIM},
                        {6, INVALID_OTHER}, {99, INVALID_OTHER}, {-1, INVALID_OTHER}};
  for (const auto& c : cases) {
    modem().with_state([&](modemsim::State& state) {
      state.card_status = c.card;
      state.lock_status = 7;  // plays no part
    });
    uint32_t status = 77;
    EXPECT_EQ(0u, brio_get_wn3_sim_status(&status));
    EXPECT_EQ(c.status, status) << c.card;
    brio::UrcDataLock lock;
    EXPECT_EQ(c.status, brio::g_sim_status) << c.card;
  }
  sim_card_status record = {};
  EXPECT_EQ(0u, brio_get_sim_status(&record));
  EXPECT_EQ(0xFFFFFFFFu, record.card_status);
  EXPECT_EQ(7u, record.lock_status);
  EXPECT_TRUE(log_capture::has(":get_sim_info:card_status[-1], Lock_status[7]:\n"));
}

TEST_F(SimCard, AFailedStatusLeavesThePresets) {
  open_ready();
  modem().with_state([](modemsim::State& state) { state.card_status = 2; });
  uint32_t status = 77;
  ASSERT_EQ(0u, brio_get_wn3_sim_status(&status));
  const struct {
    const char* reply;
    const char* log;
  } cases[] = {{kError, "error in AT cmd AT+GTSIMSTATUS? resp"},
               {kBareOk, ":prv_briolib_get_value:input_line passed is NULL:\n"}};
  for (const auto& c : cases) {
    log_capture::clear();
    modem().clear_faults();
    answer("AT+GTSIMSTATUS?", c.reply);
    sim_card_status record = {8, 8};
    EXPECT_EQ(4u, brio_get_sim_status(&record));
    EXPECT_EQ(0u, record.card_status);
    EXPECT_EQ(15u, record.lock_status);
    EXPECT_TRUE(log_capture::has(":get_sim_info:card_status[0], Lock_status[15]:\n"));
    EXPECT_TRUE(log_capture::has(c.log)) << c.log;
    EXPECT_EQ(4u, brio_get_wn3_sim_status(&status));
    EXPECT_EQ(SIM_STATUS_OK, status);
    EXPECT_EQ(NO_SIM, brio::g_sim_status);  // of the last good read
  }
  modem().clear_faults();
  modemsim::Fault silent;
  silent.command = "AT+GTSIMSTATUS?";
  silent.silent = true;
  modem().fault(silent);
  test_clock::scale_waits(0.002);
  EXPECT_EQ(5u, brio_get_wn3_sim_status(&status));
}

TEST_F(SimCard, NothingIsSentWithoutAnOpenLibraryOrAPlace) {
  uint32_t status = 0;
  sim_card_status card = {};
  sim_identity identity = {};
  auto plmn = std::make_unique<sim_plmn_data>();
  EXPECT_EQ(1u, brio_get_wn3_sim_status(&status));
  EXPECT_EQ(SIM_STATUS_OK, status);
  EXPECT_EQ(1u, brio_get_sim_status(&card));
  EXPECT_EQ(15u, card.lock_status);
  EXPECT_EQ(1u, brio_get_sim_info(&identity));
  EXPECT_EQ(1u, brio_get_sim_plmn_info(plmn.get(), 1));
  EXPECT_EQ(1u, brio_get_sim_static_info(1));
  // Null and zero are refused before the library is asked.
  EXPECT_EQ(6u, brio_get_wn3_sim_status(nullptr));
  EXPECT_EQ(6u, brio_get_sim_status(nullptr));
  EXPECT_EQ(6u, brio_get_sim_info(nullptr));
  EXPECT_EQ(6u, brio_get_sim_plmn_info(nullptr, 1));
  EXPECT_EQ(6u, brio_get_sim_plmn_info(plmn.get(), 0));
  EXPECT_TRUE(modem().commands().empty());
}

TEST_F(SimCard, IdentityBlockIsPaddedWithNul) {
  open_ready();
  modem().with_state([](modemsim::State& state) { state.iccid = "8901410321111851072F"; });
  sim_identity block;
  memset(&block, 'x', sizeof(block));
  EXPECT_EQ(0u, brio_get_sim_info(&block));
  EXPECT_EQ((Commands{"AT+CIMI", "AT+CCID"}), modem().commands());
  EXPECT_EQ("8901410321111851072" + std::string(5, '\0'), std::string(block.iccid, sizeof(block.iccid)));
  EXPECT_EQ("310410123456789" + std::string(1, '\0'), std::string(block.imsi, sizeof(block.imsi)));
}

TEST_F(SimCard, AFailedIdentityLeavesTheBlockAndTheCache) {
  open_ready();
  const char* imsi = briolib_get_sim_imsi();
  const char* iccid = briolib_get_sim_iccid();
  ASSERT_STREQ("310410123456789", imsi);
  ASSERT_STREQ("89014103211118510720", iccid);
  for (const char* command : {"AT+CIMI", "AT+CCID"}) {
    for (const char* reply : {kError, kBareOk, "\r\n440101234567890\r\n\r\nOK\r\n"}) {
      modem().clear_faults();
      log_capture::clear();
      answer(command, reply);
      sim_identity block;
      memset(&block, 'x', sizeof(block));
      EXPECT_EQ(4u, brio_get_sim_info(&block));
      EXPECT_TRUE(log_capture::has(":SIM info:failed to get iccid/imsi:\n"));
      EXPECT_EQ(std::string(24, 'x'), std::string(block.iccid, sizeof(block.iccid)));
      EXPECT_EQ(std::string(16, 'x'), std::string(block.imsi, sizeof(block.imsi)));
      EXPECT_STREQ("310410123456789", imsi);
      EXPECT_STREQ("89014103211118510720", iccid);
    }
  }
}

TEST_F(SimCard, HomePlmnGoesIntoTheCallersCopyOnly) {
  open_ready();
  {
    brio::StaticDataLock lock;
    auto stored = std::make_unique<sim_plmn_data>();
    stored->ehplmn_count = 9;
    ASSERT_EQ(0u, briolib_update_sim_plmn_data(stored.get()));
  }
  const char* const cases[][3] = {
      {"310410123456789", "310", "410"}, {"302720123456789", "302", "720"}, {"262011234567890", "262", "01"}};
  for (const auto& c : cases) {
    modem().with_state([&](modemsim::State& state) { state.imsi = c[0]; });
    auto record = std::make_unique<sim_plmn_data>();
    EXPECT_EQ(0u, brio_get_sim_plmn_info(record.get(), 1));
    EXPECT_STREQ(c[1], record->home_mcc);
    EXPECT_STREQ(c[2], record->home_mnc);
    EXPECT_EQ(9, record->ehplmn_count);
    EXPECT_TRUE(log_capture::has(std::string("I blib:HPLMN:") + c[1] + "-" + c[2] + ":\n"));
  }
  answer("AT+CIMI", kError);
  auto record = std::make_unique<sim_plmn_data>();
  EXPECT_EQ(4u, brio_get_sim_plmn_info(record.get(), 1));
  EXPECT_EQ('\0', record->home_mcc[0]);
  // A record that names its home PLMN is handed out as it is.
  modem().clear_commands();
  strcpy(record->home_mcc, "001");
  {
    brio::StaticDataLock lock;
    ASSERT_EQ(0u, briolib_update_sim_plmn_data(record.get()));
  }
  EXPECT_EQ(0u, brio_get_sim_plmn_info(record.get(), 1));
  EXPECT_STREQ("001", record->home_mcc);
  EXPECT_TRUE(modem().commands().empty());
}

TEST_F(SimCard, NoLineShowsTheSubscriber) {
  briolib_log_set_log_mask(~(BRIO_LOG_PORT | BRIO_LOG_AT_DETAIL | BRIO_LOG_URC));
  ASSERT_EQ(0u, open());
  sim_identity block = {};
  EXPECT_EQ(0u, brio_get_sim_info(&block));
  EXPECT_EQ(0u, brio_get_sim_static_info(1));
  EXPECT_TRUE(log_capture::has(":ICCID ********************\n"));
  EXPECT_TRUE(log_capture::has(":IMSI updated\n"));
  EXPECT_TRUE(log_capture::has(":get crsm [+CRSM: 144,0,\"********************\"]\n"));
  for (const auto& line : log_capture::lines()) {
    EXPECT_EQ(std::string::npos, line.text.find("310410123456789")) << line.text;
    EXPECT_EQ(std::string::npos, line.text.find("89014103211118510720")) << line.text;
    EXPECT_EQ(std::string::npos, line.text.find("98104130121181157002")) << line.text;  // as in the file
  }
}

}  // namespace
