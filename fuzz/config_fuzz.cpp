// The parsers of SIM identities, modem identity and modem configuration, base64 and the static information
// text from any bytes. Each record stands in a heap block of its own, so that a sanitizer sees every byte
// beside it.
//
// Input: which parser (1 byte: "d" to "h" in the order below), then its line, file line or record.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "brio/briolib.h"
#include "parse/modem_config.h"
#include "parse/modem_info.h"
#include "parse/sim_identity.h"
#include "static_info.h"

namespace {

using namespace brio::parse;

void require(bool holds) {
  if (!holds) abort();
}

template <size_t N>
void require_text(const char (&text)[N]) {
  require(strnlen(text, N) < N);
}

void fuzz_identities(const char* line) {
  struct Texts {
    char iccid[kIccidSize];
    char imsi[kImsiSize];
    char mcc[4];
    char mnc[4];
  };
  auto texts = std::make_unique<Texts>();
  parse_iccid(line, texts->iccid);
  require_text(texts->iccid);
  if (!parse_imsi(line, texts->imsi)) return;
  require_text(texts->imsi);
  home_plmn(texts->imsi, texts->mcc, texts->mnc);
  require_text(texts->mcc);
  require_text(texts->mnc);
  require(strncmp(texts->imsi, texts->mcc, strlen(texts->mcc)) == 0);
}

void fuzz_modem_info(const char* line) {
  auto info = std::make_unique<modem_info>();
  int fields = parse_modem_info(line, info.get());
  require(fields >= 1 && fields <= 5);
  require_text(info->fw_ver);
  require_text(info->imei);
  require_text(info->serial);
  require_text(info->hw_ver);
}

void fuzz_config(std::string line) {
  uint16_t carrier = 0;
  parse_carrier_id(line.c_str(), &carrier);
  auto model = std::make_unique<char[]>(kModelSize);
  require(parse_model(line.c_str(), model.get()));
  wan_type_of_model(model.get());
  uint8_t type = 0;
  parse_wan_type_line(line.c_str(), &type);
  require(snapshot_mode_of_line(line.c_str()) <= 1);
  std::vector<char> command(line.size() + 16);
  build_remove_command(line.c_str(), "/var/local/wan/info", command.data(), command.size());
  const char* apn = override_apn(&line[0]);
  require(strpbrk(apn, "\r\n") == nullptr);
  auto apn_command = std::make_unique<char[]>(kApnCommandSize);
  build_apn_command(apn, apn_command.get());
  require(strlen(apn_command.get()) < kApnCommandSize);
}

void fuzz_base64(const uint8_t* data, size_t size) {
  const auto length = static_cast<int32_t>(size);
  const auto encoded_length = static_cast<int32_t>((size + 2) / 3 * 4);
  std::vector<char> encoded(static_cast<size_t>(encoded_length) + 1);
  require(briolib_base64_encode(data, encoded.data(), length, encoded_length) == encoded_length);
  std::vector<uint8_t> decoded(static_cast<size_t>(encoded_length / 4 * 3) + 1);
  require(briolib_base64_decode(encoded.data(), decoded.data(), encoded_length, encoded_length / 4 * 3) ==
          length);
  require(memcmp(decoded.data(), data, size) == 0);
  // Any characters, into the smallest block that the call names.
  std::vector<uint8_t> small(size / 2 + 1);
  briolib_base64_decode(data, small.data(), length, static_cast<int32_t>(size / 2));
}

void fuzz_static_info(const uint8_t* data, size_t size) {
  struct Blocks {
    sim_plmn_data plmn;
    sim_info_data info;
  };
  auto blocks = std::make_unique<Blocks>();
  memcpy(blocks.get(), data, size < sizeof(Blocks) ? size : sizeof(Blocks));
  // The counts stand behind long lists: let short inputs reach them too.
  if (size >= 2) memcpy(&blocks->plmn.uplmn_count, data, 2);
  if (size >= 4) memcpy(&blocks->plmn.ehplmn_count, data + 2, 2);
  auto text = std::make_unique<char[]>(brio::kStaticInfoSize);
  brio::static_info_text(blocks->plmn, blocks->info, text.get());
  require(strnlen(text.get(), brio::kStaticInfoSize) < brio::kStaticInfoSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 65536) return 0;
  const std::string line(reinterpret_cast<const char*>(data + 1), size - 1);
  switch (data[0] % 5) {
    case 0:
      fuzz_identities(line.c_str());
      break;
    case 1:
      fuzz_modem_info(line.c_str());
      break;
    case 2:
      fuzz_config(line.c_str());
      break;
    case 3:
      fuzz_base64(data + 1, size - 1);
      break;
    default:
      fuzz_static_info(data + 1, size - 1);
      break;
  }
  return 0;
}
