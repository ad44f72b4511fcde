// Encodings, digests and texts that no session with the library can show.
#include <gtest/gtest.h>
#include <string.h>

#include <fstream>
#include <string>
#include <vector>

#include "base/masked.h"
#include "brio/briolib.h"
#include "lab/log_capture.h"
#include "parse/modem_config.h"
#include "static_info.h"

namespace {

// Texts' digests are transcripts.
TEST(Encodings, DigestsOfFiles) {
  uint8_t digest[16], expected[16];
  const std::string path = ::testing::TempDir() + "brio_md5_file";
  for (size_t size : {0u, 511u, 512u, 513u, 5000u}) {
    const std::string text(size, 'x');
    const char* const texts[] = {text.c_str()};
    std::ofstream(path, std::ios::binary) << text;
    EXPECT_EQ(16u,
              briolib_get_file_md5_hash(path.c_str(), digest) | briolib_get_md5_hash(texts, 1, expected));
    EXPECT_EQ(0, memcmp(digest, expected, sizeof digest)) << size;
  }
  remove(path.c_str());
  const struct {
    const char* path;
    uint8_t* digest;
    const char* line;
  } errors[] = {{nullptr, digest, "::Error in input params.\n"},
                {"/", nullptr, "::Error in input params.\n"},
                {"/nonexistent/file", digest, "::Error in fopen\n"},
                {"/", digest, "::Error in fread\n"}};
  for (const auto& error : errors) {
    log_capture::clear();
    EXPECT_EQ(0u, briolib_get_file_md5_hash(error.path, error.digest));
    EXPECT_TRUE(log_capture::has(std::string("briolib_get_file_md5_hash") + error.line));
  }
}

TEST(Encodings, NumbersThatNameTheSubscriberAreMasked) {
  EXPECT_EQ(brio::LogText(std::string(3000, '4').c_str(), true).c_str(), std::string(2400, '*'));
  EXPECT_STREQ(brio::LogText("+CIMI: 310410123456789").c_str(), "+CIMI: ***************");
  EXPECT_STREQ(brio::LogText("+CREG: 31041012345678").c_str(), "+CREG: 31041012345678");
  EXPECT_STREQ(brio::LogText(nullptr, true).c_str(), "");
  std::string text(65536 + 3, '7');  // counts as 3
  briolib_obfuscate_numeral(&text[0], '*');
  EXPECT_EQ(text.find_last_of('*'), 2u);
}

TEST(Encodings, NamesAreTakenByIndexFirst) {
  const enum_pair rows[] = {{2, "early two"}, {7, "seven"}, {2, "indexed two"}};
  EXPECT_STREQ(enum_to_string(rows, 3, 2), "indexed two");
  EXPECT_STREQ(enum_to_string(rows, 2, 2), "early two");
  EXPECT_STREQ(enum_to_string(rows, 3, 0xFFFFFFFF), "N/A");
  EXPECT_STREQ(enum_to_string(nullptr, 3, 0), "N/A");
}

TEST(Encodings, StaticInformationTextStaysInItsFieldsAndItsSize) {
  sim_plmn_data plmn = {};
  sim_info_data info = {};
  auto text = [&] {
    char buffer[brio::kStaticInfoSize];
    brio::static_info_text(plmn, info, buffer);
    return std::string(buffer, strnlen(buffer, sizeof(buffer)));
  };
  // Texts without end, counts beyond their lists.
  memset(&info, 'A', sizeof(info));
  memset(plmn.ehplmn, '9', sizeof(plmn.ehplmn));
  plmn.ehplmn_count = 65535;
  std::string tail = "999999Null\nPSLOCI: " + std::string(28, 'A') + "\nLOCI: " + std::string(22, 'A') +
                     "\nEPSLOCI: " + std::string(36, 'A') + "\n";
  std::string line = "999999Null 999999Null 999999Null 999999Null ";
  EXPECT_EQ(text(), "EHPLMN: " + line + "999999Null\n      " + line + tail);
  const char* const names[] = {"Null", "G  ", "W  ", "WG ", "L  ", "LG ", "LW ", "LWG", "Null"};
  plmn.ehplmn_count = 1;
  for (uint8_t mask = 0; mask < 9; mask++) {
    plmn.ehplmn[0] = {"310", "26", mask, 0};
    EXPECT_EQ(text().substr(0, 20).find(std::string("EHPLMN: 310 26") + names[mask]), 0u);
  }
  for (auto& entry : plmn.uplmn) entry = {"310", "410", 7, 0};
  plmn.uplmn_count = plmn.oplmn_count = BRIO_UPLMN_MAX;
  EXPECT_EQ(text().size(), brio::kStaticInfoSize - 1);
  EXPECT_EQ(text().find("PSLOCI"), std::string::npos);
}

TEST(Encodings, RemovedFileIsQuotedBelowARootDirectory) {
  const char* const cases[][2] = {{"/var/local/wan/info", "rm -f /var/local/wan/info"},
                                  {"/tmp/a b$(id);'c/info", "rm -f -- '/tmp/a b$(id);'\\''c/info'"}};
  for (const auto& [path, expected] : cases) {
    size_t exact = strlen(expected) + 1;
    for (size_t capacity = 1; capacity <= exact; capacity++) {
      std::vector<char> command(capacity);
      bool fits = brio::parse::build_remove_command(path, "/var/local/wan/info", command.data(), capacity);
      EXPECT_EQ(fits, capacity == exact);
      if (fits) {
        EXPECT_STREQ(command.data(), expected);
      }
    }
  }
}

}  // namespace
