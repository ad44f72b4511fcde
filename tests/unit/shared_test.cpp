// What threads share: queue, pool, the locks of the shared record. All else about them: tests/sessions.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "base/log.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "kit/log.h"
#include "support/sim_fixture.h"

namespace {

class Identity : public SimFixture {
 protected:
  void close_library() override { brio_close(); }
};

void run_at_once(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; i++) threads.emplace_back(work, i);
  for (auto& thread : threads) thread.join();
}

}  // namespace

TEST(Queue, ProducersAndConsumerLoseNothing) {
  // Meanwhile the dump walks the storage, as with its log bit on, and logs nothing.
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_QUEUE);
  const std::unique_ptr<queue, void (*)(queue*)> q(q_create(12, 3), q_destroy);
  constexpr int32_t kEach = 3000;
  int32_t next[3] = {};
  run_at_once(4, [&](int32_t id) {
    for (int32_t i = 0; id < 3 && i < kEach;) {
      const int32_t element[3] = {id, i, ~i};
      i += q_add(q.get(), element, sizeof(element)) == Q_OK ? 1 : 0;
    }
    for (int32_t i = 0, element[3]; id == 3 && i < 3 * kEach; i++) {
      ASSERT_EQ(q_get(q.get(), element, sizeof(element), -1), Q_OK + 0u);
      ASSERT_EQ(element[1], next[element[0]]++);
      ASSERT_EQ(element[2], ~element[1]);
    }
  });
  EXPECT_EQ(log_capture::lines().size(), 0u);
}

TEST(Mempool, ThreadsShareOnePool) {
  const mempool_def groups[] = {{32, 8}, {0, 0}};
  const std::unique_ptr<mempool, void (*)(mempool*)> pool(mempool_create(groups, 1), mempool_destroy);
  run_at_once(4, [&pool](int thread) {
    for (int i = 0; i < 5000; i++) {
      auto* block = static_cast<unsigned char*>(mempool_alloc(pool.get(), 32));
      ASSERT_NE(block, nullptr);
      memset(block, thread, 32);
      ASSERT_EQ(block[31], thread);
      mempool_free(pool.get(), block);
    }
  });
  int left = 0;
  while (mempool_alloc(pool.get(), 1) != nullptr) left++;
  EXPECT_EQ(left, 8);
}

TEST(Objects, ThatAreNone) {
  const blpkt_callback none[] = {nullptr};
  EXPECT_EQ(process_line("OK", nullptr, NUMERIC, ""), 1);
  mempool_destroy(nullptr);
  blpkt_set_event_callbacks(none);
  blpkt_set_event_callbacks(nullptr);
  blpkt_set_log_callbacks(none);
  blpkt_set_default_event_callback(nullptr);
  blpkt_set_default_log_callback(nullptr);
  for (const uint32_t status : {briolib_get_sim_plmn_data(nullptr), briolib_update_sim_plmn_data(nullptr),
                                briolib_get_sim_info_data(nullptr), briolib_update_sim_info_data(nullptr)}) {
    EXPECT_EQ(status, 6u);
  }
  EXPECT_EQ(briolib_base64_decode("aGk=", nullptr, 4, 3), -1);
  uint8_t plmn[3];
  const char digits[] = {'3', '\0', '1', '0', '\0'};
  EXPECT_EQ(briolib_mccmnc_to_plmn(digits, digits + 1, plmn), 0u);
  EXPECT_EQ(plmn[0] << 16 | plmn[1] << 8 | plmn[2], 0xF3FFFF);  // what follows a text's end is none of it
  const char* const text[] = {"a"};
  uint8_t digest[16];
  EXPECT_EQ(briolib_get_md5_hash(nullptr, 1, digest), 0u);
  EXPECT_EQ(briolib_get_md5_hash(text, 0, digest), 0u);
  EXPECT_EQ(briolib_get_md5_hash(text, 1, nullptr), 0u);
  brio::relaxed_store(gBrioModuleLogMask, ~0u);
  EXPECT_EQ(wabs_report_event(nullptr), 0u);
  brio::relaxed_store(gBrioModuleLogMask, 0u);
  EXPECT_TRUE(log_capture::has("FATAL:ERROR:: AT resp (p_resp) is NULL"));
  EXPECT_TRUE(log_capture::has("bad parameters given to mempool_destroy"));
  EXPECT_EQ(log_capture::lines().size(), 2u);
}

