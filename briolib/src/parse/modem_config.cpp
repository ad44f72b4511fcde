#include "parse/modem_config.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include "base/fields.h"
#include "base/text.h"
#include "brio/brio_types.h"
#include "parse/answer.h"

namespace brio::parse {
namespace {

// The first character and the last one are taken for the quotes whatever they are.
template <size_t N>
void prv_store_quoted(const char* field, char (&stored)[N]) {
  if (field == nullptr) return;
  field = skip_spaces(field);
  const size_t length = strlen(field);
  copy_text(stored, N, field + 1, length > 2 ? length - 2 : 0);
}

struct ModelRow {
  const char* model;
  uint8_t wan_type;
};

constexpr ModelRow kModels[] = {
    {"L816", BRIO_WAN_TYPE_KESTREL},
    {"L816-GL", BRIO_WAN_TYPE_OSPREY},
};

constexpr char kWanTypeKey[] = "WAN_TYPE=";

}  // namespace

// +GTMODINFO: "L816_18000.1000.00.24.01.01","356938035643809","SN1234567890","V1.0.1",0
//             firmware version               IMEI              serial number  hardware version  fault count
void parse_modem_info(char* line, modem_info* info) {
  FieldReader fields(line);
  fields.next(':');
  prv_store_quoted(fields.text(), info->fw_ver);
  prv_store_quoted(fields.text(), info->imei);
  prv_store_quoted(fields.text(), info->serial);
  prv_store_quoted(fields.text(), info->hw_ver);
  store(fields.word(), &info->fault_ct);
}

std::optional<uint16_t> parse_carrier_id(const char* line) {
  const char* payload = answer_payload(line);
  if (payload == nullptr) return std::nullopt;
  return static_cast<uint16_t>(decimal(payload));
}

uint8_t wan_type_of_model(const char* model) {
  for (const ModelRow& row : kModels) {
    if (strcmp(model, row.model) == 0) return row.wan_type;
  }
  return BRIO_WAN_TYPE_UNKNOWN;
}

std::optional<uint8_t> parse_wan_type_line(const char* line) {
  if (strstr(line, kWanTypeKey) == nullptr) return std::nullopt;
  return static_cast<uint8_t>(decimal(line + strlen(kWanTypeKey)));
}

uint32_t snapshot_mode_of_line(const char* line) {
  const char* found = strcasestr(line, kAutomaticSelection);
  return found != nullptr && found < line + strcspn(line, "\r") ? 1 : 0;
}

void build_apn_command(const char* apn, char command[kApnCommandSize]) {
  snprintf(command, kApnCommandSize, "AT+CGDCONT=1,\"IP\",\"%s\",\"\",0,0", apn);
}

const char* override_apn(char* line, size_t length) {
  char* apn = skip_spaces(line);
  char* end = apn + strcspn(apn, "\r\n");
  if (*end == '\0' && end != line + length) return nullptr;  // a NUL of the file
  *end = '\0';
  apn = trim(apn);
  for (const char* c = apn; *c != '\0'; c++) {
    if (*c == '"' || *c == ';' || is_control(static_cast<unsigned char>(*c))) return nullptr;
  }
  return apn;
}

bool build_remove_command(const char* path, const char* device_path, char* command, uint32_t capacity) {
  TextWriter writer(command, capacity);
  if (strcmp(path, device_path) == 0) {
    writer.add("rm -f %s", path);
  } else {
    writer.add("rm -f -- '");
    for (const char* c = path; *c != '\0'; c++) {
      const char piece[] = {*c, '\0'};
      writer.add("%s", *c == '\'' ? "'\\''" : piece);
    }
    writer.add("'");
  }
  return path[0] != '\0' && writer.room() > 0;
}

// 300 AT+COPS=1,2,"310410",7
// time-out in seconds, one blank, command
std::optional<ManualSelection> parse_manual_selection(char* line) {
  line[strcspn(line, "\r\n")] = '\0';
  FieldReader fields(line);
  const char* timeout = fields.next(' ');
  const char* command = fields.rest();
  // Without a command there is nothing to bring the modem back after the de-registration.
  if (command == nullptr || *command == '\0') return std::nullopt;
  if (strncasecmp(command, kAutomaticSelection, strlen(kAutomaticSelection)) == 0) return std::nullopt;
  return ManualSelection{decimal(timeout), command};
}

}  // namespace brio::parse
