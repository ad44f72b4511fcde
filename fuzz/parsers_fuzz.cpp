// Parsers from any text: the input's first line is the name of one (kParsers), the rest is what it gets, up
// to its first NUL where it takes a text.
#include <strings.h>
#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <vector>

#include "brio/brio_module.h"
#include "lab/functions.h"
#include "page/log_611_sections.h"
#include "parse/manual_selection.h"
#include "parse/modem_config.h"
#include "parse/modem_info.h"
#include "parse/scan_list.h"
#include "parse/serving.h"
#include "parse/sim_identity.h"
#include "parse/trace_filter.h"
#include "record.h"
#include "services/static_info.h"

namespace fuzz {

using namespace brio::parse;
using namespace brio::page;

// A text to be filled, in a block of its own.
template <size_t N>
struct Field {
  using Array = char[N];
  std::unique_ptr<char[]> bytes{new char[N]()};
  ~Field() { require_text(static_cast<Array&>(*this)); }
  operator Array&() const { return *reinterpret_cast<Array*>(bytes.get()); }
};

// ---- Lines through the dispatch into the shared record and the SIM blocks, under both WAN types. A line
// that begins with "AT" is the command of the next one, which then also gets a card status.

void fuzz_urc(Bytes lines) {
  static const bool prepared = [] {
    brio_set_root_dir("/dev/null");  // no file can be opened below it
    briolib_log_set_log_mask(0xFFFFFFFF);
    return at_parse_init(), watch_events(), true;
  }();
  require(prepared);
  for (const uint8_t wan_type : {BRIO_WAN_TYPE_OSPREY, BRIO_WAN_TYPE_KESTREL}) {
    briolib_init_atcmd_data(0);
    s_pdp_event[0] = s_pdp_event[1] = 0;
    brio_atcmd_data& record = g_brio_lib_atcmd_data;
    record.wan_type = wan_type;
    std::string command;
    for (Bytes left = lines; !left.empty();) {
      const std::string line(take(left, '\n'));
      const bool alone = command.empty();
      Text text(line), its_command(command);
      command = line.rfind("AT", 0) == 0 ? line : "";
      if (!command.empty()) continue;
      sim_card_status card = {0, 15};
      const uint32_t status =
          at_parse(text.get(), alone ? nullptr : its_command.get(), alone ? nullptr : &card);
      require(status == 0 || status == 4);
      check_record();
      check_sim_blocks();
      require(s_pdp_event[0] == 0 || record.ps_reg_status != 0);
      require(record.wan_type == wan_type && (wan_type == BRIO_WAN_TYPE_OSPREY || record.band == 0));
    }
  }
}

// ---- Answers and files

void fuzz_serving(Text& text) {
  const std::string before = text.get();
  Text lte(before), states(before), cops(Bytes(before).substr(0, kCopsTextMax));
  const ServingCell cell = parse_serving_cell(text.get());
  require(text.holds(cell.plmn_text) && text.holds(cell.band_text) &&
          (!cell.tac || (cell.rat == 8 && !cell.lac)));
  const LteInfo info = parse_lte_info(lte.get());
  require(lte.holds(info.mcc) && lte.holds(info.mnc));
  require(text.commas >= 5 || !parse_protocol_states(states.get()).rrc);
  CopsAnswer answer;
  const bool found = parse_cops(cops.get(), &answer) == CopsResult::kOk;
  require_text(answer.mcc, answer.mnc);
  require((!answer.mode || (*answer.mode >= -1 && *answer.mode <= 1)) &&
          strlen(answer.mcc) == (found ? 3u : 0u));
  require(found ? strlen(answer.mnc) >= 2 : answer.mnc[0] == '\0');
}

void fuzz_selection(Text& text) {
  const std::optional<ManualSelection> selection = parse_manual_selection(text.get());
  require(!selection || (selection->command > text.get() && text.holds(selection->command)));
  require(!selection || (*selection->command != '\0' && strchr(selection->command, '\n') == nullptr));
}

// Entries that the scan keeps stay as they were while the rest of the line is cut up.
void fuzz_scan(Text& text) {
  ScanList list;
  if (start_scan(text.get(), &list) != kScanOk) return;
  char early[4096], late[4096];
  size_t length = 0, again = 0;
  std::vector<ScanEntry> kept;
  for (size_t steps = 0; kept.size() < kScanEntriesMax; steps++) {
    require(steps <= text.length);
    ScanEntry entry;
    ScanFault fault;
    const ScanStep step = next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) break;
    require((step == ScanStep::kError) == (fault.error != kScanOk));
    if (step != ScanStep::kEntry) continue;
    require(strlen(entry.mcc) == 3 && strlen(entry.mnc) >= 2 && strlen(entry.access_technology) > 0);
    require(strcmp(entry.long_name, "\"\"") == 0 || strcmp(entry.short_name, "\"\"") == 0);
    if (!append_scan_entry(entry, early, sizeof(early), &length)) break;
    kept.push_back(entry);
  }
  for (const ScanEntry& entry : kept) require(append_scan_entry(entry, late, sizeof(late), &again));
  require(length == again && length <= text.length + kScanEntryGrowth * kept.size());
  if (kept.empty()) return;
  require(memcmp(early, late, length) == 0);
  // Marking the current network changes at most one character.
  mark_current_network(late, kept.back().mcc, kept.back().mnc, kept.back().access_technology);
  const size_t place = std::mismatch(early, early + length, late).first - early;
  require(place == length || (early[place] == '1' && late[place] == '2' &&
                              memcmp(early + place + 1, late + place + 1, length - place - 1) == 0));
}

