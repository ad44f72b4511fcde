// Serving and home network, and the file that outlives the process.
#include <errno.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "module_test.h"

namespace {

namespace fs = std::filesystem;

class MccTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    char name[] = "/tmp/brio_mcc_XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    root_ = name;
    file_ = root_ + "/var/local/wan/mcc";
    fs::create_directories(fs::path(file_).parent_path());
    brio_set_root_dir(root_.c_str());
    open();
  }
  void TearDown() override {
    ModuleTest::TearDown();
    if (seteuid(getuid()) != 0) ADD_FAILURE() << "cannot become root again";
    brio_set_root_dir(nullptr);
    fs::remove_all(root_);
  }

  void write(const std::string& contents) { std::ofstream(file_) << contents; }
  std::string read() {
    std::ostringstream contents;
    contents << std::ifstream(file_).rdbuf();
    return contents.str();
  }
  // The serving network changed, as the modem says.
  void change(const std::string& mcc, const std::string& mnc) {
    g_library.mcc = mcc;
    g_library.mnc = mnc;
    g_library.callbacks[BRIO_EVENT_SERVING_PLMN_CHANGED](BRIO_EVENT_SERVING_PLMN_CHANGED, 0, nullptr);
    forget();
  }
  void query(uint32_t expected_mcc, uint32_t expected_mnc) {
    mcc_ = mnc_ = 999;
    EXPECT_EQ(wabs_get_mcc_mnc(&mcc_, &mnc_), WABS_STATUS_OK);
    EXPECT_EQ(mcc_, expected_mcc);
    EXPECT_EQ(mnc_, expected_mnc);
  }
  bool reported() { return log_capture::has("I brio:mccchanged:mcc=" + g_library.mcc + ":mcc has changed"); }

  std::string root_;
  std::string file_;
  uint32_t mcc_ = 0;
  uint32_t mnc_ = 0;
};

const char kFileLine[] = "name=\"/var/local/wan/mcc\",errno=";

