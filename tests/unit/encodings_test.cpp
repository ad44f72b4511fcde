// Encodings, digests and texts that no session with the library can show.
#include <gtest/gtest.h>
#include <string.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/masked.h"
#include "brio/briolib.h"
#include "parse/modem_config.h"
#include "static_info.h"
#include "support/log_capture.h"

namespace {

// Length and bytes, from a heap block of exactly `capacity` bytes.
std::string coded(int32_t (*call)(const void*, void*, int32_t, int32_t), const std::string& input,
                  int capacity) {
  std::vector<char> output(static_cast<size_t>(capacity > 0 ? capacity : 1));
  int32_t length = call(input.data(), output.data(), static_cast<int32_t>(input.size()), capacity);
  size_t shown =
      length > 0 ? std::min<size_t>(static_cast<size_t>(length), static_cast<size_t>(std::max(capacity, 0)))
                 : 0;
  return std::to_string(length) + ":" + std::string(output.data(), shown);
}

TEST(Encodings, Base64) {
  // RFC 4648, and the alphabet's last characters.
  const char* const vectors[][2] = {{"", ""},
                                    {"f", "Zg=="},
                                    {"fo", "Zm8="},
                                    {"foo", "Zm9v"},
                                    {"foob", "Zm9vYg=="},
                                    {"fooba", "Zm9vYmE="},
                                    {"foobar", "Zm9vYmFy"},
                                    {"hi", "aGk="},
                                    {"\xFB\xEF\xBE", "++++"},
                                    {"\xFF\xFF\xFF", "////"}};
  for (const auto& [plain, code] : vectors) {
    int size = static_cast<int>(strlen(code));
    EXPECT_EQ(coded(briolib_base64_encode, plain, size), std::to_string(size) + ":" + code);
    EXPECT_EQ(coded(briolib_base64_decode, code, size / 4 * 3), std::to_string(strlen(plain)) + ":" + plain);
    if (size > 0) {
      EXPECT_EQ(coded(briolib_base64_encode, plain, size - 1), "-1:");
    }
  }
  std::mt19937 random(1);
  for (int length = 0; length < 200; length++) {
    std::string text(static_cast<size_t>(length), '\0');
    for (auto& c : text) c = static_cast<char>(random());
    std::string code = coded(briolib_base64_encode, text, 300);
    code.erase(0, code.find(':') + 1);
    EXPECT_EQ(coded(briolib_base64_decode, code, static_cast<int>(code.size()) / 4 * 3),
              std::to_string(length) + ":" + text);
  }
  // Decoding: the capacity must not exceed the groups' size, and bounds what is written.
  const struct {
    const char* code;
    int capacity;
    const char* result;
  } rules[] = {{"aGk=", 3, "2:hi"}, {"aGk=", 4, "-1:"}, {"aGk=", 1, "2:h"}, {"aGk=", -5, "2:"},
               {"AAAAA", 3, "-1:"}, {"", 0, "0:"},      {"", 1, "-1:"}};
  for (const auto& rule : rules)
    EXPECT_EQ(coded(briolib_base64_decode, rule.code, rule.capacity), rule.result);
  char output[8] = {};
  EXPECT_EQ(-1, briolib_base64_encode("hi", output, -1, 8));
  EXPECT_EQ(-1, briolib_base64_encode("hi", output, INT32_MAX, INT32_MAX));
  EXPECT_EQ(-1, briolib_base64_encode(nullptr, output, 2, 8));
  EXPECT_EQ(-1, briolib_base64_decode("aGk=", output, -4, 0));
  EXPECT_EQ(-1, briolib_base64_decode(nullptr, output, 4, 3));
}

std::string hex(uint32_t length, const uint8_t* digest) {
  std::string text = std::to_string(length) + ":";
  for (uint32_t i = 0; i < length; i++) {
    char byte[3];
    snprintf(byte, sizeof(byte), "%02x", digest[i]);
    text += byte;
  }
  return text;
}

std::string md5(const std::vector<const char*>& strings) {
  uint8_t digest[16];
  return hex(briolib_get_md5_hash(strings.data(), static_cast<int32_t>(strings.size()), digest), digest);
}

TEST(Encodings, Md5) {
  const std::string abc = "16:900150983cd24fb0d6963f7d28e17f72";  // RFC 1321
  EXPECT_EQ(md5({"abc"}), abc);
  EXPECT_EQ(md5({"a", "", "bc"}), abc);
  EXPECT_EQ(md5({"abc", nullptr, "def"}), abc) << "ends at the first null pointer";
  EXPECT_EQ(md5({""}), "16:d41d8cd98f00b204e9800998ecf8427e");
  const char* const strings[] = {"abc"};
  uint8_t digest[16];
  EXPECT_EQ(0u, briolib_get_md5_hash(nullptr, 1, digest));
  EXPECT_EQ(0u, briolib_get_md5_hash(strings, 0, digest));
  EXPECT_EQ(0u, briolib_get_md5_hash(strings, -3, digest));
  EXPECT_EQ(0u, briolib_get_md5_hash(strings, 1, nullptr));

  const std::string path = ::testing::TempDir() + "brio_md5_file";
  for (size_t size : {0u, 511u, 512u, 513u, 5000u}) {
    std::string text(size, 'x');
    std::ofstream(path, std::ios::binary) << text;
    EXPECT_EQ(hex(briolib_get_file_md5_hash(path.c_str(), digest), digest), md5({text.c_str()})) << size;
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