void fuzz_identity(Text& line) {
  Text other(line.get()), third(line.get());
  modem_info info = {};
  parse_modem_info(third.get(), &info);
  require_text(info.fw_ver, info.imei, info.serial, info.hw_ver);
  Field<kIccidSize> iccid;
  Field<kImsiSize> imsi;
  Field<4> mcc, mnc;
  parse_iccid(other.get(), iccid);
  if (!parse_imsi(line.get(), imsi)) return;
  home_plmn(imsi, mcc, mnc);
  require(strncmp(imsi, mcc, strlen(mcc)) == 0);
}

void fuzz_config(Text& line) {
  require(parse_carrier_id(line.get()).has_value() == (strchr(line.get(), ':') != nullptr));
  Field<kModelSize> model;
  require(parse_model(line.get(), model));
  const auto type = wan_type_of_model(model);
  require(type == 0 || type == BRIO_WAN_TYPE_KESTREL || type == BRIO_WAN_TYPE_OSPREY);
  parse_wan_type_line(line.get());
  require(snapshot_mode_of_line(line.get()) <= 1);
  // The path's quotes are the only way out of the shell's word.
  std::vector<char> command(line.length + 16);
  if (build_remove_command(line.get(), "/var/local/wan/info", command.data(), command.size()) &&
      strncmp(command.data(), "rm -f -- '", 10) == 0) {
    std::string word(command.data() + 9);
    for (size_t at; (at = word.find("'\\''")) != std::string::npos;) word.erase(at, 4);
    require(std::count(word.begin(), word.end(), '\'') == 2 && word.back() == '\'');
  }
  const char* apn = override_apn(line.get(), line.length);
  if (apn == nullptr) return;
  require(strpbrk(apn, "\r\n\t\"\x1B\x7F;") == nullptr);
  build_apn_command(apn, Field<kApnCommandSize>());
}

void fuzz_static_info(Bytes data) {
  static sim_plmn_data plmn;
  sim_info_data info = {};
  plmn = {};
  memcpy(&plmn, data.data(), std::min(data.size(), sizeof(plmn)));
  // The counts stand behind long lists, the texts behind them: let short inputs reach all of them.
  uint16_t* const counts[] = {&plmn.uplmn_count, &plmn.oplmn_count, &plmn.fplmn_count, &plmn.hplmn_count,
                              &plmn.ehplmn_count};
  for (size_t i = 0; i < std::size(counts) && 2 * i + 2 <= data.size(); i++)
    memcpy(counts[i], data.data() + 2 * i, 2);
  memcpy(&info, data.data(), std::min(data.size(), sizeof(info)));
  brio::static_info_text(plmn, info, Field<brio::kStaticInfoSize>());
}

