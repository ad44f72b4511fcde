// The parsers of SIM identities, SIM files, modem identity, modem configuration and the trace filter, base64
// and the static information text from any bytes. Each record stands in a heap block of its own, so that a
// sanitizer sees every byte beside it.
//
// Input: which parser ("a" to "h", in the order of kParsers), then its line, file line or record.
#include <strings.h>

#include <vector>

#include "fuzz.h"
#include "parse/modem_config.h"
#include "parse/modem_info.h"
#include "parse/sim_file.h"
#include "parse/sim_identity.h"
#include "parse/sim_status.h"
#include "parse/trace_filter.h"
#include "static_info.h"

namespace fuzz {

using namespace brio::parse;

void fuzz_identities(Bytes bytes) {
  Text line(bytes);
  Field<kIccidSize> iccid;
  Field<kImsiSize> imsi;
  Field<4> mcc;
  Field<4> mnc;
  parse_iccid(line.get(), iccid);
  if (!parse_imsi(line.get(), imsi)) return;
  home_plmn(imsi, mcc, mnc);
  require(strncmp(imsi, mcc, strlen(mcc)) == 0);
}

void fuzz_modem_info(Bytes bytes) {
  auto info = std::make_unique<modem_info>();
  parse_modem_info(Text(bytes).get(), info.get());
  require_text(info->fw_ver, info->imei, info->serial, info->hw_ver);
}

void fuzz_config(Bytes bytes) {
  Text line(bytes);
  require(parse_carrier_id(line.get()).has_value() == (strchr(line.get(), ':') != nullptr));
  Field<kModelSize> model;
  require(parse_model(line.get(), model));
  require(OneOf{0, BRIO_WAN_TYPE_KESTREL, BRIO_WAN_TYPE_OSPREY}.has(wan_type_of_model(model)));
  parse_wan_type_line(line.get());
  require(snapshot_mode_of_line(line.get()) <= 1);
  // The path's quotes are the only way out of the shell's word.
  std::vector<char> command(line.length() + 16);
  if (build_remove_command(line.get(), "/var/local/wan/info", command.data(), command.size()) &&
      strncmp(command.data(), "rm -f -- '", 10) == 0) {
    std::string word(command.data() + 9);
    for (size_t at; (at = word.find("'\\''")) != std::string::npos;) word.erase(at, 4);
    require(std::count(word.begin(), word.end(), '\'') == 2 && word.back() == '\'');
  }
  const char* apn = override_apn(line.get(), line.length());
  if (apn == nullptr) return;
  require(strpbrk(apn, "\r\n\t\"\x1B\x7F;") == nullptr);
  build_apn_command(apn, Field<kApnCommandSize>());
}

void fuzz_base64(Bytes data) {
  const auto length = static_cast<int32_t>(data.size());
  const int32_t groups = (length + 2) / 3;
  const Out encoded(4 * groups);
  const Out decoded(length);
  require(briolib_base64_encode(data.data(), encoded.get(), length, 4 * groups) == 4 * groups);
  require(briolib_base64_decode(encoded.get(), decoded.get(), 4 * groups, 3 * groups) == length);
  require(memcmp(decoded.get(), data.data(), data.size()) == 0);
  // Any characters, into the room that the input's length asks for.
  const int32_t room = length / 4 * 3;
  require(briolib_base64_decode(data.data(), Out(room).get(), length, length / 2) <= room);
}

void fuzz_static_info(Bytes data) {
  static sim_plmn_data plmn;
  static sim_info_data info;
  plmn = {};
  memcpy(&plmn, data.data(), std::min(data.size(), sizeof(plmn)));
  // The counts stand behind long lists, the texts behind them: let short inputs reach all of them.
  uint16_t* const counts[] = {&plmn.uplmn_count, &plmn.oplmn_count, &plmn.fplmn_count, &plmn.hplmn_count,
                              &plmn.ehplmn_count};
  for (size_t i = 0; i < std::size(counts) && 2 * i + 2 <= data.size(); i++) {
    memcpy(counts[i], data.data() + 2 * i, 2);
  }
  info = {};
  memcpy(&info, data.data(), std::min(data.size(), sizeof(info)));
  brio::static_info_text(plmn, info, Field<brio::kStaticInfoSize>());
}

void fuzz_sim_file(Bytes bytes) {
  crsm_file(Text(bytes).get());
  iccid_from_file(Text(bytes).get(), Field<21>());
  iccid_from_line(Text(bytes).get(), Field<24>());
  Text line(bytes);
  char* const end = line.get() + line.length();
  CrsmAnswer answer;
  if (parse_crsm(line.get(), &answer) != CrsmOutcome::kOk) return;
  require(answer.data >= line.get() && answer.data < end && *end == '\0');
  for (bool with_technology : {false, true}) {
    const char* cursor = answer.data;
    plmn_entry entry;
    while (next_plmn(&cursor, with_technology, &entry)) {
      require(cursor > answer.data && cursor <= end && entry.mcc[3] == '\0' && entry.mnc[3] == '\0');
      require((entry.access_tech != 0) == with_technology);
      require(entry.access_tech <= 7 || entry.access_tech == 255);
    }
  }
}

void fuzz_sim_status(Bytes bytes) {
  Text line(bytes);
  const SimStatus status = parse_sim_status(line.get());
  require(status.card_text == line.get() && (status.lock_text || !status.lock) &&
          line.holds(status.lock_text));
}

void fuzz_trace_filter(Bytes bytes) {
  // As the file's reader gives it: one character more than may count.
  const std::vector<char> line(bytes.begin(), bytes.begin() + std::min(bytes.size(), kTraceLineMax + 1));
  Field<kTraceCommandSize> command;
  if (trace_filter_line(line.data(), line.size(), command) != TraceFilterLine::kCommand) return;
  require(strncasecmp(command, "AT+", 3) == 0 && strpbrk(command, " \r\n") == nullptr);
  tm start = {};
  memcpy(&start, bytes.data(), std::min(bytes.size(), 6 * sizeof(int)));
  start.tm_year %= 10000;
  start.tm_mon %= 12;
  trace_file_name(command, start, Field<kTraceNameSize>());
}

constexpr void (*kParsers[])(Bytes) = {fuzz_sim_file,   fuzz_sim_status, fuzz_trace_filter, fuzz_identities,
                                       fuzz_modem_info, fuzz_config,     fuzz_base64,       fuzz_static_info};

void run(Input in) {
  run_parser(kParsers, 'a', in);
}

}  // namespace fuzz
