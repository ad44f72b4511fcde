// Static SIM information: which files are read, when the dump is written and when it is left alone.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "static_info.h"
#include "support/answer_fixture.h"

namespace {

constexpr char kFile[] = "/var/local/wan/static_info";
constexpr char kReadIccid[] = "AT+CRSM=176,12258,0,0,0";
const Commands kAllReads = {
    kReadIccid,
    "AT+CRSM=176,28643,0,0,18",
    "AT+CRSM=176,28514,0,0,0",
    "AT+CRSM=176,28513,0,0,0",
    "AT+CRSM=176,28512,0,0,0",
    "AT+CRSM=176,28539,0,0,0",
    "AT+CRSM=176,28531,0,0,14",
    "AT+CRSM=176,28542,0,0,11",
};

// What initial_state() holds.
constexpr char kText[] =
    "UPLMN: 310410LWG 262 01LWG 262 02LWG 262 03LWG 262 07LWG\n      302720L  \n"
    "OPLMN: 310410LW \n"
    "HPLMN: 310410LWG\n"
    "PSLOCI: FFFFFFFFFFFFFF13001400000001\n"
    "LOCI: FFFFFFFF130014FFFE0001\n"
    "EPSLOCI: 0BF61300148001010102030413001400010F\n";

class StaticInfoFile : public AnswerFixture {
 protected:
  void SetUp() override {
    AnswerFixture::SetUp();
    // As at the start of the process.
    memset(brio::g_sim_info_hash, 0, sizeof(brio::g_sim_info_hash));
    briolib_set_sim_info_md5_status(0);
    const auto plmn = std::make_unique<sim_plmn_data>();
    const sim_info_data info = {};
    brio::StaticDataLock lock;
    briolib_update_sim_plmn_data(plmn.get());
    briolib_update_sim_info_data(&info);
  }

  modemsim::State initial_state() override {
    modemsim::State state;
    state.files = {
        {28512, "130014C08062F210C08062F220C08062F230C08062F270C0800302274000FFFFFF0000"},
        {28513, "130014C000FFFFFF0000"},
        {28514, "130014C080"},
        {28539, "FFFFFFFFFFFFFFFFFFFFFFFF"},
        {28531, "FFFFFFFFFFFFFF13001400000001"},
        {28542, "FFFFFFFF130014FFFE0001"},
        {28643, "0BF61300148001010102030413001400010F"},
    };
    return state;
  }

  void force() { EXPECT_EQ(0u, brio_get_sim_static_info(1)); }

  // Makes the file look old, so that a write shows.
  void age() {
    const timespec times[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, root().path(kFile).c_str(), times, 0));
  }
  bool written_since_age() {
    struct stat info = {};
    EXPECT_EQ(0, stat(root().path(kFile).c_str(), &info));
    return info.st_mtime != 1000;
  }
};

TEST_F(StaticInfoFile, FirstReadWritesTheFile) {
  open_ready();
  EXPECT_EQ(0u, briolib_get_sim_info_md5_status());
  umask(022);
  EXPECT_EQ(0u, brio_get_sim_static_info(0));
  EXPECT_EQ(kAllReads, modem().commands());
  EXPECT_EQ(kText, root().read(kFile).value_or("missing"));
  struct stat info = {};
  ASSERT_EQ(0, stat(root().path(kFile).c_str(), &info));
  EXPECT_EQ(0644u, info.st_mode & 07777);
  EXPECT_EQ(1u, briolib_get_sim_info_md5_status());
}

TEST_F(StaticInfoFile, AnUnforcedReadWithAFileAsksForTheIccidOnly) {
  open_ready();
  root().write(kFile, "anything");
  EXPECT_EQ(0u, brio_get_sim_static_info(0));
  EXPECT_EQ(Commands{kReadIccid}, modem().commands());
  EXPECT_EQ("anything", root().read(kFile));
  EXPECT_EQ(0u, briolib_get_sim_info_md5_status());
}