TEST(SharedData, LocksExcludeAndReportMisuse) {
  const struct {
    uint32_t (*lock)(void);
    uint32_t (*unlock)(void);
  } pairs[] = {{briolib_lock_urc_data_mutex, briolib_unlock_urc_data_mutex},
               {briolib_lock_static_data_mutex, briolib_unlock_static_data_mutex}};
  for (const auto& pair : pairs) {
    int turns = 0;
    run_at_once(2, [&](int) {
      for (int i = 0; i < 10000; i++) {
        EXPECT_EQ(pair.lock(), 0u);
        turns++;
        EXPECT_EQ(pair.unlock(), 0u);
      }
    });
    EXPECT_EQ(turns, 20000);
  }
  const brio::UrcDataLock urc_data;
  const brio::StaticDataLock static_data;
  {
    const brio::UrcDataLock inner_urc_data;
    const brio::StaticDataLock inner_static_data;
  }
  for (const auto& pair : pairs) EXPECT_EQ(pair.lock(), 4u) << "held, and not released by the inner guard";
}

// One cache with fixed pointers: every read renews it, a status without an answer does not fill it.
TEST_F(Identity, IsWhatWasReadLast) {
  modemsim::Fault no_sim;
  no_sim.command = "AT+CIMI";
  no_sim.reply = "\r\nERROR\r\n";
  no_sim.replace = true;
  modem().fault(no_sim);
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  modem().clear_faults();
  no_sim.replace = false;
  no_sim.silent = true;
  no_sim.times = 1;
  modem().fault(no_sim);
  ATResponse late = {};
  blpkt_handle_packet(0, &late, nullptr);
  sim_plmn_data plmn;
  EXPECT_EQ(brio_get_sim_plmn_info(&plmn, 1), 4u);
  const char* const imsi = briolib_get_sim_imsi();
  const char* const iccid = briolib_get_sim_iccid();
  EXPECT_STREQ(imsi, "310410123456789");
  modem().with_state([](modemsim::State& sim) { sim.imsi = "26201123456789", sim.iccid = "8949"; });
  sim_identity block;
  memset(&block, 'x', sizeof block);
  EXPECT_EQ(brio_get_sim_info(&block), 0u);
  EXPECT_EQ(std::string(block.iccid, sizeof block.iccid), "8949" + std::string(20, '\0'));
  EXPECT_EQ(block.imsi[sizeof block.imsi - 1], '\0');
  EXPECT_STREQ(imsi, "26201123456789");
  EXPECT_STREQ(iccid, "8949");
  modem().with_state([](modemsim::State& sim) { sim.imsi = "440101234567890"; });
  EXPECT_EQ(brio_get_sim_plmn_info(&plmn, 1), 0u);
  EXPECT_STREQ(imsi, "440101234567890");
  strcpy(plmn.home_mcc, "999");  // a home PLMN that the host knows
  EXPECT_EQ(briolib_update_sim_plmn_data(&plmn), 0u);
  EXPECT_EQ(brio_get_sim_plmn_info(&plmn, 1), 0u);
  EXPECT_STREQ(plmn.home_mcc, "999");
  run_at_once(3, [](int) {
    sim_identity mine;
    for (int i = 0; i < 20; i++) EXPECT_EQ(brio_get_sim_info(&mine), 0u);
    EXPECT_STREQ(mine.imsi, "440101234567890");
  });
}

// Readers of the record never wait for syslog.
TEST_F(Identity, NoLineIsLoggedUnderTheRecordsLock) {
  brio::relaxed_store(g_brio_lib_log_mask, BRIO_LOG_DEBUG | BRIO_LOG_REG);
  const auto report = [](std::string line) { return at_parse(&line[0], nullptr, nullptr); };
  const std::pair<const char*, std::function<uint32_t()>> places[] = {
      {"WAN_TYPE:updated", [] { return brio_open("/dev/ttyACM2"); }},
      {"emm_state[", briolib_update_lte_info},
      {"GTSCINFO: RAT", briolib_get_gtscinfo},
      {"GTSCSTAT: PDP", briolib_get_gtscstat},
      {"PARSE_REG:RAT", briolib_atcmd_query_reg_status},
      {"I blib:URC::+CREG", [&] { return report("+CREG: 1,\"1\",\"2\",7"); }},
      {"gtbars: ", [&] { return report("+GTBARS: 7,2,3,4"); }},
      {"Fatal Reject", [&] { return report("+GTOTAREJECT: 1,5,8,310,410"); }},
  };
  for (const auto& [part, action] : places) {
    uint32_t status = 9;
    log_capture::on_line(part, [&status] {
      status = briolib_lock_urc_data_mutex();
      if (status == 0) briolib_unlock_urc_data_mutex();
    });
    EXPECT_EQ(action(), 0u) << part;
    EXPECT_EQ(status, 0u) << part;
  }
}
