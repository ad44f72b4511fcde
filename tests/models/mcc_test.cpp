// Random networks and files against what the host is to read and the file to hold.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "support/random.h"
#include "support/sim_fixture.h"

namespace {

constexpr char kFile[] = "/var/local/wan/mcc";
constexpr uint32_t kUntouched = 4711;

class MccModel : public SimFixture {
 protected:
  void close_library() override { wabs_close(); }
};

uint32_t number(const std::string& text) {
  return static_cast<uint32_t>(std::atoi(text.c_str()));
}

// The network is asked for after an open and after each report of a change, and its MCC compared with the
// file when it is not the one before.
TEST_F(MccModel, RandomNetworks) {
  Random random(5);
  ASSERT_EQ(wabs_open(), 0u);
  wabs_set_log_mask(WABS_LOG_NOTICE | WABS_LOG_ERROR);
  std::string cached_mcc, cached_mnc, mcc = "310", mnc = "410";
  bool asks = true;
  for (int step = 0; step < 1000; step++) {
    std::optional<std::string> file = root().read(kFile);
    switch (random.below(8)) {
      case 0:
        mcc = random.one_of({"310", "262", "999", "000", "FFF", "31", "3f1", "fff"});
        break;
      case 1:
        mnc = random.one_of({"410", "01", "7", "FFF", "20"});
        break;
      case 2:
        file = random.one_of({"310", "262", "31", "", "2624\n", "000"});
        root().write(kFile, *file);
        break;
      case 3:
        root().remove(kFile);
        file.reset();
        break;
      case 4:
        if (random.chance(80)) break;
        wabs_close();
        ASSERT_EQ(wabs_open(), 0u);
        asks = true;
        break;
      default:
        asks = random.chance(50) || asks;
        if (asks) briolib_exec_event_callback(BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
    }
    {
      brio::UrcDataLock lock;
      std::snprintf(g_brio_lib_atcmd_data.mcc, sizeof g_brio_lib_atcmd_data.mcc, "%s", mcc.c_str());
      std::snprintf(g_brio_lib_atcmd_data.mnc, sizeof g_brio_lib_atcmd_data.mnc, "%s", mnc.c_str());
    }
    std::string logged;
    if (asks && mcc != "FFF" && mcc != cached_mcc) {
      const bool whole = mcc.size() == 3 && mcc.find_first_not_of("0123456789") == std::string::npos;
      if (whole && file && file->size() < 3) logged = "readfile";
      if (whole && (!file || (file->size() >= 3 && file->substr(0, 3) != mcc))) {
        logged = "mccchanged:mcc=" + mcc;
        file = mcc + (file ? file->substr(3) : "");
      }
      cached_mcc = mcc;
    }
    const bool knows_mcc = !asks || mcc != "FFF", knows_mnc = !asks || mnc != "FFF";
    if (asks && knows_mnc) cached_mnc = mnc;
    asks = false;

    log_capture::clear();
    uint32_t numbers[2] = {kUntouched, kUntouched};
    ASSERT_EQ(wabs_get_mcc_mnc(&numbers[0], &numbers[1]), 0u);
    ASSERT_EQ(numbers[0], knows_mcc ? number(cached_mcc) : kUntouched) << step << ": " << mcc;
    ASSERT_EQ(numbers[1], knows_mnc ? number(cached_mnc) : kUntouched) << step << ": " << mnc;
    ASSERT_EQ(root().read(kFile), file) << step << ": " << mcc;
    ASSERT_EQ(log_capture::lines().size(), logged.empty() ? 0u : 1u) << step << ": " << mcc;
    ASSERT_TRUE(logged.empty() || log_capture::has(logged)) << step << ": " << log_capture::lines()[0].text;
  }
}

}  // namespace