TEST_F(StaticInfoFile, TheSameSimLeavesTheFileAlone) {
  open_ready();
  force();
  age();
  force();
  EXPECT_FALSE(written_since_age());
  modem().with_state([](modemsim::State& state) { state.files[28514] = "62F2104000"; });
  force();
  EXPECT_TRUE(written_since_age());
  EXPECT_NE(std::string::npos, root().read(kFile).value_or("").find("HPLMN: 262 01L  \n"));
}

TEST_F(StaticInfoFile, AFileOfAnEarlierRunIsCompared) {
  root().write(kFile, kText);
  open_ready();
  age();
  force();
  EXPECT_FALSE(written_since_age());
  EXPECT_EQ(1u, briolib_get_sim_info_md5_status());

  // The digest is that of this run from here on, whatever happens to the file.
  root().write(kFile, "damaged");
  force();
  EXPECT_EQ("damaged", root().read(kFile));
  root().remove(kFile);
  force();
  EXPECT_FALSE(root().exists(kFile));
}

TEST_F(StaticInfoFile, AnotherFileOfAnEarlierRunIsReplaced) {
  root().write(kFile, std::string(1 << 20, 'x'));
  open_ready();
  force();
  EXPECT_TRUE(root().read(kFile) == kText);
}

TEST_F(StaticInfoFile, TheFirstTwoFilesAreNeeded) {
  open_ready();
  for (size_t failing : {1u, 2u}) {
    modem().clear_faults();
    modem().clear_commands();
    answer(kAllReads[failing], kError);
    force();
    EXPECT_EQ(Commands(kAllReads.begin(), kAllReads.begin() + static_cast<long>(failing) + 1),
              modem().commands());
    EXPECT_FALSE(root().exists(kFile));
  }
  modem().clear_faults();
  modem().clear_commands();
  answer(kReadIccid, kError);
  for (size_t failing = 3; failing < kAllReads.size(); failing++) answer(kAllReads[failing], kError);
  force();
  EXPECT_EQ(kAllReads, modem().commands());
  EXPECT_EQ("HPLMN: 310410LWG\nPSLOCI: \nLOCI: \nEPSLOCI: 0BF61300148001010102030413001400010F\n",
            root().read(kFile).value_or("missing"));
}

TEST_F(StaticInfoFile, AnAnswerWithoutALineFailsTheRead) {
  open_ready();
  answer(kAllReads[1], "\r\nOK\r\n");
  force();
  EXPECT_TRUE(log_capture::has(":recv_func_prv_briolib_get_crsm::response is invalid"));
  EXPECT_EQ(2u, modem().commands().size());
  EXPECT_FALSE(root().exists(kFile));
}

TEST_F(StaticInfoFile, ADirectoryOrALinkInItsPlaceIsReportedAndKept) {
  open_ready();
  root().make_directory(kFile);
  force();
  EXPECT_EQ(1u, log_capture::count("ERR:log_file_handle NULL file_path=/var/local/wan/static_info\n"));
  root().remove(kFile);
  root().write("/var/local/wan/target", "untouched");
  ASSERT_EQ(0, symlink("target", root().path(kFile).c_str()));
  force();
  EXPECT_EQ(2u, log_capture::count("ERR:log_file_handle NULL file_path=/var/local/wan/static_info\n"));
  EXPECT_EQ("untouched", root().read("/var/local/wan/target"));
  // The next dump tries again.
  root().remove(kFile);
  force();
  EXPECT_EQ(kText, root().read(kFile));
}

TEST_F(StaticInfoFile, AShortWriteIsRepeatedByTheNextDump) {
  open_ready();
  signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited = {};
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &unlimited));
  rlimit limited = unlimited;
  limited.rlim_cur = 10;
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limited));
  force();
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &unlimited));
  EXPECT_TRUE(log_capture::has(":cant write static info\n"));
  EXPECT_EQ(std::string(kText, 10), root().read(kFile));
  force();
  EXPECT_EQ(kText, root().read(kFile));
}

}  // namespace
