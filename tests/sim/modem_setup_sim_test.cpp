// Carrier configuration, APN and WAN type against the simulated modem.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/answer_fixture.h"

namespace {

constexpr char kWanInfo[] = "/var/local/wan/info";
constexpr char kApnFile[] = "/mnt/us/apn";
// What a binary file may hold; as a text it ends at the NUL.
const std::string kJunk("\xFF\x00\x01\x7F=\r\x80", 7);

class ModemSetup : public AnswerFixture {
 protected:
  void fresh() {
    modem().clear_faults();
    modem().clear_commands();
    log_capture::clear();
  }
  void insert_sim(const std::string& imsi) {
    modem().with_state([&](modemsim::State& state) { state.imsi = imsi; });
    fresh();
  }
};

std::string set_apn(const std::string& apn) {
  return ("AT+CGDCONT=1,\"IP\",\"" + apn + "\",\"\",0,0").substr(0, 127);
}

TEST_F(ModemSetup, TheWrongCarrierIsReplacedOnEveryRow) {
  open_ready();
  struct Case {
    const char* imsi;
    int accepted;
    const char* carrier;
  };
  const Case cases[] = {
      {"310410123456789", 201, "ATT"},
      {"302720123456789", 201, "ROGERS"},
      {"440101234567890", 216, "DOCOMO"},
      {"234151234567890", 202, "VOD"},
      {"204041234567890", 202, "VOD"},
      {"144010234567890", 216, "DOCOMO"},  // sought anywhere in the first six characters
  };
  for (const auto& c : cases) {
    for (int current : {201, 202, 216, 205, 65535}) {
      modem().with_state([&](modemsim::State& state) { state.carrier_id = current; });
      insert_sim(c.imsi);
      root().write(kWanInfo, "WAN_TYPE=6\n");
      EXPECT_EQ(0u, briolib_check_carrier_confg());
      EXPECT_EQ(static_cast<int16_t>(current), g_brio_lib_atcmd_data.carrier_config);
      EXPECT_EQ(c.accepted, modem().state().carrier_id) << c.imsi << " " << current;
      EXPECT_TRUE(
          log_capture::has("I blib:carrier config:current confg:[" + std::to_string(current) + "]\n"));
      Commands commands = {"AT+GTFDCAR?", "AT+CIMI"};
      const bool replaced = current != c.accepted;
      if (replaced) {
        commands.push_back("AT+CIMI");
        commands.push_back("at+gtfdcar=" + std::to_string(c.accepted));
        EXPECT_TRUE(log_capture::has("I blib:Need udpate carrier ID, currentID[" + std::to_string(current) +
                                     "],mccmnc[" + std::string(c.imsi, 6) + "]::\n"));
        EXPECT_TRUE(log_capture::has(std::string(":factory_test:carrier is ") + c.carrier + ":\n"));
        EXPECT_TRUE(log_capture::has(":factory_test:carrier selection cmd " + commands.back() + ":\n"));
      }
      EXPECT_EQ(commands, modem().commands()) << c.imsi << " " << current;
      EXPECT_EQ(!replaced, root().exists(kWanInfo));
    }
  }
}

TEST_F(ModemSetup, AnUnlistedNetworkChangesNothing) {
  open_ready();
  for (const char* imsi : {"310260123456789", "31041", "3", ""}) {
    insert_sim("");
    answer("AT+CIMI", std::string("\r\n+CIMI: ") + imsi + "\r\n\r\nOK\r\n");
    root().write(kWanInfo, "WAN_TYPE=6\n");
    EXPECT_EQ(6u, briolib_check_carrier_confg()) << imsi;
    EXPECT_EQ((Commands{"AT+GTFDCAR?", "AT+CIMI", "AT+CIMI"}), modem().commands());
    EXPECT_TRUE(root().exists(kWanInfo));
    EXPECT_TRUE(log_capture::has(
        ":factory_test:carrier selection:mccmnc not supported: " + std::string(imsi).substr(0, 6) + "\n"));
    EXPECT_TRUE(log_capture::has(":checkFDCAR::failed to apply new carrier_id, current[201]\n"));
  }
}

TEST_F(ModemSetup, CarrierCheckFailures) {
  open_ready();
  g_brio_lib_atcmd_data.carrier_config = 77;
  for (const char* reply : {kError, kBareOk, "\r\n201\r\n\r\nOK\r\n"}) {
    fresh();
    answer("AT+GTFDCAR?", reply);
    EXPECT_EQ(5u, briolib_check_carrier_confg());
    EXPECT_TRUE(log_capture::has(":checkFDCAR::failed to get carrier_id value[65535]\n"));
    EXPECT_EQ(reply != kError,
              log_capture::has(":recv_func_prv_briolib_carrier_confg::response is invalid\n"));
    EXPECT_EQ(77, g_brio_lib_atcmd_data.carrier_config);
    EXPECT_EQ(Commands{"AT+GTFDCAR?"}, modem().commands());
  }
  fresh();
  answer("AT+CIMI", kError);
  EXPECT_EQ(6u, briolib_check_carrier_confg());
  EXPECT_TRUE(log_capture::has(":checkFDCAR:invalid IMSI:can't read SIM\n"));
  EXPECT_EQ(201, g_brio_lib_atcmd_data.carrier_config);  // stored before the SIM is read
  EXPECT_EQ(6u, brio_carrier_selection());
  EXPECT_TRUE(log_capture::has(":factory_test:invalid IMSI:can't read SIM\n"));
}

TEST_F(ModemSetup, AFailingCarrierCommandStillRemovesTheWanInformation) {
  open_ready();
  insert_sim("440101234567890");
  answer("at+gtfdcar=", kError);
  root().write(kWanInfo, "WAN_TYPE=6\n");
  EXPECT_EQ(4u, briolib_check_carrier_confg());
  EXPECT_FALSE(root().exists(kWanInfo));
  EXPECT_TRUE(log_capture::has(":factory_test:err_no=2:can't set SBP carrier mode\n"));
  EXPECT_TRUE(log_capture::has(":checkFDCAR::failed to apply new carrier_id, current[201]\n"));
  // A directory in its place cannot be removed; the selection goes on.
  fresh();
  root().make_directory(kWanInfo);
  EXPECT_EQ(0u, brio_carrier_selection());
  EXPECT_TRUE(log_capture::has(":factory_test::Failed to remove waninfo file\n"));
}

TEST(ModemSetupRoot, TheRootDirectoryIsQuotedForTheShell) {
  DeviceRoot outer;
  outer.write("/mnt/us/victim", "kept");
  const std::string inner = "/mnt/us/it's; rm -f victim $(id) \"x\"";
  for (const char* folder : {"/dev", "/var/local/wan", "/var/run", "/mnt/us"}) {
    outer.make_directory(inner + folder);
  }
  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(outer.path(inner))) << modem.error();
  brio_set_root_dir(outer.path(inner).c_str());
  ASSERT_EQ(0u, brio_open("/dev/ttyACM2"));
  outer.write(inner + kWanInfo, "WAN_TYPE=6\n");
  const auto old_directory = std::filesystem::current_path();
  std::filesystem::current_path(outer.path("/mnt/us"));
  EXPECT_EQ(0u, brio_carrier_selection());
  std::filesystem::current_path(old_directory);
  EXPECT_FALSE(outer.exists(inner + kWanInfo));
  EXPECT_TRUE(outer.exists("/mnt/us/victim"));
  brio_close();
  brio_set_root_dir(nullptr);
}

