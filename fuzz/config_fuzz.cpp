// The parsers of SIM identities, SIM files, modem identity, modem configuration and the trace filter, base64
// and the static information text from any bytes. Each record stands in a heap block of its own, so that a
// sanitizer sees every byte beside it.
//
// Input: which parser ("a" to "h", in the order of kParsers), then its line, file line or record.
#include <strings.h>

#include <algorithm>
#include <vector>

#include "brio/briolib.h"
#include "fuzz.h"
#include "parse/modem_config.h"
#include "parse/modem_info.h"
#include "parse/sim_file.h"
#include "parse/sim_identity.h"
#include "parse/sim_status.h"
#include "parse/trace_filter.h"
#include "static_info.h"

namespace {

using namespace brio::parse;
using fuzz::require;
using fuzz::require_text;
using fuzz::Text;
using Bytes = std::string_view;

void fuzz_identities(Bytes bytes) {
  struct Texts {
    char iccid[kIccidSize];
    char imsi[kImsiSize];
    char mcc[4];
    char mnc[4];
  };
  Text line(bytes);
  auto texts = std::make_unique<Texts>();
  if (parse_iccid(line.get(), texts->iccid)) require_text(texts->iccid);
  if (!parse_imsi(line.get(), texts->imsi)) return;
  require_text(texts->imsi);
  home_plmn(texts->imsi, texts->mcc, texts->mnc);
  require_text(texts->mcc);
  require_text(texts->mnc);
  require(strncmp(texts->imsi, texts->mcc, strlen(texts->mcc)) == 0);
}

void fuzz_modem_info(Bytes bytes) {
  auto info = std::make_unique<modem_info>();
  const int fields = parse_modem_info(Text(bytes).get(), info.get());
  require(fields >= 1 && fields <= 5);
  require_text(info->fw_ver);
  require_text(info->imei);
  require_text(info->serial);
  require_text(info->hw_ver);
}

void fuzz_config(Bytes bytes) {
  Text line(bytes);
  uint16_t carrier = 0;
  parse_carrier_id(line.get(), &carrier);
  auto model = std::make_unique<char[]>(kModelSize);
  require(parse_model(line.get(), model.get()) && memchr(model.get(), '\0', kModelSize) != nullptr);
  const uint8_t type_of_model = wan_type_of_model(model.get());
  require(type_of_model == 0 || type_of_model == BRIO_WAN_TYPE_KESTREL ||
          type_of_model == BRIO_WAN_TYPE_OSPREY);
  uint8_t type = 0;
  parse_wan_type_line(line.get(), &type);
  require(snapshot_mode_of_line(line.get()) <= 1);
  // The path's quotes are the only way out of the shell's word.
  std::vector<char> command(line.length() + 16);
  if (build_remove_command(line.get(), "/var/local/wan/info", command.data(), command.size()) &&
      strncmp(command.data(), "rm -f -- '", 10) == 0) {
    std::string word(command.data() + 9);
    for (size_t at; (at = word.find("'\\''")) != std::string::npos;) word.erase(at, 4);
    require(std::count(word.begin(), word.end(), '\'') == 2 && word.back() == '\'');
  }
  const char* apn = override_apn(line.get());
  require(strpbrk(apn, "\r\n") == nullptr);
  auto apn_command = std::make_unique<char[]>(kApnCommandSize);
  build_apn_command(apn, apn_command.get());
  require(memchr(apn_command.get(), '\0', kApnCommandSize) != nullptr);
}

void fuzz_base64(Bytes data) {
  const auto length = static_cast<int32_t>(data.size());
  const auto encoded_length = static_cast<int32_t>((data.size() + 2) / 3 * 4);
  std::vector<char> encoded(static_cast<size_t>(encoded_length) + 1);
  require(briolib_base64_encode(data.data(), encoded.data(), length, encoded_length) == encoded_length);
  require(encoded.back() == '\0');
  std::vector<uint8_t> decoded(static_cast<size_t>(encoded_length / 4 * 3) + 1);
  require(briolib_base64_decode(encoded.data(), decoded.data(), encoded_length, encoded_length / 4 * 3) ==
          length);
  require(memcmp(decoded.data(), data.data(), data.size()) == 0);
  // Any characters, into the smallest block that the call names.
  std::vector<uint8_t> small(data.size() / 2 + 1);
  briolib_base64_decode(data.data(), small.data(), length, static_cast<int32_t>(data.size() / 2));
}

void fuzz_static_info(Bytes data) {
  struct Blocks {
    sim_plmn_data plmn;
    sim_info_data info;
  };
  static auto blocks = std::make_unique<Blocks>();
  static auto text = std::make_unique<char[]>(brio::kStaticInfoSize);
  memset(blocks.get(), 0, sizeof(Blocks));
  memcpy(blocks.get(), data.data(), std::min(data.size(), sizeof(Blocks)));
  // The counts stand behind long lists, the texts behind them: let short inputs reach all of them.
  uint16_t* const counts[] = {&blocks->plmn.uplmn_count, &blocks->plmn.oplmn_count, &blocks->plmn.fplmn_count,
                              &blocks->plmn.hplmn_count, &blocks->plmn.ehplmn_count};
  for (size_t i = 0; i < std::size(counts) && 2 * i + 2 <= data.size(); i++) {
    memcpy(counts[i], data.data() + 2 * i, 2);
  }
  memcpy(&blocks->info, data.data(), std::min(data.size(), sizeof(blocks->info)));
  brio::static_info_text(blocks->plmn, blocks->info, text.get());
  require(memchr(text.get(), '\0', brio::kStaticInfoSize) != nullptr);
}

void fuzz_sim_file(Bytes bytes) {
  crsm_file(Text(bytes).get());
  Text line(bytes);
  char* const end = line.get() + line.length();
  CrsmAnswer answer;
  if (parse_crsm(line.get(), &answer) == CrsmOutcome::kOk) {
    require(answer.data >= line.get() && answer.data < end && *end == '\0');
    for (bool with_technology : {false, true}) {
      const char* cursor = answer.data;
      plmn_entry entry;
      while (next_plmn(&cursor, with_technology, &entry)) {
        require(cursor > answer.data && cursor <= end && entry.mcc[3] == '\0' && entry.mnc[3] == '\0');
        require(with_technology
                    ? entry.access_tech == 255 || (entry.access_tech >= 1 && entry.access_tech <= 7)
                    : entry.access_tech == 0);
      }
    }
  }
  struct Texts {
    char of_file[21];
    char of_line[24];
  };
  auto texts = std::make_unique<Texts>();
  iccid_from_file(Text(bytes).get(), texts->of_file);
  iccid_from_line(Text(bytes).get(), texts->of_line);
  require_text(texts->of_file);
  require_text(texts->of_line);
}

void fuzz_sim_status(Bytes bytes) {
  Text line(bytes);
  const SimStatus status = parse_sim_status(line.get());
  require(status.card_text == line.get());
  require(status.lock_text == nullptr ||
          (status.lock_text > line.get() && status.lock_text <= line.get() + line.length()));
}

void fuzz_trace_filter(Bytes bytes) {
  // As the file's reader gives it: one character more than may count.
  const std::vector<char> line(bytes.begin(), bytes.begin() + std::min(bytes.size(), kTraceLineMax + 1));
  struct Command {
    char text[kTraceCommandSize];
  };
  static auto command = std::make_unique<Command>();
  memset(command.get(), 'x', sizeof(Command));
  if (trace_filter_line(line.data(), line.size(), command->text) != TraceFilterLine::kCommand) return;
  require_text(command->text);
  require(strncasecmp(command->text, "AT+", 3) == 0 && strpbrk(command->text, " \r\n") == nullptr);
  char name[kTraceNameSize];
  tm start = {};
  memcpy(&start, bytes.data(), std::min(bytes.size(), 6 * sizeof(int)));
  start.tm_year %= 10000;
  start.tm_mon %= 12;
  trace_file_name(command->text, start, name);
  require_text(name);
}

constexpr void (*kParsers[])(Bytes) = {fuzz_sim_file,   fuzz_sim_status, fuzz_trace_filter, fuzz_identities,
                                       fuzz_modem_info, fuzz_config,     fuzz_base64,       fuzz_static_info};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  const auto parser = static_cast<uint8_t>(in.byte() - 'a');
  kParsers[parser % std::size(kParsers)](in.rest());
  return 0;
}