void fuzz_trace(Bytes bytes) {
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

// ---- The 611 page of any snapshot into a buffer of any size: view, size, snapshot and network values as
// they lie in memory, then the static information text

struct Page {
  uint8_t view;
  uint16_t capacity;
  atcmd_snapshot snapshot;
  NetInfo net;
  char iccid[24];
  int32_t sar_mode;
};

uint32_t build(char* buffer, uint32_t capacity, const Page& v, const std::string& info) {
  brio::TextWriter page(buffer, capacity);
  require(write_sections(
      page, {&v.snapshot, v.iccid, &v.net, v.sar_mode, v.view % 2 != 0 ? View::kFull : View::kMasked}));
  const int memory = memfd_create("static_info", 0);
  require(pwrite(memory, info.data(), info.size(), 0) == static_cast<ssize_t>(info.size()));
  brio::InputFile file(memory);
  write_static_info(page, &file);
  return page.written();
}

void fuzz_page(Bytes input) {
  Page v = {};
  const size_t head = std::min(input.size(), sizeof(v));
  memcpy(&v, input.data(), head);
  const std::string info(input.substr(head, 16384));
  auto& s = v.snapshot;
  for (char* end : {&s.mcc[3], &s.mnc[3], std::end(s.plmn_text) - 1, std::end(s.band_text) - 1,
                    std::end(s.fw_ver) - 1, std::end(s.lib_ver) - 1, std::end(s.imei) - 1,
                    std::end(v.net.address) - 1, std::end(v.net.destination) - 1, std::end(v.iccid) - 1})
    *end = '\0';
  static char whole[65536];
  const uint32_t length = build(whole, sizeof(whole), v, info), size = v.capacity % 8192;
  const std::unique_ptr<char[]> part(new char[size]);
  require(length == strlen(whole) && build(part.get(), size, v, info) == std::min(length, size));
  require(size == 0 || part.get() == Bytes(whole, std::min(length, size - 1)));
}

void fuzz_net_dev(Text& line) {
  Text band(line.get()), address(line.get());
  TrafficSample sample = {1, 2, 3};
  parse_net_dev_line(line.get(), kWwanInterface, &sample);
  mask_band(band.get());
  mask_ip_address(address.get());
}

template <void (*kParser)(Text&)>
void of_text(Bytes bytes) {
  Text text(bytes);
  kParser(text);
}

const std::map<Bytes, void (*)(Bytes)> kParsers = {
    {"urc", fuzz_urc},
    {"serving", of_text<fuzz_serving>},
    {"selection", of_text<fuzz_selection>},
    {"scan", of_text<fuzz_scan>},
    {"identity", of_text<fuzz_identity>},
    {"config", of_text<fuzz_config>},
    {"static_info", fuzz_static_info},
    {"trace", fuzz_trace},
    {"page", fuzz_page},
    {"net_dev", of_text<fuzz_net_dev>},
};

// Functions of sessions whose texts stand in blocks of their own: their words are the rest of the input.
constexpr Bytes kWords =
    " at_tok process_line base64_encode base64_decode mark_current_network md5 is_string_digit"
    " is_hex_string_valid briolib_obfuscate_alphabet briolib_obfuscate_numeral ";

void run(Bytes input) {
  static const bool added = (lab::add_parts(lab::calls()), true);
  require(added);
  const std::string name(take(input, '\n'));
  const auto parser = kParsers.find(name);
  if (parser != kParsers.end()) return parser->second(input);
  if (name.empty() || kWords.find(" " + name + " ") == Bytes::npos) return;
  lab::Arguments words{std::string(input)};
  try {
    lab::calls()[name](words);
  } catch (const std::exception&) {  // words that are missing or too many
  }
}

}  // namespace fuzz
