// Result lines of every registered name, with any text behind it, through the dispatch into the shared record
// and the SIM blocks, under both WAN types.
//
// Input: flags (bit 0 the WAN type that names bands, bits 1 to 3 all set: log lines are formatted), then
// lines: the name ("A" to "O", in small letters with the second argument of at_parse), for CRSM the file ("0"
// to "9"), and the text behind the colon up to "\n".
#include "record.h"

namespace fuzz {

constexpr const char* kNames[] = {"",       "CREG",        "CGREG", "STKPCI", "CRSM",        "CCID",
                                  "GTBARS", "GTOTAREJECT", "CIEV",  "CTZV",   "GTSIMSTATUS", "CMT",
                                  "CMTI",   "BASURC"};
constexpr uint8_t kPlainLine = std::size(kNames);  // the text is the whole line
constexpr uint8_t kCrsm = 4;
constexpr const char* kFiles[] = {"12258", "28512", "28513", "28514", "28643",
                                  "28531", "28539", "28542", "28633", "28600"};

void run(Input in) {
  static const bool prepared = [] {
    brio_set_root_dir("/dev/null");  // no file can be opened below it
    return at_parse_init(), watch_events(), true;
  }();
  require(prepared);
  const uint8_t flags = in.byte();
  format_log_lines((flags & 0x0E) == 0x0E);
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
    const uint32_t status = at_parse(Text(line).get(), command.empty() ? nullptr : &command[0],
                                     (choice & 0x20) != 0 ? &card : nullptr);
    require(status == 0 || status == 4);
    check_record();
    if (name == kCrsm) check_sim_blocks();
    const brio_atcmd_data& record = g_brio_lib_atcmd_data;
    require(s_pdp_event[0] == 0 || record.ps_reg_status != 0);
    require(record.wan_type == wan_type && (wan_type == BRIO_WAN_TYPE_OSPREY || record.band == 0));
  }
}

}  // namespace fuzz
