// What the modem is and how it is set up: answers, file lines, and the commands that are built of them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>

#include "brio/brio_types.h"

namespace brio::parse {

// The line that answers "AT+GTMODINFO?", cut up in place. A missing or blank field leaves its value in `info`
// alone.
void parse_modem_info(char* line, modem_info* info);

// +GTFDCAR: 201
//           1
// Field 1: carrier ID, of which 16 bits are kept; 0 where it is no number. None for a line without ":".
std::optional<uint16_t> parse_carrier_id(const char* line);

// A modem's model (answer_text) that is kept, with its NUL.
inline constexpr size_t kModelSize = 13;

// WAN type of a modem model, 0 for one that is not known.
uint8_t wan_type_of_model(const char* model);

// WAN_TYPE=7
//          1
// One line of the WAN information file. None when it does not hold the key. The number begins at the tenth
// character wherever the key is: a line that does not begin with the key yields whatever is there.
std::optional<uint8_t> parse_wan_type_line(const char* line);

inline constexpr char kAutomaticSelection[] = "AT+COPS=0";

struct ManualSelection {
  int32_t timeout_seconds;  // as stored; negative waits without limit
  const char* command;      // in the line
};

// Cuts up the file's first line, which also ends at a CR: one command. None when there is nothing to replay:
// no blank, no command after it, or automatic selection.
std::optional<ManualSelection> parse_manual_selection(char* line);

// 300 AT+COPS=0
// The stored selection command up to a CR: 1 when it selects automatically (any letter case), else 0.
uint32_t snapshot_mode_of_line(const char* line);

inline constexpr size_t kApnCommandSize = 128;

// The command that writes an APN into PDP context 1, cut to 127 characters.
void build_apn_command(const char* apn, char command[kApnCommandSize]);

// The APN of the override file's first line, which may hold NULs: the text up to the first CR or LF without
// white space around it. Cuts `line` up in place. Null for what would not stay one value of its command: a
// quote, a semicolon, a control character.
const char* override_apn(char* line, size_t length);

// The shell command that removes the file at `path`. A path that is not `device_path` itself lies below a
// root directory of someone's choice and is quoted. False for an empty path and when it does not fit.
bool build_remove_command(const char* path, const char* device_path, char* command, uint32_t capacity);

}  // namespace brio::parse
