// The prefix map and the dispatch of result lines to their parsers.
#include <string.h>

#include "at_parse_results.h"
#include "base/log.h"
#include "base/masked.h"
#include "brio/briolib.h"
#include "brio_bars.h"
#include "brio_common/shared_data.h"
#include "parse/sim_file.h"

static constexpr char kLogTag[] = "briolib/src/at_parse";

namespace {

using brio::LogText;

using Parser = void (*)(char* rest, void* argument_a, void* argument_b);

struct MapEntry {
  const char* name;  // without "+" and ":"
  Parser parser;     // null: known, but nothing to do
  bool silent;       // the parser writes its own line: not echoed here
};

// A flag that at_parse's caller passes as a pointer-sized value.
int32_t prv_flag(const void* argument) {
  return argument != nullptr ? 1 : 0;
}

void prv_at_parse_creg(char* rest, void* /*argument_a*/, void* is_query) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_creg %s\n", BLIB_HERE, rest);
  briolib_parse_reg_status(rest, 1, prv_flag(is_query));
}

void prv_at_parse_cgreg(char* rest, void* /*argument_a*/, void* is_query) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_cgreg %s\n", BLIB_HERE, rest);
  briolib_parse_reg_status(rest, 0, prv_flag(is_query));
}

void prv_at_parse_stkpci(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_stkpci %s\n", BLIB_HERE, rest);
  briolib_parse_stkpci(rest);
}

void prv_at_parse_gtbars(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_gtbars %s\n", BLIB_HERE, rest);
  briolib_parse_gtbars(rest);
}

void prv_at_parse_gtotareject(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_gtotareject %s\n", BLIB_HERE, rest);
  briolib_parse_gtotareject(rest);
}

void prv_at_parse_bas_status(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_bas_status %s\n", BLIB_HERE, rest);
  briolib_parse_bas_status(rest, nullptr);
}

void prv_at_parse_sms(char* /*rest*/, void* /*argument_a*/, void* /*argument_b*/) {
  brio::briolib_need_clear_sms();
}

constexpr MapEntry kMap[] = {
    {"CREG", prv_at_parse_creg, true},
    {"CGREG", prv_at_parse_cgreg, true},
    {"STKPCI", prv_at_parse_stkpci, false},
    {"CRSM", brio::prv_at_parse_crsm, false},
    {"CCID", brio::prv_briolib_get_iccid, false},
    {"GTBARS", prv_at_parse_gtbars, false},
    {"GTOTAREJECT", prv_at_parse_gtotareject, false},
    {"CIEV", brio::prv_at_parse_ciev, false},
    {"GTSIMSTATUS", brio::prv_at_parse_gtsimstatus, false},
    {"CMT", prv_at_parse_sms, false},
    {"CMTI", prv_at_parse_sms, false},
    {"CTZV", brio::prv_at_parse_ctzv, false},
    {"BASURC", prv_at_parse_bas_status, false},
};
constexpr size_t kMapSize = sizeof(kMap) / sizeof(kMap[0]);
static_assert(kMapSize == 13, "the map holds every result name of the modem");

constexpr bool prv_same_name(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) {
    a++;
    b++;
  }
  return *a == *b;
}

constexpr bool prv_names_unique() {
  for (size_t i = 0; i < kMapSize; i++) {
    for (size_t j = i + 1; j < kMapSize; j++) {
      if (prv_same_name(kMap[i].name, kMap[j].name)) return false;
    }
  }
  return true;
}
static_assert(prv_names_unique(), "a result name has one parser");

// The map sorted by name. Written by at_parse_init before any port is open, read by all threads afterwards.
MapEntry s_map[kMapSize];
size_t s_map_size;

const MapEntry* prv_find(const char* name) {
  size_t low = 0;
  size_t high = s_map_size;
  while (low < high) {
    size_t middle = (low + high) / 2;
    int order = strcmp(name, s_map[middle].name);
    if (order == 0) return &s_map[middle];
    if (order < 0) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

// The command is the argument of "+CRSM" lines only.
bool prv_iccid_file_read(const char* name, const void* argument_a) {
  return str_starts_with(name, "CRSM") != 0 &&
         brio::parse::crsm_file(static_cast<const char*>(argument_a)) == brio::parse::SimFile::kIccid;
}

// What its parser left of the text after the name, for the log.
LogText prv_log_rest(const char* name, const char* rest, const void* argument_a) {
  if (strcmp(name, "CCID") == 0) return brio::masked_identity(rest);
  if (strcmp(name, "CRSM") == 0) {
    return brio::masked_sim_file(rest, prv_iccid_file_read(name, argument_a));
  }
  return LogText(rest);
}

}  // namespace

void at_parse_init() {
  for (size_t i = 0; i < kMapSize; i++) {
    size_t place = i;
    for (; place > 0 && strcmp(s_map[place - 1].name, kMap[i].name) > 0; place--) {
      s_map[place] = s_map[place - 1];
    }
    s_map[place] = kMap[i];
  }
  s_map_size = kMapSize;
  for (size_t i = 0; i < kMapSize; i++) {
    BLIB_D(BRIO_LOG_DISPATCH, "D blib:%s:%d:prefix_to_parser map[%d]: %s\n", BLIB_HERE, static_cast<int>(i),
           s_map[i].name);
  }
}

uint32_t at_parse(char* line, void* argument_a, void* argument_b) {
  if (line == nullptr) return BRIO_STATUS_FAILURE;
  char* name = line + strspn(line, "+:");
  BLIB_D(BRIO_LOG_DISPATCH, "D blib:%s:%d:at_parse input:%s\n", BLIB_HERE,
         brio::masked_line(line, prv_iccid_file_read(name, argument_a)).c_str());
  if (*line != '+') {
    BLIB_W("W blib:%s:%d::line doesn't start with + skip parse%s:\n", BLIB_HERE,
           brio::masked_line(line).c_str());
    return BRIO_STATUS_FAILURE;
  }
  name = line + 1 + strspn(line + 1, ":");
  if (*name == '\0') return BRIO_STATUS_OK;
  char* rest = name + strcspn(name, ":");
  if (*rest == ':') *rest++ = '\0';

  const MapEntry* entry = prv_find(name);
  if (entry == nullptr || entry->parser == nullptr) {
    BLIB_W("W blib:%s:%d::No URC Callback func avail %s:\n", BLIB_HERE, brio::masked_line(name).c_str());
    return BRIO_STATUS_FAILURE;
  }
  entry->parser(rest, argument_a, argument_b);
  if (!entry->silent) {
    BLIB_I("I blib:URC::+%s: %s\n", name, prv_log_rest(name, rest, argument_a).c_str());
  }
  return BRIO_STATUS_OK;
}
