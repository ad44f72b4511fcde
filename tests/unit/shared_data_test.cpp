// Locks of the shared record and copies of the SIM blocks; the record's resets are transcripts.
#include "brio_common/shared_data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

namespace {

template <typename Block>
void copies_whole(uint32_t (*update)(const Block*), uint32_t (*get)(Block*)) {
  const auto block = std::make_unique<Block>(), back = std::make_unique<Block>();
  std::memset(static_cast<void*>(block.get()), 'i', sizeof(Block));
  brio::StaticDataLock lock;
  EXPECT_EQ(update(block.get()), 0u);
  EXPECT_EQ(get(back.get()), 0u);
  EXPECT_EQ(std::memcmp(block.get(), back.get(), sizeof(Block)), 0);
  EXPECT_EQ(update(nullptr), 6u);
  EXPECT_EQ(get(nullptr), 6u);
}

}  // namespace

TEST(SharedData, SimBlocksCopyWhole) {
  copies_whole(briolib_update_sim_info_data, briolib_get_sim_info_data);
  copies_whole(briolib_update_sim_plmn_data, briolib_get_sim_plmn_data);
}

TEST(SharedData, LocksExcludeAndReportMisuse) {
  const struct {
    uint32_t (*lock)(void);
    uint32_t (*unlock)(void);
  } pairs[] = {{briolib_lock_urc_data_mutex, briolib_unlock_urc_data_mutex},
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
  }
  brio::UrcDataLock urc_data;
  brio::StaticDataLock static_data;
  {
    brio::UrcDataLock inner_urc_data;
    brio::StaticDataLock inner_static_data;
  }
  for (const auto& pair : pairs) EXPECT_EQ(pair.lock(), 4u) << "held, and not released by the inner guard";
}