TEST_F(ModemSetup, TheApnOfTheCarrierGroupIsWritten) {
  open_ready();
  const std::string a = BRIO_APN_GROUP_A;
  const std::string b = BRIO_APN_GROUP_B;
  struct Case {
    const char* imsi;
    std::string held;
    std::string wanted;
  };
  const Case cases[] = {{"310410123456789", "other", a}, {"310410123456789", a, a},
                        {"302720123456789", "other", b}, {"262011234567890", "", b},
                        {"262011234567890", b, b},       {"31041", "other", b}};
  briolib_log_set_log_mask(BRIO_LOG_DEBUG);
  for (const auto& c : cases) {
    modem().with_state([&](modemsim::State& state) { state.apn = c.held; });
    insert_sim(c.imsi);
    EXPECT_EQ(0u, briolib_check_apn_setting());
    Commands commands = {"AT+CGDCONT?", "AT+CIMI"};
    if (c.held != c.wanted) commands.push_back(set_apn(c.wanted));
    EXPECT_EQ(commands, modem().commands()) << c.imsi << c.held;
    EXPECT_EQ(c.wanted, modem().state().apn);
    EXPECT_TRUE(log_capture::has("I blib:APN::[1,\"IP\",\"" + c.held + "\",\"\",0,0]\n"));
    EXPECT_TRUE(
        log_capture::has(c.wanted == a ? ":carrier is ATT\n" : ":apn check carrier is VOD/DOCO/etc\n"));
  }
}

