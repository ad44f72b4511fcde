// Base64, RFC 4648: standard alphabet, padded, no line breaks.
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "brio/briolib.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';
static_assert(sizeof(kAlphabet) == 64 + 1, "one character for each 6-bit value");

pthread_once_t s_reverse_once = PTHREAD_ONCE_INIT;
uint8_t s_reverse[256];  // character to 6-bit value; written once

void prv_build_reverse() {
  for (uint8_t value = 0; value < 64; value++) s_reverse[static_cast<uint8_t>(kAlphabet[value])] = value;
}

char prv_character(uint32_t group, unsigned index) {
  return kAlphabet[group >> (18 - 6 * index) & 0x3F];
}

}  // namespace

void briolib_base64_init(void) {
  pthread_once(&s_reverse_once, prv_build_reverse);
}

int32_t briolib_base64_encode(const void* input, void* output, int32_t input_length,
                              int32_t output_capacity) {
  if (input_length < 0) return -1;
  int64_t output_length = (static_cast<int64_t>(input_length) + 2) / 3 * 4;
  if (output_length > output_capacity) return -1;
  if (input_length == 0) return 0;
  if (input == nullptr || output == nullptr) return -1;
  const uint8_t* in = static_cast<const uint8_t*>(input);
  char* out = static_cast<char*>(output);
  for (int32_t left = input_length; left > 0; left -= 3, in += 3, out += 4) {
    uint32_t group = static_cast<uint32_t>(in[0]) << 16;
    if (left > 1) group |= static_cast<uint32_t>(in[1]) << 8;
    if (left > 2) group |= in[2];
    out[0] = prv_character(group, 0);
    out[1] = prv_character(group, 1);
    out[2] = left > 1 ? prv_character(group, 2) : kPadding;
    out[3] = left > 2 ? prv_character(group, 3) : kPadding;
    if (left <= 3) break;
  }
  return static_cast<int32_t>(output_length);
}

int32_t briolib_base64_decode(const void* input, void* output, int32_t input_length,
                              int32_t output_capacity) {
  if (input_length < 0 || input_length % 4 != 0) return -1;
  int32_t unpadded_length = input_length / 4 * 3;
  // Meant this way round, and the capacity's only use: the input alone says how much is written.
  if (unpadded_length < output_capacity) return -1;
  if (input_length == 0) return 0;
  if (input == nullptr || output == nullptr) return -1;
  briolib_base64_init();
  const uint8_t* in = static_cast<const uint8_t*>(input);
  uint8_t* out = static_cast<uint8_t*>(output);
  int32_t padding = in[input_length - 2] == kPadding ? 2 : in[input_length - 1] == kPadding ? 1 : 0;
  int32_t output_length = unpadded_length - padding;
  for (int32_t i = 0; i < output_length; i++) {
    const uint8_t* group = in + static_cast<size_t>(i / 3) * 4;
    const int bits = s_reverse[group[0]] << 18 | s_reverse[group[1]] << 12 | s_reverse[group[2]] << 6 |
                     s_reverse[group[3]];
    out[i] = static_cast<uint8_t>(bits >> (16 - 8 * (i % 3)));
  }
  return output_length;
}
