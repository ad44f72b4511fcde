#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "brio/briolib.h"
#include "support/log_capture.h"

namespace {

// Encodes into a heap block of exactly `capacity` bytes.
std::pair<int32_t, std::string> encode(const std::string& input, int32_t capacity) {
  std::vector<char> output(static_cast<size_t>(capacity > 0 ? capacity : 0));
  int32_t length =
      briolib_base64_encode(input.data(), output.data(), static_cast<int32_t>(input.size()), capacity);
  return {length, std::string(output.data(), length > 0 ? static_cast<size_t>(length) : 0)};
}

std::pair<int32_t, std::string> decode(const std::string& input, int32_t capacity) {
  std::vector<char> output(static_cast<size_t>(capacity > 0 ? capacity : 0));
  int32_t length =
      briolib_base64_decode(input.data(), output.data(), static_cast<int32_t>(input.size()), capacity);
  size_t written = length > 0 ? std::min(static_cast<size_t>(length), output.size()) : 0;
  return {length, std::string(output.data(), written)};
}

using Result = std::pair<int32_t, std::string>;

TEST(Base64, Rfc4648Vectors) {
  const char* const vectors[][2] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"hi", "aGk="},
      {"\xFB\xEF\xBE", "++++"},
      {"\xFF\xFF\xFF", "////"},
  };
  for (const auto& v : vectors) {
    std::string text = v[0];
    std::string encoded = v[1];
    auto size = static_cast<int32_t>(encoded.size());
    EXPECT_EQ(Result(size, encoded), encode(text, size));
    EXPECT_EQ(Result(static_cast<int32_t>(text.size()), text), decode(encoded, size / 4 * 3)) << encoded;
  }
}

TEST(Base64, ThereAndBackForEveryLength) {
  std::mt19937 random(1);
  for (int32_t length = 0; length < 200; length++) {
    std::string text(static_cast<size_t>(length), '\0');
    for (auto& c : text) c = static_cast<char>(random());
    auto encoded = encode(text, 300);
    ASSERT_EQ((length + 2) / 3 * 4, encoded.first);
    EXPECT_EQ(Result(length, text), decode(encoded.second, encoded.first / 4 * 3));
  }
}

TEST(Base64, EncodeCapacityAndLengthRules) {
  char output[8] = {};
  EXPECT_EQ(-1, briolib_base64_encode("hi", output, 2, 3));
  EXPECT_EQ(4, briolib_base64_encode("hi", output, 2, 4));
  EXPECT_EQ(-1, briolib_base64_encode("hi", output, -1, 8));
  EXPECT_EQ(-1, briolib_base64_encode("hi", output, 0, -1));
  EXPECT_EQ(0, briolib_base64_encode(nullptr, nullptr, 0, 0));
  EXPECT_EQ(-1, briolib_base64_encode(nullptr, output, 2, 8));
  EXPECT_EQ(-1, briolib_base64_encode("hi", output, INT32_MAX, INT32_MAX));  // 4 * groups is above 32 bits
}

TEST(Base64, DecodeCapacityIsAnUpperLimitOfTheGroups) {
  EXPECT_EQ(Result(2, "hi"), decode("aGk=", 3));
  EXPECT_EQ(-1, decode("aGk=", 4).first);
  EXPECT_EQ(Result(2, "h"), decode("aGk=", 1));  // the block of one byte is not left
  for (int32_t length : {1, 2, 3, 5, 7})
    EXPECT_EQ(-1, decode(std::string(static_cast<size_t>(length), 'A'), 3).first);
  EXPECT_EQ(0, decode("", 0).first);
  EXPECT_EQ(-1, decode("", 1).first);
  char output[8] = {};
  EXPECT_EQ(2, briolib_base64_decode("aGk=", output, 4, -5));
  EXPECT_EQ(0, output[0]);
  EXPECT_EQ(-1, briolib_base64_decode("aGk=", output, -4, 0));
  EXPECT_EQ(-1, briolib_base64_decode(nullptr, output, 4, 3));
}

TEST(Base64, DecodeTakesAnyCharacter) {
  std::string junk;
  for (int i = 0; i < 256; i++) junk += static_cast<char>(i);
  EXPECT_EQ(192, decode(junk, 192).first);
  EXPECT_EQ(4, decode("====aA==", 6).first);
}

std::string hex(const uint8_t* digest) {
  std::string text;
  char byte[3];
  for (int i = 0; i < 16; i++) {
    snprintf(byte, sizeof(byte), "%02x", digest[i]);
    text += byte;
  }
  return text;
}

std::string md5(const std::vector<const char*>& strings, int32_t count) {
  uint8_t digest[16] = {};
  uint32_t length = briolib_get_md5_hash(strings.data(), count, digest);
  return length == 16 ? hex(digest) : "length " + std::to_string(length);
}

TEST(Md5, Rfc1321VectorsAndConcatenation) {
  EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5({""}, 1));
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", md5({"abc"}, 1));
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", md5({"a", "", "bc"}, 3));
  EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", md5({"message digest"}, 1));
  // Ends at the first null pointer.
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", md5({"abc", nullptr, "def"}, 3));
  EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5({nullptr}, 1));
}

TEST(Md5, RefusesNothingToHash) {
  uint8_t digest[16];
  const char* const strings[] = {"abc"};
  EXPECT_EQ(0u, briolib_get_md5_hash(nullptr, 1, digest));
  EXPECT_EQ(0u, briolib_get_md5_hash(strings, 0, digest));
  EXPECT_EQ(0u, briolib_get_md5_hash(strings, -3, digest));
  EXPECT_EQ(0u, briolib_get_md5_hash(strings, 1, nullptr));
}

TEST(Md5, FileDigestEqualsTextDigestAroundTheBlockSize) {
  const std::string path = ::testing::TempDir() + "brio_md5_file";
  for (size_t size : {0u, 1u, 511u, 512u, 513u, 1024u, 5000u}) {
    std::string text(size, 'x');
    std::ofstream(path, std::ios::binary) << text;
    uint8_t digest[16] = {};
    EXPECT_EQ(16u, briolib_get_file_md5_hash(path.c_str(), digest));
    EXPECT_EQ(md5({text.c_str()}, 1), hex(digest)) << size;
  }
  remove(path.c_str());
}

TEST(Md5, FileErrorsAreLogged) {
  uint8_t digest[16];
  log_capture::clear();
  EXPECT_EQ(0u, briolib_get_file_md5_hash(nullptr, digest));
  EXPECT_EQ(0u, briolib_get_file_md5_hash("/", nullptr));
  EXPECT_EQ(2u, log_capture::count(":briolib_get_file_md5_hash::Error in input params.\n"));
  EXPECT_EQ(0u, briolib_get_file_md5_hash("/nonexistent/file", digest));
  EXPECT_EQ(1u, log_capture::count(":briolib_get_file_md5_hash::Error in fopen\n"));
  EXPECT_EQ(0u, briolib_get_file_md5_hash("/", digest));  // a directory opens but cannot be read
  EXPECT_EQ(1u, log_capture::count(":briolib_get_file_md5_hash::Error in fread\n"));
}

}  // namespace
