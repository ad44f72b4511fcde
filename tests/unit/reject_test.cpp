// Network reject reports and the fatal-reject flag.
#include "parse/reject.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/exact_text.h"
#include "support/log_capture.h"
#include "support/sim_fixture.h"

namespace {

constexpr char kFlag[] = "/var/run/fatal_reject";

TEST(RejectParser, EmptyAndMissingFields) {
  using namespace brio::parse;
  struct {
    const char* text;
    uint32_t fields;
  } const cases[] = {
      {" 1,5,7,310,410", kRejectProcedure | kRejectCause | kRejectMcc | kRejectMnc},
      {" 1,5,7,310", kRejectProcedure | kRejectCause | kRejectMcc},
      {"1,5,,310,410,9,9", kRejectProcedure | kRejectMcc | kRejectMnc},
      {"1, ,7,310,410", kRejectCause | kRejectMcc | kRejectMnc},
      {"12345678", 0},
      {",,,,,,,,", 0},
  };
  for (const auto& c : cases) {
    ExactText text(c.text);
    EXPECT_EQ(parse_reject(text.get()).fields, c.fields) << c.text;
  }
}

TEST(RejectParser, FatalCauses) {
  for (int procedure = 0; procedure < 256; procedure++) {
    for (int cause = 0; cause < 256; cause++) {
      const bool protocol = procedure == 1 || procedure == 3 || procedure == 5;
      const bool barred = cause == 2 || cause == 3 || cause == 6 || cause == 7 || cause == 8;
      EXPECT_EQ(brio::parse::is_fatal_reject(static_cast<uint8_t>(procedure), static_cast<uint8_t>(cause)),
                protocol && barred);
    }
  }
}

class RejectState : public ::testing::Test {
 protected:
  void SetUp() override {
    brio_set_root_dir(root.dir().c_str());
    log_capture::clear();
    g_brio_lib_log_mask = 0;
    std::memset(&data, 0, sizeof(data));
  }
  void TearDown() override { brio_set_root_dir(nullptr); }

  void report(const std::string& payload) {
    ExactText text(payload);
    brio::UrcDataLock lock;
    briolib_parse_gtotareject(text.get());
  }

  DeviceRoot root;
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
};

TEST_F(RejectState, EachProcedureHasItsPlace) {
  struct {
    int procedure;
    int byte;  // 0: nothing is stored
    int word;
    const char* name;
  } const cases[] = {{1, 1, 0, "CS"},  {3, 2, 2, "PS"}, {4, 3, 4, "SM"}, {5, 4, 6, "EMM"},
                     {6, 5, 8, "ESM"}, {0, 0, 0, ""},   {2, 0, 0, ""},   {7, 0, 0, ""}};
  g_brio_lib_log_mask = BRIO_LOG_DEBUG;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.procedure);
    std::memset(&data, 0, sizeof(data));
    log_capture::clear();
    report(" 1," + std::to_string(c.procedure) + ",11,262,05");
    brio_atcmd_data expected = {};
    if (c.byte != 0) {
      expected.reject_bytes[c.byte] = 11;
      expected.reject_words[c.word] = 262;
      expected.reject_words[c.word + 1] = 5;
      EXPECT_TRUE(log_capture::has("GTOTAREJECT: " + std::string(c.name) + "_REJ_CAUSE[11]"));
      EXPECT_TRUE(log_capture::has("GTOTAREJECT: " + std::string(c.name) + "_REJ_MCC[262]"));
      EXPECT_TRUE(log_capture::has("GTOTAREJECT: " + std::string(c.name) + "_REJ_MNC[5]"));
    }
    EXPECT_EQ(std::memcmp(data.reject_bytes, expected.reject_bytes, sizeof(expected.reject_bytes)), 0);
    EXPECT_EQ(std::memcmp(data.reject_words, expected.reject_words, sizeof(expected.reject_words)), 0);
  }
  EXPECT_FALSE(root.exists(kFlag)) << "cause 11 is not fatal";
}

TEST_F(RejectState, ShortPayloadIsRefused) {
  report("1,1,7,3");
  report("");
  {
    brio::UrcDataLock lock;
    briolib_parse_gtotareject(nullptr);
  }
  EXPECT_EQ(log_capture::count("briolib_parse_gtotareject:URC payload is invalid:"), 3u);
  EXPECT_EQ(data.reject_bytes[1], 0);
  report("1,1,7,31");
  EXPECT_EQ(data.reject_bytes[1], 7);
}

TEST_F(RejectState, FatalCauseRaisesTheFlag) {
  report("1,6,7,310,410");
  EXPECT_EQ(data.reject_bytes[5], 7);
  EXPECT_FALSE(root.exists(kFlag)) << "ESM causes are never fatal";
  report("1,5,7,310,410");
  EXPECT_EQ(root.read(kFlag).value_or("absent"), "");
  EXPECT_TRUE(
      log_capture::has("prv_briolib_check_fatal_reject:PROC:5 Rej Cause:7:Fatal Reject cause received"));
  root.write(kFlag, "left from before");
  report("1,3,2,310,410");
  EXPECT_EQ(root.read(kFlag).value_or("absent"), "");
}

TEST_F(RejectState, FlagThatCannotBeCreatedIsLogged) {
  root.make_directory(kFlag);
  report("1,1,3,310,410");
  EXPECT_EQ(data.reject_bytes[1], 3);
  EXPECT_EQ(log_capture::count("prv_briolib_create_fatal_reject_flag::FATAL Reject Flag create failure"), 1u);
  root.remove(kFlag);
  // A link planted in its place is not followed, a pipe does not hold the event thread.
  root.write("/var/run/victim", "keep me");
  ASSERT_EQ(symlink(root.path("/var/run/victim").c_str(), root.path(kFlag).c_str()), 0);
  report("1,1,3,310,410");
  EXPECT_EQ(root.read("/var/run/victim").value_or(""), "keep me");
  ASSERT_EQ(unlink(root.path(kFlag).c_str()), 0);
  ASSERT_EQ(mkfifo(root.path(kFlag).c_str(), 0600), 0);
  report("1,1,3,310,410");
  EXPECT_EQ(log_capture::count("FATAL Reject Flag create failure"), 3u);
}

}  // namespace
