// The shared record's resets, its locks, and the library status of a request.
#include "brio_common/shared_data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "support/log_capture.h"

namespace {

// The record with every byte set, after a reset of the given kind.
brio_atcmd_data reset_record(int32_t keep) {
  std::memset(&g_brio_lib_atcmd_data, 0x5A, sizeof(g_brio_lib_atcmd_data));
  brio::UrcDataLock lock;
  briolib_init_atcmd_data(keep);
  return g_brio_lib_atcmd_data;
}

void expect_serving_data_unknown(const brio_atcmd_data& data) {
  EXPECT_EQ(data.cops_mode, -1);
  EXPECT_EQ(data.lac, 0xFFFF);
  EXPECT_EQ(data.cell_id, 0xFFFFFFFFu);
  EXPECT_EQ(data.rat, 0xFF);
  EXPECT_EQ(data.rac, 0x00FF);
  EXPECT_STREQ(data.mcc, "FFF");
  EXPECT_STREQ(data.mnc, "FFF");
  EXPECT_STREQ(data.plmn_text, "None");
  EXPECT_STREQ(data.band_text, "BAND_NONE");
  EXPECT_EQ(data.signal_a, 255u);
  EXPECT_EQ(data.signal_b, 255u);
  EXPECT_EQ(data.bars, 255);
  EXPECT_EQ(data.pdp_state, 0xFF);
  EXPECT_EQ(data.nmo, 0xFF);
  EXPECT_EQ(data.bas_value_a, 0xFFFF);
  EXPECT_EQ(data.bas_value_b, 0xFFFF);
  EXPECT_EQ(data.curr_lte_ant, 0xFF);
  EXPECT_EQ(data.band, 0u);
}

TEST(SharedData, FullReset) {
  const brio_atcmd_data data = reset_record(0);
  expect_serving_data_unknown(data);
  EXPECT_EQ(data.cs_reg_status, 0);
  EXPECT_EQ(data.ps_reg_status, 0);
  EXPECT_EQ(data.rat_valid, 0);
  EXPECT_EQ(data.arfcn, 0);
  for (uint8_t byte : data.reject_bytes) EXPECT_EQ(byte, 0);
  for (uint16_t word : data.reject_words) EXPECT_EQ(word, 0);
  EXPECT_EQ(data.mm_state, 0);
  EXPECT_EQ(data.gmm_substate, 0);
  EXPECT_EQ(data.emm_state, 0);
  EXPECT_EQ(data.rrc_state, 0);
  EXPECT_EQ(data.tac, 0);
  EXPECT_EQ(data.time_info[0], 0u);
  EXPECT_EQ(data.time_info[2], 0xFFFFFFFFu);
  EXPECT_EQ(data.carrier_config, -1);
  EXPECT_EQ(data.carrier_word, 0x00FF);
  EXPECT_EQ(data.bas_query_flag, 0);
  EXPECT_EQ(data.wan_type, 0);
}

TEST(SharedData, PartialResetLeavesTheRestAlone) {
  const brio_atcmd_data data = reset_record(1);
  expect_serving_data_unknown(data);
  for (uint8_t kept : {data.cs_reg_status, data.ps_reg_status, data.rat_valid, data.mm_state,
                       data.mm_substate, data.gmm_state, data.gmm_substate, data.spare_state, data.emm_state,
                       data.emm_substate, data.rrc_state, data.bas_query_flag, data.wan_type}) {
    EXPECT_EQ(kept, 0x5A);
  }
  for (uint8_t byte : data.reject_bytes) EXPECT_EQ(byte, 0x5A);
  for (uint16_t word : data.reject_words) EXPECT_EQ(word, 0x5A5A);
  for (uint32_t word : data.time_info) EXPECT_EQ(word, 0x5A5A5A5Au);
  EXPECT_EQ(data.arfcn, 0x5A5A);
  EXPECT_EQ(data.carrier_config, 0x5A5A);
  EXPECT_EQ(data.carrier_word, 0x5A5A);
  EXPECT_EQ(data.tac, 0x5A5A);
}

TEST(SharedData, LocksExcludeAndReportMisuse) {
  struct {
    uint32_t (*lock)(void);
    uint32_t (*unlock)(void);
  } const pairs[] = {{briolib_lock_urc_data_mutex, briolib_unlock_urc_data_mutex},
                     {briolib_lock_static_data_mutex, briolib_unlock_static_data_mutex}};
  for (const auto& pair : pairs) {
    int turns = 0;
    auto work = [&] {
      for (int i = 0; i < 10000; i++) {
        EXPECT_EQ(pair.lock(), 0u);
        turns++;
        EXPECT_EQ(pair.unlock(), 0u);
      }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(turns, 20000);
    EXPECT_EQ(pair.lock(), 0u);
    EXPECT_EQ(pair.lock(), 4u) << "already held by this thread";
    EXPECT_EQ(pair.unlock(), 0u);
  }
  brio::UrcDataLock urc_data;
  brio::StaticDataLock static_data;
  {
    brio::UrcDataLock inner_urc_data;
    brio::StaticDataLock inner_static_data;
  }
  for (const auto& pair : pairs) EXPECT_EQ(pair.lock(), 4u) << "released by the inner guard";
}

TEST(SharedData, SimBlocksCopyWhole) {
  sim_info_data info;
  std::memset(&info, 'i', sizeof(info));
  static sim_plmn_data plmn;
  std::memset(&plmn, 'p', sizeof(plmn));
  sim_info_data info_back = {};
  static sim_plmn_data plmn_back;
  brio::StaticDataLock lock;
  EXPECT_EQ(briolib_update_sim_info_data(&info), 0u);
  EXPECT_EQ(briolib_update_sim_plmn_data(&plmn), 0u);
  EXPECT_EQ(briolib_get_sim_info_data(&info_back), 0u);
  EXPECT_EQ(briolib_get_sim_plmn_data(&plmn_back), 0u);
  EXPECT_EQ(std::memcmp(&info, &info_back, sizeof(info)), 0);
  EXPECT_EQ(std::memcmp(&plmn, &plmn_back, sizeof(plmn)), 0);
  EXPECT_EQ(briolib_get_sim_info_data(nullptr), 6u);
  EXPECT_EQ(briolib_update_sim_plmn_data(nullptr), 6u);
}

TEST(TranslateStatus, Table) {
  struct {
    uint32_t packet;
    uint32_t response;
    uint32_t expected;
    const char* log;  // "" for silence
  } const cases[] = {
      {0, 0, 0, ""},
      {0, 6, 4, "resp_status:resp=6:modem indicated a failure"},
      {1, 0, 5, ""},
      {1, 6, 5, ""},
      {8, 0, 8, ""},
      {2, 0, 4, "blpktstat:status=2:modem returned bad status"},
      {3, 0, 4, "blpktstat:status=3:modem returned bad status"},
      {6, 0, 4, "blpktstat:status=6:modem returned bad status"},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    EXPECT_EQ(briolib_translate_status(c.packet, c.response), c.expected);
    if (*c.log == '\0') {
      EXPECT_TRUE(log_capture::lines().empty());
    } else {
      EXPECT_TRUE(log_capture::has(c.log));
    }
  }
}

}  // namespace
