// brioctl status, and the rows that it shares with the demo.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "output.h"

namespace brioctl {
namespace {

// From the library's texts: a number does not tell "01" from "001".
std::string serving_plmn(const Library& lib) {
  char text[8] = "";
  lib.brio_get_mcc_mnc.function(text);
  const std::string mcc(text, strnlen(text, 4)), mnc(text + 4, strnlen(text + 4, 4));
  return mcc.find_first_not_of("0123456789") != std::string::npos ? "none" : mcc + "-" + mnc;
}

// The digits of the IMSI that the library took for the MNC. Of "000" the number does not tell how many.
std::string home_plmn(const Library& lib, uint32_t mnc) {
  char imsi[64] = "";
  lib.wabs_get_imsi.function(imsi, sizeof imsi);
  const std::string digits = imsi;
  if (digits.size() < 6) return "none";
  bool three = strtoul(digits.substr(3, 3).c_str(), nullptr, 10) == mnc;
  if (digits.compare(3, 3, "000") == 0) {
    const auto record = std::make_unique<sim_plmn_data>();
    lib.brio_get_sim_plmn_info.function(record.get(), 1);
    three = strnlen(record->home_mnc, sizeof record->home_mnc) == 3;
  }
  return digits.substr(0, 3) + "-" + digits.substr(3, three ? 3 : 2);
}

// Runs on the library's read thread while the request waits.
uint32_t recv_func_first_line(const ATResponse* response, void* user_data, uint16_t) {
  if (response->intermediates != nullptr && response->intermediates->line != nullptr) {
    *static_cast<std::string*>(user_data) = response->intermediates->line;
  }
  return 0;
}

// North America has MNCs of three digits; the library takes three where it knows the network.
std::string home_meaning(const std::string& imsi, const std::string& plmn) {
  const std::string mcc = imsi.substr(0, 3);
  const bool three = mcc == "302" || (mcc >= "310" && mcc <= "316");
  return !three || plmn.size() != 6 || imsi.size() < 6 ? "home network"
                                                       : "home; by MCC " + mcc + "-" + imsi.substr(3, 3);
}

const char* mode_name(uint32_t mode) {
  static const char* const names[] = {"none", "UMTS family", "EDGE class", "GSM", "LTE"};
  return mode < 5 ? names[mode] : "?";
}

const char* roaming_name(uint32_t status) {
  return status == 0 ? "home network" : status == 1 ? "roaming" : "not registered";
}

const char* sim_name(uint32_t status) {
  static const char* const names[] = {"not read",
                                      "no SIM",
                                      "PIN locked",
                                      "PUK locked",
                                      "permanently disabled",
                                      "illegal SIM",
                                      "other",
                                      "waiting to attach",
                                      "blacklisted",
                                      "waits for PDP context",
                                      "service not subscribed",
                                      "SIM ready"};
  return status < 12 ? names[status] : "?";
}

const char* wan_name(uint32_t type) {
  return type == 6 ? "Kestrel" : type == 7 ? "Osprey" : "unknown";
}

template <typename T, typename Call>
Row number_row(const char* name, Call call, T initial, const std::string& unit) {
  T value = initial;
  uint32_t status = call(&value);
  return {name, status, status == 0 ? std::to_string(value) : "", unit, true};
}

template <typename Call>
Row text_row(const char* name, const Call& call, const std::string& unit, bool identity, bool show) {
  char text[64] = "";
  uint32_t status = call(text, sizeof(text));
  return {name, status, status != 0 ? "" : identity ? masked(text, show) : text, unit, false};
}

Row time_row(const Library& lib) {
  time_t utc = -1;
  int32_t offset = 0;
  uint32_t status = lib.wabs_get_module_time(&utc, &offset);
  char text[64] = "";
  if (status == 0) snprintf(text, sizeof(text), "%d", offset);
  std::string unit = "s east of UTC";
  if (status == 0 && utc == static_cast<time_t>(-1)) unit += ", no date";
  return {"wabs_get_module_time", status, text, unit, true};
}

}  // namespace

std::vector<Row> status_rows(const Library& lib, bool identities) {
  std::vector<Row> rows;
  uint32_t value = 0;
  auto bars = number_row<uint32_t>("wabs_get_bars", lib.wabs_get_bars, 0, "bars");
  if (bars.value == std::to_string(WABS_BARS_NOT_ATTACHED)) {
    bars = {"wabs_get_bars", 0, "-1", "not attached", true};
  }
  rows.push_back(bars);

  auto mode = number_row<uint32_t>("wabs_get_data_service_mode", lib.wabs_get_data_service_mode, 0, "");
  if (mode.status == 0) mode.unit = mode_name(static_cast<uint32_t>(std::stoul(mode.value)));
  rows.push_back(mode);

  auto roaming = number_row<uint32_t>("wabs_get_roaming_status", lib.wabs_get_roaming_status, 0, "");
  if (roaming.status == 0) roaming.unit = roaming_name(static_cast<uint32_t>(std::stoul(roaming.value)));
  rows.push_back(roaming);

  rows.push_back(number_row<int32_t>("wabs_get_rssi", lib.wabs_get_rssi, 0, "always 0"));

  uint32_t mcc = 0, mnc = 0;
  uint32_t status = lib.wabs_get_mcc_mnc(&mcc, &mnc);
  rows.push_back(
      {"wabs_get_mcc_mnc", status, status == 0 ? serving_plmn(lib) : "", "serving network", false});
  mcc = mnc = 0;
  status = lib.wabs_get_hplmn_mcc_mnc(&mcc, &mnc);
  const std::string home = status == 0 ? home_plmn(lib, mnc) : "";
  char imsi[64] = "";
  lib.wabs_get_imsi.function(imsi, sizeof imsi);
  rows.push_back({"wabs_get_hplmn_mcc_mnc", status, home, home_meaning(imsi, home), false});
  rows.push_back(time_row(lib));

  rows.push_back(text_row("wabs_get_imsi", lib.wabs_get_imsi, "IMSI", true, identities));
  rows.push_back(
      text_row("wabs_get_radio_cert_param1", lib.wabs_get_radio_cert_param1, "ICCID", true, identities));
  rows.push_back(
      text_row("wabs_get_radio_serial_number", lib.wabs_get_radio_serial_number, "IMEI", true, identities));
  rows.push_back(
      text_row("wabs_get_firmware_version", lib.wabs_get_firmware_version, "firmware", false, true));

  status = lib.brio_get_wn3_sim_status(&value);
  rows.push_back(
      {"brio_get_wn3_sim_status", status, status == 0 ? std::to_string(value) : "", sim_name(value), true});
  status = lib.brio_get_wan_type(&value);
  rows.push_back(
      {"brio_get_wan_type", status, status == 0 ? std::to_string(value) : "", wan_name(value), true});
  auto carrier =
      number_row<uint16_t>("brio_get_carrier_id", lib.brio_get_carrier_id, 0, "carrier configuration");
  if (carrier.value == "65535") carrier.unit = "unknown";
  rows.push_back(carrier);
  rows.push_back(
      number_row<uint32_t>("brio_get_band_info", lib.brio_get_band_info, 0, "band, 0 not reported"));
  return rows;
}

bool all_read(const std::vector<Row>& rows) {
  return std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.status == 0; });
}

std::string ask_line(const Library& lib, const char* command, const char* prefix) {
  std::string line;
  lib.blpkt_atcmd_request_with_callback_timeout.function(command, SINGLELINE, prefix, recv_func_first_line,
                                                         &line, 0, 5);
  return line;
}

std::string left_deregistered(const Library& lib) {
  if (ask_line(lib, "AT+COPS?", "+COPS").rfind("+COPS: 2", 0) != 0) return "";
  return "The modem was told to stay off the network (AT+COPS=2), perhaps by a scan that died. \"brioctl "
         "auto\" lets it "
         "register again.";
}

int run_status(const Options& options) {
  Session session(options);
  session.open_module();
  auto rows = status_rows(session.lib, options.identities);
  session.check_modem();
  const std::string off_network = left_deregistered(session.lib);
  session.check_modem();
  session.close();
  if (interrupted() > 0) throw Failure("interrupted.");
  if (!off_network.empty()) output::note(off_network);
  if (output::json()) {
    output::result()["modem"] = session.modem_name();
    output::result()["values"] = rows_json(rows);
  } else {
    printf("Modem: %s\n\n%s", session.modem_name().c_str(), render_table(rows).c_str());
  }
  return all_read(rows) ? 0 : 1;
}

}  // namespace brioctl