TEST_F(ModemSetup, ApnCheckFailures) {
  open_ready();
  for (const char* reply : {kError, kBareOk}) {
    fresh();
    answer("AT+CGDCONT?", reply);
    EXPECT_EQ(5u, briolib_check_apn_setting());
    EXPECT_TRUE(log_capture::has(":checkAPN::failed to get APN value\n"));
    EXPECT_EQ(reply != kError, log_capture::has(":prv_briolib_check_apn_setting::response is invalid\n"));
  }
  fresh();
  answer("AT+CIMI", kError);
  EXPECT_EQ(6u, briolib_check_apn_setting());
  EXPECT_TRUE(log_capture::has(":checkAPN:invalid IMSI:can't read SIM\n"));
  insert_sim("262011234567890");
  answer("AT+CGDCONT=", kError);
  EXPECT_EQ(4u, briolib_check_apn_setting());
  EXPECT_TRUE(log_capture::has(":checkAPN:err_no=2:can't set APN\n"));
  // An answer longer than its buffer is cut and searched as far as it goes.
  fresh();
  answer("AT+CGDCONT?", "\r\n+CGDCONT: " + std::string(300, 'x') + BRIO_APN_GROUP_B + "\r\n\r\nOK\r\n");
  EXPECT_EQ(0u, briolib_check_apn_setting());
  EXPECT_EQ(3u, modem().commands().size());
  EXPECT_TRUE(log_capture::has("I blib:APN::[" + std::string(127, 'x') + "]\n"));
}

TEST_F(ModemSetup, TheOverrideFileNamesTheApn) {
  open_ready();
  const std::string long_apn(300, 'a');
  struct Case {
    std::string content;
    Commands commands;
    uint32_t status = 0;
  };
  const Case cases[] = {
      {"m2m.example\n", {set_apn("m2m.example")}},
      {"  m2m.example \t\r\nsecond.line\n", {set_apn("m2m.example")}},
      {"m2m.example", {set_apn("m2m.example")}},
      {"two words\rAT+CFUN=0\n", {set_apn("two words")}},  // one line is one command
      {" \n", {set_apn("")}},
      {"", {}},
      // The modem refuses the command that lost its end.
      {long_apn + "\n", {set_apn(long_apn)}, 4},
      {std::string(1 << 20, 'b'), {set_apn(std::string(300, 'b'))}, 4},
      {kJunk, {set_apn("\xFF")}},
  };
  for (const auto& c : cases) {
    fresh();
    root().write(kApnFile, c.content);
    EXPECT_EQ(c.status, briolib_check_apn_setting()) << c.content.substr(0, 40);
    EXPECT_EQ(c.commands, modem().commands()) << c.content.substr(0, 40);
    EXPECT_EQ(c.commands.size(), log_capture::count(":APN:updated to:["));
  }
  fresh();
  root().write(kApnFile, "m2m.example\n");
  answer("AT+CGDCONT=", kError);
  EXPECT_EQ(4u, briolib_check_apn_setting());
  EXPECT_TRUE(log_capture::has(":checkAPN:err_no=2:can't set APN\n"));
  // Opens, but has no line: nothing to do. One that cannot be opened (a link to itself, for root too) does
  // not override.
  fresh();
  root().remove(kApnFile);
  root().make_directory(kApnFile);
  EXPECT_EQ(0u, briolib_check_apn_setting());
  EXPECT_TRUE(modem().commands().empty());
  EXPECT_EQ(1u, log_capture::count(":readfile:name=/mnt/us/apn,errno=21:can't read file\n"));
  root().remove(kApnFile);
  modem().with_state([](modemsim::State& state) { state.apn = BRIO_APN_GROUP_A; });
  ASSERT_EQ(0, symlink("apn", root().path(kApnFile).c_str()));
  EXPECT_EQ(0u, briolib_check_apn_setting());
  EXPECT_EQ((Commands{"AT+CGDCONT?", "AT+CIMI"}), modem().commands());
}

TEST_F(ModemSetup, OneOverrideHandleStaysOpenAndNoChildInheritsIt) {
  open_ready();
  root().write(kApnFile, "m2m.example\n");
  ASSERT_EQ(0u, briolib_check_apn_setting());
  const size_t before = open_descriptors();
  for (int i = 0; i < 50; i++) ASSERT_EQ(0u, briolib_check_apn_setting());
  EXPECT_EQ(before, open_descriptors());
  int kept = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink(entry.path(), gone);
    if (gone || target != root().path(kApnFile)) continue;
    kept++;
    EXPECT_NE(0, fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
  }
  EXPECT_EQ(1, kept);
}

