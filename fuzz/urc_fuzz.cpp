// Result lines of every registered name, with any text behind it, through the dispatch into the shared record
// and the SIM blocks, under both WAN types.
//
// Input: flags (bit 0 the WAN type that names bands, bits 1 to 3 all set: log lines are formatted), then
// lines: the name ("A" to "O", in small letters with the second argument of at_parse), for CRSM the file ("0"
// to "9"), and the text behind the colon up to "\n".
#include "record.h"

namespace {

using fuzz::require;
using fuzz::Text;

constexpr const char* kNames[] = {"",       "CREG",        "CGREG", "STKPCI", "CRSM",        "CCID",
                                  "GTBARS", "GTOTAREJECT", "CIEV",  "CTZV",   "GTSIMSTATUS", "CMT",
                                  "CMTI",   "BASURC"};
constexpr uint8_t kPlainLine = std::size(kNames);  // the text is the whole line
constexpr uint8_t kCrsm = 4;
constexpr const char* kFiles[] = {"12258", "28512", "28513", "28514", "28643",
                                  "28531", "28539", "28542", "28633", "28600"};

bool prepare() {
  brio_set_root_dir("/dev/null");  // no file can be opened below it
  at_parse_init();
  fuzz::watch_events();
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool prepared = prepare();
  require(prepared);
  fuzz::Input in(data, size);
  const uint8_t flags = in.byte();
  fuzz::g_format_log_lines = (flags & 0x0E) == 0x0E;
  g_brio_lib_log_mask = fuzz::g_format_log_lines ? 0xFFFFFFFF : 0;
  briolib_init_atcmd_data(0);
  s_pdp_event[0] = s_pdp_event[1] = 0;
  const uint8_t wan_type = (flags & 1) != 0 ? BRIO_WAN_TYPE_OSPREY : BRIO_WAN_TYPE_KESTREL;
  g_brio_lib_atcmd_data.wan_type = wan_type;

  while (!in.empty()) {
    const uint8_t choice = in.byte();
    const uint8_t name = (choice & 0x1F) % (kPlainLine + 1);
    std::string command;
    if (name == kCrsm)
      command = std::string("AT+CRSM=176,") + kFiles[in.byte() % std::size(kFiles)] + ",0,0,0";
    std::string line(name == kPlainLine ? "" : std::string("+") + kNames[name] + ":");
    line += in.field('\n');
    sim_card_status card = {0, 15};
    void* const second = (choice & 0x20) != 0 ? &card : nullptr;
    const uint32_t status = at_parse(Text(line).get(), command.empty() ? nullptr : &command[0], second);
    require(status == 0 || status == 4);
    fuzz::check_record();
    if (name == kCrsm) fuzz::check_sim_blocks();
    const brio_atcmd_data& record = g_brio_lib_atcmd_data;
    require(s_pdp_event[0] == 0 || record.ps_reg_status != 0);
    require(record.wan_type == wan_type && (wan_type == BRIO_WAN_TYPE_OSPREY || record.band == 0));
  }
  return 0;
}
