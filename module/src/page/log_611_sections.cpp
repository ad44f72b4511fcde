#include "page/log_611_sections.h"

#include <limits.h>
#include <string.h>

#include <algorithm>

#include "base/guards.h"
#include "base/text.h"
#include "brio/brio_module.h"
#include "brio_common/shared_data.h"
#include "page/log_611_names.h"
#include "sar_names.h"

// Item numbers repeat and blanks come before line ends: both belong to the page, which other programs read.

namespace brio::page {
namespace {

using names::name_of;

constexpr uint8_t kRatGsm = 0;
constexpr uint8_t kRatEdge = 3;
constexpr uint8_t kNmoUnknown = 255;
constexpr size_t kStaticInfoLine = 149;  // one line of the static information file and its NUL

enum RejectIndex : size_t { kCs, kPs, kSm, kEmm, kEsm };

void prv_modem(TextWriter& page, const PageInput& input) {
  const atcmd_snapshot& s = *input.snapshot;
  const bool full = input.view == View::kFull;
  page.add(
      "2  ******** MODEM ********\n"
      "2.1  Firmware Version:  %s \n"
      "2.2  Library Version:   %s \n",
      s.fw_ver, s.lib_ver);
  int item = 3;
  if (full) page.add("2.%d  SIM ICCID:  %s \n", item++, input.iccid);
  page.add("2.%d  Carrier ID:  %d \n", item++, s.carrier_config);
  page.add("2.%d  SIM status:  %s (%d) \n", item++, name_of(names::kSimStatus, s.sim_status), s.sim_status);
  page.add("2.%d  WAN type:  %s (%d) \n", item++, name_of(names::kWanType, s.wan_type), s.wan_type);
  if (full) page.add("2.%d  IMEI:  %s \n", item, s.imei);
}

// A value and its name.
void prv_named(TextWriter& page, const char* item, const names::Table& table, uint32_t value) {
  page.add("%s: %s (%d) \n", item, name_of(table, value), value);
}

void prv_registration(TextWriter& page, const PageInput& input) {
  const atcmd_snapshot& s = *input.snapshot;
  page.add("3  ******** STATUS ******** \n");
  prv_named(page, "3.1 CS Reg Status", names::kRegistrationStatus, s.cs_reg_status);
  prv_named(page, "3.2 PS Reg Status", names::kRegistrationStatus, s.ps_reg_status);
}

void prv_network_full(TextWriter& page, const atcmd_snapshot& s, int nmo) {
  page.add(
      "4  ******** NETWORK ******** \n"
      "4.1 Mode: %s \n"
      "4.2 MCC-MNC: %s-%s \n",
      name_of(names::kSelectionMode, s.snapshot_mode), s.mcc, s.mnc);
  prv_named(page, "4.3 RAT", names::kRat, s.rat);
  page.add("4.4 Band: %s ", s.band_text);
  // The band number comes with the registration reports of this hardware only.
  if (s.wan_type == BRIO_WAN_TYPE_OSPREY) page.add("(%d) ", static_cast<int>(s.band));
  page.add("\n4.5 Cell ID: 0x%X \n", s.cell_id);
  if (s.rat == kRatLte) {
    page.add("4.5 TAC: %d \n", s.tac);
  } else {
    page.add("4.5 LAC: %d \n4.6 RAC: %d \n4.7 Network Op Mode: %d \n", s.lac, s.rac, nmo);
  }
}

void prv_network_masked(TextWriter& page, const atcmd_snapshot& s, int nmo) {
  char band[sizeof(s.band_text)];
  copy_text(band, s.band_text);
  mask_band(band);
  page.add(
      "4  ******** NETWORK ******** \n"
      "4.1 Mode: %s\n"
      "4.2 %s%s\n"
      "4.3 %d \n"
      "4.4 %s \n",
      name_of(names::kSelectionMode, s.snapshot_mode), s.mcc, s.mnc, s.rat, band);
  if (s.rat != kRatLte) page.add("4.4 Network Op Mode: %d \n", nmo);
}

void prv_network(TextWriter& page, const PageInput& input) {
  const atcmd_snapshot& s = *input.snapshot;
  const int nmo = s.nmo == kNmoUnknown ? kNmoUnknown : s.nmo + 1;
  if (input.view == View::kFull) {
    prv_network_full(page, s, nmo);
  } else {
    prv_network_masked(page, s, nmo);
  }
}

// How a raw signal value prints: below 1 the first text, up to `top` exclusive raw - `offset`, at `top` the
// third text, above it the last one.
struct SignalScale {
  int32_t top;
  int32_t offset;
  const char* below;
  const char* value_format;  // one %d
  const char* at_top;
  const char* not_available;
};

constexpr SignalScale kRssi = {
    63, 111, "5.3 RSSI: < -110 \n", "5.3 RSSI: %d \n", "5.3 RSSI: >= -48 \n", "5.3 RSSI: N/A \n"};
constexpr SignalScale kRsrp = {
    97, 141, "5.3 RSRP: < -140 \n", "5.3 RSRP: %d \n", "5.3 RSRP: >= -44 \n", "5.3 RSRP: N/A \n"};
constexpr SignalScale kRscp = {
    96, 121, "5.3 RSCP: < -120 ", "5.3 RSCP: %d ", "5.3 RSCP: >= -25 ", "5.3 RSCP: N/A "};

void prv_signal(TextWriter& page, const SignalScale& scale, int32_t raw) {
  if (raw < 1) {
    page.add("%s", scale.below);
  } else if (raw < scale.top) {
    page.add(scale.value_format, raw - scale.offset);
  } else {
    page.add("%s", raw == scale.top ? scale.at_top : scale.not_available);
  }
}

// Half decibels above -24. The integer part loses its sign between -1 and 0, and 48 prints as 0.5: both are
// kept.
void prv_ecio(TextWriter& page, int32_t raw) {
  if (raw < 1) {
    page.add("ECIO: < -24 \n");
  } else if (raw <= 48) {
    page.add("ECIO: %d.%d \n", raw / 2 - 24, raw % 2 != 0 ? 0 : 5);
  } else if (raw == 49) {
    page.add("ECIO: >= 0.0 \n");
  } else {
    page.add("ECIO: N/A \n");
  }
}

void prv_rf_status(TextWriter& page, const PageInput& input) {
  const atcmd_snapshot& s = *input.snapshot;
  page.add("5  ******** RF STATUS ********\n");
  if (input.view == View::kFull) {
    prv_named(page, "5.1 RAT", names::kRat, s.rat);
  } else {
    page.add("5.1 %d \n", s.rat);
  }
  switch (s.rat) {
    case kRatGsm:
    case kRatEdge:
      prv_signal(page, kRssi, s.signal_a);
      break;
    case kRatLte:
      if (s.bas_query_flag == 1) {
        page.add("5.3 RSRP main: %d RSRP div: %d \n", s.bas_value_a, s.bas_value_b);
      } else {
        prv_signal(page, kRsrp, s.signal_a);
      }
      break;
    case 2:
    case 4:
    case 5:
    case 6:  // WCDMA and its HSPA forms
      prv_signal(page, kRscp, s.signal_a);
      prv_ecio(page, s.signal_b);
      break;
    default:
      page.add("5.3 RSSI: N/A \n");
      break;
  }
  page.add("5.4 SAR Pwr backoff: %s\n", sar_name(input.sar_mode));
}

// A reject cause, then the network that it came from as "<number> <name>: <MCC>-<MNC>", masked "<number>
// <MCC><MNC>".
void prv_reject(TextWriter& page, const PageInput& input, RejectIndex index, const names::Table& causes,
                const char* cause_item, const char* number, const char* name) {
  const atcmd_snapshot& s = *input.snapshot;
  prv_named(page, cause_item, causes, s.reject_bytes[index + 1]);
  const uint16_t mcc = s.reject_words[2 * index];
  const uint16_t mnc = s.reject_words[2 * index + 1];
  if (input.view == View::kFull) {
    page.add("%s %s: %d-%d \n", number, name, mcc, mnc);
  } else {
    page.add("%s %d%d \n", number, mcc, mnc);
  }
}

void prv_status_lte(TextWriter& page, const PageInput& input) {
  const atcmd_snapshot& s = *input.snapshot;
  prv_named(page, "6.1 EMM State", names::kEmmState, s.emm_state);
  page.add("6.2 EMM Substate: %s (%d)\n", name_of(names::kEmmSubstate, s.emm_substate), s.emm_substate);
  prv_reject(page, input, kEmm, names::kEmmRejectCause, "6.3 EMM Rej Cause", "6.4", "EMM Rej PLMN");
  prv_reject(page, input, kEsm, names::kEsmRejectCause, "6.5 ESM Rej Cause", "6.6", "ESM Rej PLMN");
}

void prv_status_gsm_wcdma(TextWriter& page, const PageInput& input) {
  const atcmd_snapshot& s = *input.snapshot;
  prv_named(page, "6.1 MM State", names::kMmState, s.mm_state);
  prv_named(page, "6.2 MM Substate", names::kMmSubstate, s.mm_substate);
  prv_named(page, "6.3 GMM State", names::kGmmState, s.gmm_state);
  prv_named(page, "6.4 GMM Substate", names::kGmmSubstate, s.gmm_substate);
  prv_reject(page, input, kCs, names::kMmRejectCause, "6.5 CS Rej Cause", "6.6", "CS Rej PLMN");
  prv_reject(page, input, kPs, names::kMmRejectCause, "6.7 PS Rej Cause", "6.8", "PS Rej PLMN");
  prv_reject(page, input, kSm, names::kSmRejectCause, "6.9 SM Rej Cause", "6.8", "SM Rej PLMN");
  prv_named(page, "6.10 PDP State", names::kPdpState, s.pdp_state);
}

// %d prints 32 bits: a rate beyond them shows the largest one.
int prv_clamp(int64_t rate) {
  return static_cast<int>(std::clamp<int64_t>(rate, INT_MIN, INT_MAX));
}

void prv_mask_unless_status(char* address) {
  if (strcmp(address, kConnecting) == 0 || strcmp(address, kNotConnected) == 0) return;
  mask_ip_address(address);
}

void prv_addresses(TextWriter& page, const NetInfo& net, const char* address, const char* destination) {
  page.add(
      "IP address: %s\n"
      "Dest ip address: %s\n"
      "RX Bytes: %-9d      TX Bytes: %-9d\n"
      "RX Rate(B/s): %-8d    TX Rate(B/s): %-8d\n",
      address, destination, net.rx_bytes, net.tx_bytes, prv_clamp(net.rx_rate), prv_clamp(net.tx_rate));
}

bool prv_wwan(TextWriter& page, const PageInput& input) {
  const NetInfo& net = *input.net;
  page.add("******** WWAN Info ********\n");
  if (input.view == View::kFull) {
    prv_addresses(page, net, net.address, net.destination);
    return true;
  }
  if (page.room() == 0) return true;
  HeapText address(strdup(net.address));
  HeapText destination(strdup(net.destination));
  if (!address || !destination) return false;
  prv_mask_unless_status(address.get());
  prv_mask_unless_status(destination.get());
  prv_addresses(page, net, address.get(), destination.get());
  return true;
}

}  // namespace

bool write_sections(TextWriter& page, const PageInput& input) {
  prv_modem(page, input);
  prv_registration(page, input);
  prv_network(page, input);
  prv_rf_status(page, input);
  page.add("6  ******** CS/PS Status ********\n");
  if (input.snapshot->rat == kRatLte) {
    prv_status_lte(page, input);
  } else {
    prv_status_gsm_wcdma(page, input);
  }
  if (!prv_wwan(page, input)) return false;
  page.add("******** PLMN ********\n");
  return true;
}

void write_static_info(TextWriter& page, InputFile* file) {
  char line[kStaticInfoLine];
  while (page.room() > 0 && file->line(line, sizeof(line)) > 0) page.add("%s", line);
}

}  // namespace brio::page

void mask_band(char* text) {
  char* last = text != nullptr ? strrchr(text, '_') : nullptr;
  if (last == nullptr) return;
  for (char* c = text; c < last; c++) {
    if (*c != '_') *c = 'X';
  }
}

void mask_ip_address(char* text) {
  if (text == nullptr) return;
  int dots = 0;
  // The first character is never changed.
  for (size_t i = strlen(text); i > 1 && dots < 2; i--) {
    char& c = text[i - 1];
    if (c == '.') {
      dots++;
    } else {
      c = 'X';
    }
  }
}
