// Whatever is planted in the place of one of the library's files, no other file is read, written or
// emptied, nothing waits, and the log names what was refused.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "base/files.h"
#include "base/own_threads.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "services/static_info.h"
#include "support/sim_fixture.h"

namespace {

// `other` is another file's text, `shows` what log, commands or page hold if it is taken for this file's.
struct Place {
  const char* path;
  const char* other;
  const char* shows;
  const char* refusal;
  bool written = false;
};
constexpr Place kPlaces[] = {
    {"/var/local/wan/briolib_log_config", "77187\n", "[0x77187]", "wan/briolib_log_config,errno="},
    {"/var/run/mcsdwc.dat", "9 AT+X\n", "AT+X\n", "mcsdwc.dat,errno="},
    {"/var/local/wan/info", "WAN_TYPE=187\n", "to:[187]", "wan/info,errno="},
    {"/mnt/us/apn", "evil\n", "evil", "us/apn,errno="},
    {"/var/local/wan/debug/trace_filter.cfg", "AT+TRACE=evil\n", "evil", "trace_filter.cfg) does not exist"},
    {"/var/local/wan/static_info", "evil\n", "evil", "log_file_handle NULL", true},
    {"/var/local/wan/mcc", "187", "MCC = 187", "wan/mcc\",errno=", true},
    {"/var/run/fatal_reject", "evil", "evil", "FATAL Reject Flag create failure", true},
    {"/mnt/us/trace_log_2026_3_7_9_5_0.istp", "evil", "evil", ".istp\":can't open log file", true},
};

// Plants something at `path`; `other` is the other file. The last one is another user's file, which is
// not written to.
constexpr bool (*kPlants[])(const char* path, const char* other) = {
    [](const char* path, const char* other) { return symlink(other, path) == 0; },
    [](const char* path, const char* other) { return link(other, path) == 0; },
    [](const char* path, const char*) { return mkfifo(path, 0666) == 0; },
    [](const char* path, const char*) { return mkdir(path, 0777) == 0; },
    [](const char* path, const char* other) {
      return rename(other, path) == 0 && chown(path, 4711, 4711) == 0;
    },
};
constexpr size_t kPipe = 2, kForeign = 4;

class Files : public SimFixture {
 protected:
  void close_library() override { wabs_close(); }

  // Everything that opens a file; what the library showed of their contents.
  std::string session() {
    modem().clear_commands();
    log_capture::clear();
    memset(brio::g_sim_info_hash, 0, sizeof(brio::g_sim_info_hash));
    briolib_set_sim_info_md5_status(0);
    EXPECT_EQ(wabs_open(), 0u);
    memcpy(g_brio_lib_atcmd_data.mcc, moved_ ? "302" : "310", 4);
    moved_ = !moved_;
    uint32_t code;
    EXPECT_EQ(wabs_get_mcc_mnc(&code, &code), 0u);
    at_parse(std::string("+GTOTAREJECT: 1,5,7,310,410").data(), nullptr, nullptr);
    std::string shown(8192, ' ');
    EXPECT_EQ(wabs_get_log_string(shown.data(), 8192, 1), 0u);
    EXPECT_EQ(wabs_exit_611_logging() + wabs_get_log_string(nullptr, 0, 0) + wabs_close(), 0u);
    for (const std::string& command : modem().commands()) shown += command + "\n";
    for (const auto& line : log_capture::lines()) shown += line.text + "\n";
    return shown;
  }

  bool moved_ = false;  // to another country: what is cached is not written
};

TEST_F(Files, PlantedAreRefused) {
  setenv("TZ", "UTC", 1);
  test_clock::set_wall(1772874300);
  wabs_set_log_mask(0xFFFFFFFF);
  for (const Place& place : kPlaces) {
    for (size_t i = 0; i < std::size(kPlants); i++) {
      SCOPED_TRACE(std::string(place.path) + ", plant " + std::to_string(i));
      for (const Place& each : kPlaces) root().remove(each.path);
      root().write("/var/local/wan/debug/trace_filter.cfg", "AT+TRACE=1\n");
      root().remove(place.path);
      root().write("/other", place.other);
      if (i == kForeign && (!place.written || geteuid() != 0)) continue;
      ASSERT_TRUE(kPlants[i](root().path(place.path).c_str(), root().path("/other").c_str()));
      const int pipe = i == kPipe ? open(root().path(place.path).c_str(), O_RDWR | O_NONBLOCK) : -1;

      const std::string shown = session();
      const size_t at = i == kForeign ? std::string::npos : shown.find(place.shows);
      EXPECT_EQ(at, std::string::npos) << shown.substr(std::max<size_t>(at, 99) - 99, 120);
      EXPECT_NE(shown.find(place.refusal), std::string::npos);
      EXPECT_EQ(root().read(i == kForeign ? place.path : "/other"), place.other);
      char byte;
      EXPECT_LT(read(pipe, &byte, 1), 0) << "the pipe got bytes";
      close(pipe);
    }
  }
}

// A file that grows as fast as it is read does not hold its reader for ever.
TEST_F(Files, GrowingEnds) {
  std::ofstream growing(root().path("/var/local/wan/info"));
  brio::InputFile file("/var/local/wan/info");
  size_t bytes = 0;
  do growing << std::string(4096, '#') << std::flush;
  while (bytes < 2 * brio::kInputMax && file.read(std::string(4096, ' ').data(), 4096) == 4096 &&
         (bytes += 4096));
  EXPECT_EQ(bytes, size_t{brio::kInputMax});
  EXPECT_TRUE(file.failed() && log_capture::has("wan/info,errno=27:can't read file"));
  EXPECT_FALSE(brio::InputFile("/var/local/wan/info"));  // too long from the beginning
  ASSERT_EQ(truncate(root().path("/var/local/wan/info").c_str(), brio::kInputMax), 0);
  EXPECT_TRUE(brio::InputFile("/var/local/wan/info"));
}

// Stopping a thread that has ended by itself raises no signal in the host.
TEST(OwnThread, StopReachesNobody) {
  brio::OwnThread thread(brio::Thread::kTrace, [](int) {});
  ASSERT_TRUE(thread.open_sockets());
  close(thread.stop_socket());
  EXPECT_EQ(thread.stop(), EPIPE);
}

}  // namespace