TEST_F(MccTest, FirstQueryCreatesTheFile) {
  umask(0);
  query(310, 410);
  EXPECT_TRUE(
      log_capture::has("D brio:getting mcc and mnc to see if it has changed (wabs_get_mcc_mnc:brio_module:"));
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MCC 310 CACHED MCC DIFFER ("));
  EXPECT_TRUE(log_capture::has("D def:current MCC = 310 no previous MCC ("));
  EXPECT_TRUE(reported());
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MCC=310 ("));
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MNC 410 and CACHED MNC DIFFER ("));
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MNC=410 ("));
  EXPECT_EQ(read(), "310");
  struct stat status = {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);

  // From the cache until an event says otherwise.
  forget();
  query(310, 410);
  EXPECT_TRUE(g_library.calls.empty());
  EXPECT_TRUE(log_capture::has("D brio:CACHED MCC/MNC=310-410 ("));

  change("262", "01");
  query(262, 1);
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MCC 262 CACHED MCC 310DIFFER ("));
  EXPECT_TRUE(log_capture::has("D def:current MCC = 262 previous MCC = 310 ("));
  EXPECT_TRUE(reported());
  EXPECT_EQ(read(), "262");

  // The same again: nothing differs, the file is not looked at.
  fs::remove(file_);
  change("262", "01");
  query(262, 1);
  EXPECT_EQ(g_library.calls.size(), 1u);
  EXPECT_FALSE(log_capture::has("DIFFER"));
  EXPECT_FALSE(fs::exists(file_));
}

TEST_F(MccTest, UnchangedAcrossARestart) {
  write("310");
  auto before = fs::last_write_time(file_) - std::chrono::hours(1);
  fs::last_write_time(file_, before);
  query(310, 410);
  EXPECT_TRUE(log_capture::has("D def:current MCC = 310 previous MCC = 310 ("));
  EXPECT_FALSE(reported());
  EXPECT_EQ(fs::last_write_time(file_), before);
}

// What may stand in the file's place; the numbers are right all the same.
TEST_F(MccTest, FilesThatCannotBeUsed) {
  struct Case {
    const char* name;
    std::function<void()> prepare;
    std::string line;
  };
  const Case cases[] = {
      {"two bytes", [&] { write("31"); }, "E brio:readfile:" + std::string(kFileLine) + "0:can't read file"},
      {"empty", [&] { write(""); }, "E brio:readfile:" + std::string(kFileLine) + "0:can't read file"},
      {"directory", [&] { fs::create_directory(file_); },
       "E brio:readfile:" + std::string(kFileLine) + std::to_string(EISDIR) + ":can't read file"},
      {"no permission",
       [&] {
         write("310");
         fs::permissions(file_, fs::perms::none);
         fs::permissions(root_, fs::perms::all);
         if (geteuid() == 0 && seteuid(65534) != 0) FAIL();
       },
       "E brio:openfile:" + std::string(kFileLine) + std::to_string(EACCES) + ":can't open file"},
  };
  int mcc = 400;
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    fs::remove_all(file_);
    each.prepare();
    change(std::to_string(++mcc), "20");
    query(static_cast<uint32_t>(mcc), 20);
    EXPECT_TRUE(log_capture::has(each.line));
    EXPECT_FALSE(reported());
    // Cached all the same: the next query does not look at the file.
    change(std::to_string(mcc), "20");
    query(static_cast<uint32_t>(mcc), 20);
    EXPECT_FALSE(log_capture::has("can't"));
  }
}

TEST_F(MccTest, OtherContents) {
  write("3104\n" + std::string(1 << 20, 'x'));
  query(310, 410);
  EXPECT_FALSE(reported());  // the first three bytes count
  write(std::string("\x01\0\xff tail", 8));
  change("262", "01");
  query(262, 1);
  EXPECT_TRUE(reported());
  EXPECT_EQ(read(), "262 tail");  // in place, without truncation
}

TEST_F(MccTest, FileThatCannotBeWritten) {
  // No folder: reading says "no file", creating it fails.
  fs::remove_all(fs::path(file_).parent_path());
  query(310, 410);
  EXPECT_TRUE(reported());
  EXPECT_TRUE(log_capture::has("E brio:openfile:" + std::string(kFileLine) + std::to_string(ENOENT) +
                               ":can't open file"));

  // A full disk: two digits fit.
  fs::create_directories(fs::path(file_).parent_path());
  write("999");
  change("262", "01");
  signal(SIGXFSZ, SIG_IGN);
  const rlimit full = {2, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  query(262, 1);
  const rlimit room = {RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
  EXPECT_TRUE(log_capture::has("E brio:writefile:" + std::string(kFileLine) + std::to_string(EFBIG) +
                               ":can't write file"));
}

TEST_F(MccTest, UnknownTextsAndFailures) {
  EXPECT_EQ(wabs_get_mcc_mnc(nullptr, &mnc_), WABS_STATUS_NULL_POINTER);
  EXPECT_EQ(wabs_get_mcc_mnc(&mcc_, nullptr), WABS_STATUS_NULL_POINTER);
  EXPECT_TRUE(g_library.calls.empty());

  // A failure keeps the wish to ask.
  g_library.statuses["brio_get_mcc_mnc"] = {1, 0};
  mcc_ = mnc_ = 999;
  EXPECT_EQ(wabs_get_mcc_mnc(&mcc_, &mnc_), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_TRUE(log_capture::has(get_error("mcc_mnc", 1)));
  EXPECT_EQ(mcc_, 999u);

  g_library.mcc = g_library.mnc = "FFF";
  query(999, 999);
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MCC is Invalid ("));
  EXPECT_TRUE(log_capture::has("D brio:UPDATED MNC is Invalid ("));
  EXPECT_FALSE(fs::exists(file_));
  query(0, 0);  // asked and answered: the empty cache
  EXPECT_EQ(g_library.count("brio_get_mcc_mnc"), 2u);

  change("FFF", "07");
  query(999, 7);
  query(0, 7);
  change("31", "07");  // too short for the file
  query(31, 7);
  EXPECT_FALSE(fs::exists(file_));

  // A fresh open asks again.
  wabs_close();
  ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  g_library.mcc = "310";
  query(310, 7);
}

TEST_F(MccTest, ChangeWhileAskingIsNotLost) {
  g_library.while_asked_for_plmn = [this] {
    g_library.while_asked_for_plmn = nullptr;
    change("262", "01");
  };
  query(310, 410);
  query(262, 1);
}

TEST_F(MccTest, HomeNetworkIsReadOncePerProcess) {
  EXPECT_EQ(wabs_get_hplmn_mcc_mnc(nullptr, &mnc_), WABS_STATUS_NULL_POINTER);
  EXPECT_EQ(wabs_get_hplmn_mcc_mnc(&mcc_, nullptr), WABS_STATUS_NULL_POINTER);
  g_library.statuses["brio_get_sim_plmn_info"] = {4, 0};
  mcc_ = mnc_ = 999;
  EXPECT_EQ(wabs_get_hplmn_mcc_mnc(&mcc_, &mnc_), WABS_STATUS_LIBRARY_FAILURE);
  EXPECT_EQ(mcc_, 999u);
  EXPECT_TRUE(log_capture::has(get_error("plmn_info", 4)));
  EXPECT_TRUE(log_capture::has("D brio:HPLMN mcc[0] mnc[0] (wabs_get_hplmn_mcc_mnc:brio_module:"));
  for (int round = 0; round < 3; round++) {
    EXPECT_EQ(wabs_get_hplmn_mcc_mnc(&mcc_, &mnc_), WABS_STATUS_OK);
    EXPECT_EQ(mcc_, 262u);
    EXPECT_EQ(mnc_, 1u);
    g_library.home_mcc = "310";  // another SIM
    wabs_close();
    ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  }
  EXPECT_EQ(g_library.count("brio_get_sim_plmn_info 3"), 2u);
  EXPECT_TRUE(log_capture::has("D brio:getting HPLMN mcc and mnc ("));
  EXPECT_TRUE(log_capture::has("D brio:HPLMN mcc[262] mnc[1] ("));
}

}  // namespace