TEST_F(ModemSetup, TheWanInformationFileDecidesTheWanType) {
  open_ready();
  struct Case {
    std::string content;
    int type;
  };
  const Case cases[] = {
      {"WAN_TYPE=7\n", 7},
      {"WAN_TYPE= 6", 6},
      {"abcdefghi5WAN_TYPE=7", 5},
      {"# comment\nOTHER=1\nWAN_TYPE=7\nWAN_TYPE=6\n", 7},
      {" WAN_TYPE=7\n", 0},
      {"WAN_TYPE=\n", 0},
      {"WAN_TYPE=300\n", 300 - 256},
      {"WAN_TYPE=99\r\n", 99},
      {"", 0},
      {"OTHER=1\n", 0},
      {kJunk, 0},
      {std::string(1 << 20, '7'), 0},
      {std::string(1 << 20, '7') + "\nWAN_TYPE=7\n", 7},
  };
  for (const auto& c : cases) {
    fresh();
    g_brio_lib_atcmd_data.wan_type = 55;
    root().write(kWanInfo, c.content);
    EXPECT_EQ(0u, briolib_update_wan_type());
    EXPECT_EQ(c.type, g_brio_lib_atcmd_data.wan_type) << c.content.substr(0, 40);
    EXPECT_TRUE(log_capture::has("I blib:WAN_TYPE:updated to:[" + std::to_string(c.type) + "]\n"));
    EXPECT_TRUE(modem().commands().empty());
  }
  root().remove(kWanInfo);
  root().make_directory(kWanInfo);
  EXPECT_EQ(0u, briolib_update_wan_type());
  EXPECT_EQ(0, g_brio_lib_atcmd_data.wan_type);
  EXPECT_TRUE(modem().commands().empty());
}

TEST_F(ModemSetup, WithoutAFileTheModelDecidesTheWanType) {
  open_ready();
  ASSERT_EQ(0, symlink("info", root().path(kWanInfo).c_str()));  // cannot be opened, not even by root
  struct Case {
    const char* model;
    int type;
  };
  for (const auto& c : {Case{"L816", 6}, {"L816-GL", 7}, {"L816-GLX", 0}, {"L", 0}}) {
    modem().with_state([&](modemsim::State& state) { state.model = c.model; });
    fresh();
    EXPECT_EQ(0u, briolib_update_wan_type());
    EXPECT_EQ(Commands{"AT+CGMM"}, modem().commands());
    EXPECT_EQ(c.type, g_brio_lib_atcmd_data.wan_type) << c.model;
  }
  for (const char* reply : {kError, kBareOk}) {
    fresh();
    g_brio_lib_atcmd_data.wan_type = 7;
    answer("AT+CGMM", reply);
    EXPECT_EQ(7u, briolib_update_wan_type());
    EXPECT_EQ(0, g_brio_lib_atcmd_data.wan_type);
  }
}

TEST(SnapshotMode, TheStoredSelectionDecidesForTheUnknownMode) {
  DeviceRoot root;
  brio_set_root_dir(root.dir().c_str());
  constexpr char kFile[] = "/var/run/mcsdwc.dat";
  EXPECT_EQ(0u, briolib_get_snapshot_mode(255));
  struct Case {
    std::string content;
    uint32_t mode;
  };
  const Case cases[] = {
      {"300 AT+COPS=0\n", 1},
      {"at+cops=0", 1},
      {"300 AT+COPS=1,2,\"310410\"\n", 0},
      {"\n300 AT+COPS=0\n", 0},
      {"", 0},
      {kJunk, 0},
      {std::string(118, ' ') + "AT+COPS=0", 1},
      {std::string(119, ' ') + "AT+COPS=0", 0},  // 127 characters count
  };
  for (const auto& c : cases) {
    root.write(kFile, c.content);
    EXPECT_EQ(c.mode, briolib_get_snapshot_mode(255)) << c.content;
    for (uint32_t mode : {0u, 1u, 254u, 256u, 0xFFFFFFFFu}) EXPECT_EQ(mode, briolib_get_snapshot_mode(mode));
  }
  const size_t before = open_descriptors();
  briolib_get_snapshot_mode(255);
  EXPECT_EQ(before, open_descriptors());
  root.remove(kFile);
  root.make_directory(kFile);
  EXPECT_EQ(0u, briolib_get_snapshot_mode(255));
  brio_set_root_dir(nullptr);
}

}  // namespace
