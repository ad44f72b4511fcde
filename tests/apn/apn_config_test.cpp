// The APNs of the build configuration reach the modem: brio_misc.cpp compiled with APNs of this test's own,
// on a stand-in for the channel and the SIM.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"

namespace {

std::string s_context;  // the modem's answer to AT+CGDCONT?
std::string s_imsi;
std::vector<std::string> s_commands;

std::vector<std::string> check(const std::string& context, const std::string& imsi) {
  s_context = context;
  s_imsi = imsi;
  s_commands.clear();
  EXPECT_EQ(0u, briolib_check_apn_setting());
  return s_commands;
}

}  // namespace

brio_atcmd_data g_brio_lib_atcmd_data;

uint32_t blpkt_atcmd_request_with_callback(const char* command, uint32_t, const char*, recv_func callback,
                                           void* user_data, uint16_t user_value) {
  s_commands.push_back(command);
  if (callback == nullptr) return 0;
  std::string text = s_context;
  ATLine line = {nullptr, &text[0]};
  ATResponse response = {0, nullptr, &line};
  return callback(&response, user_data, user_value);
}
char* briolib_get_sim_imsi(void) {
  return &s_imsi[0];
}
uint32_t brio_carrier_selection(void) {
  return 0;
}
uint32_t briolib_translate_status(uint32_t packet_status, uint32_t) {
  return packet_status;
}
uint32_t briolib_lock_urc_data_mutex(void) {
  return 0;
}
uint32_t briolib_unlock_urc_data_mutex(void) {
  return 0;
}

namespace {

using Commands = std::vector<std::string>;

TEST(ApnConfig, EachGroupGetsItsOwnApn) {
  brio_set_root_dir("/nonexistent");  // no override file
  const std::string query = "AT+CGDCONT?";
  const std::string set_a = "AT+CGDCONT=1,\"IP\",\"apn.of.group.a\",\"\",0,0";
  const std::string set_b = "AT+CGDCONT=1,\"IP\",\"other-b\",\"\",0,0";
  const std::string holds_a = "+CGDCONT: 1,\"IP\",\"apn.of.group.a\",\"\",0,0";
  const std::string holds_b = "+CGDCONT: 1,\"IP\",\"other-b\",\"\",0,0";
  struct Case {
    std::string imsi;
    std::string context;
    Commands commands;
  };
  const Case cases[] = {
      {"310410123456789", holds_a, {query}},
      {"310410123456789", holds_b, {query, set_a}},
      {"302720123456789", holds_b, {query}},
      {"302720123456789", holds_a, {query, set_b}},
      {"262011234567890", "+CGDCONT: ", {query, set_b}},
      {"3104", holds_a, {query, set_b}},
      {"310410", "+CGDCONT: 1,\"IP\",\"\",\"apn.of.group.a\"", {query}},  // anywhere in the line
  };
  for (const auto& c : cases) EXPECT_EQ(c.commands, check(c.context, c.imsi)) << c.imsi << c.context;
}

}  // namespace
