// The library's records as names and values, and its functions by name: arguments from words, results as one
// line.
//
// Numbers and texts are taken from the words; a record or number that the function fills takes no word, but
// `null` there passes a null pointer. An output that the function left alone shows as "untouched".
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>
#include <type_traits>

#include "base/relaxed.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "kit/exact_text.h"
#include "lab/functions.h"
#include "reports/report_table.h"

namespace lab {

namespace {

// An unsigned word that holds a two's complement value.
template <typename T>
std::make_signed_t<T>& as_signed(T& word) {
  return reinterpret_cast<std::make_signed_t<T>&>(word);
}

// A record that hands its fields to a visitor: all at once, their names as one text, or one by one.
template <typename R>
struct Named;
#define NAMED(R, ...)                     \
  template <>                             \
  struct Named<R> : R {                   \
    template <typename V>                 \
    void visit(V&& visitor) {             \
      visitor(#__VA_ARGS__, __VA_ARGS__); \
    }                                     \
  };
NAMED(network_time, year, month, day, hour, minute, second, spare, time_zone, dst)
template <>
struct Named<brio_atcmd_data> : brio_atcmd_data {
  template <typename V>
  void visit(V&& visitor) {
#define FIELD(name, ...) visitor(#name, name);
#define SIGNED_FIELD(name, ...) visitor(#name, as_signed(name));
#include "record.def"
  }
};
NAMED(atcmd_snapshot, cs_reg_status, ps_reg_status, lac, cell_id, rat, rac, mcc, mnc, plmn_text, band_text,
      arfcn, reject_bytes, reject_words, signal_a, signal_b, bars, pdp_state, mm_state, mm_substate,
      gmm_state, gmm_substate, rrc_state, nmo, rat_valid, spare_state, carrier_config, sim_status,
      curr_lte_ant, bas_value_a, bas_value_b, emm_state, emm_substate, tac, bas_query_flag, wan_type, band,
      snapshot_mode, fw_ver, lib_ver, imei)
NAMED(sim_info_data, psloci, loci, epsloci, iccid)
NAMED(sim_plmn_data, uplmn_count, uplmn, oplmn_count, oplmn, fplmn_count, fplmn, hplmn_count, hplmn,
      ehplmn_count, ehplmn, home_mcc, home_mnc)
NAMED(sim_identity, iccid, imsi)
NAMED(sim_card_status, card_status, lock_status)
NAMED(modem_info, fw_ver, serial, imei, hw_ver, fault_ct)
NAMED(bas_status, as_signed(value_a), as_signed(value_b), antenna)

// Entries in use, equal neighbours counted: "310-260/4 x3,262-01/2".
std::string text_of_list(const plmn_entry* list, size_t used) {
  while (used > 0 && list[used - 1].mcc[0] == '\0') used--;
  std::string text;
  for (size_t i = 0, same = 1; i < used; i += same, same = 1) {
    while (i + same < used && std::memcmp(&list[i], &list[i + same], sizeof(plmn_entry)) == 0) same++;
    text += (i == 0 ? "" : ",") + std::string(list[i].mcc, strnlen(list[i].mcc, 4)) + "-" +
            std::string(list[i].mnc, strnlen(list[i].mnc, 4)) + "/" + std::to_string(list[i].access_tech) +
            (same > 1 ? " x" + std::to_string(same) : "");
  }
  return text;
}

template <typename T>
std::string text_of(const T& value) {
  if constexpr (std::is_integral_v<T>) {
    return std::to_string(value);
  } else if constexpr (std::is_pointer_v<T>) {
    return value != nullptr ? quoted(value) : "null";
  } else if constexpr (std::is_same_v<std::remove_extent_t<T>, char>) {
    return quoted(std::string(value, strnlen(value, sizeof value)));
  } else if constexpr (std::is_same_v<std::remove_extent_t<T>, plmn_entry>) {
    return text_of_list(value, std::extent_v<T>);
  } else if constexpr (std::is_same_v<T, uint32_t[4]>) {  // the shared record's network_time
    network_time time;
    std::memcpy(&time, value, sizeof time);
    return "{" + describe(time) + "}";
  } else {
    std::string text;
    for (const auto& each : value) text += (text.empty() ? "" : ",") + text_of(each);
    return text;
  }
}

template <typename T>
void assign(T& place, const std::string& text) {
  if constexpr (std::is_integral_v<T>) {
    place = static_cast<T>(to_number(text));
  } else if constexpr (std::is_same_v<std::remove_extent_t<T>, char>) {
    std::memset(place, 0, sizeof place);
    std::memcpy(place, text.data(), std::min(text.size(), sizeof place));
  } else {
    throw UsageError("a list cannot be set");
  }
}

// False when the record has no such field.
template <typename R>
bool set_field(R& record, const std::string& name, const std::string& value) {
  Named<R> fields{record};
  bool found = false;
  fields.visit([&](const char* names, auto&... each) {
    const auto all = split_names(names);
    auto next = all.begin();
    ((*next++ == name ? (found = true, assign(each, value)) : void()), ...);
  });
  record = fields;
  return found;
}

template <typename R>
void add_fields(Fields& fields, const R& record) {
  Named<R>{record}.visit([&](const char* names, auto&... each) {
    const std::string values[] = {text_of(each)...};
    const std::string* value = values;
    for (const std::string& name : split_names(names)) fields.emplace_back(name, *value++);
  });
}

}  // namespace

std::vector<std::string> split_names(const std::string& names) {
  std::vector<std::string> all(1);
  for (const char c : names) {
    if (c == ',') all.emplace_back();
    if (c == '(') all.back().clear();  // only the word that is handed on
    if (std::strchr(",() \n", c) == nullptr) all.back() += c;
  }
  return all;
}

template <typename R>
std::string describe(const R& record) {
  Fields fields;
  add_fields(fields, record);
  std::string text;
  for (const auto& [name, value] : fields) {
    text.append(text.empty() ? "" : " ").append(name).append("=" + value);
  }
  return text;
}
template std::string describe(const network_time&);
template std::string describe(const sim_card_status&);

Fields shared_fields() {
  Fields fields;
  {
    brio::UrcDataLock lock;
    add_fields(fields, g_brio_lib_atcmd_data);
    fields.emplace_back("sim_status", text_of(brio::g_sim_status));
    fields.emplace_back("s_pdp_event", text_of(s_pdp_event));
    fields.emplace_back("s_prev_pdp_event", text_of(s_prev_pdp_event));
  }
  brio::StaticDataLock lock;
  sim_info_data info;
  briolib_get_sim_info_data(&info);
  add_fields(fields, info);
  sim_plmn_data plmn;
  briolib_get_sim_plmn_data(&plmn);
  add_fields(fields, plmn);
  char masks[2][16];
  snprintf(masks[0], sizeof masks[0], "0x%x", brio::relaxed_load(g_brio_lib_log_mask));
  snprintf(masks[1], sizeof masks[1], "0x%x", brio::relaxed_load(gBrioModuleLogMask));
  fields.emplace_back("lib_mask", masks[0]);
  fields.emplace_back("module_mask", masks[1]);
  fields.emplace_back("g_pre_sar_mode", text_of(brio::relaxed_load(g_pre_sar_mode)));
  fields.emplace_back("g_611_urc_on", text_of(brio::relaxed_load(g_611_urc_on)));
  fields.emplace_back("sms_to_clear", text_of(brio::briolib_sms_to_clear()));
  return fields;
}

void set_shared_field(const std::string& name, const std::string& value) {
  const std::map<std::string, uint32_t*> words = {{"lib_mask", &g_brio_lib_log_mask},
                                                  {"module_mask", &gBrioModuleLogMask},
                                                  {"g_611_urc_on", &g_611_urc_on}};
  if (const auto word = words.find(name); word != words.end()) {
    return brio::relaxed_store(*word->second, static_cast<uint32_t>(to_number(value)));
  }
  {
    brio::UrcDataLock lock;
    if (set_field(g_brio_lib_atcmd_data, name, value)) return;
  }
  brio::StaticDataLock lock;
  sim_info_data info;
  briolib_get_sim_info_data(&info);
  sim_plmn_data plmn;
  briolib_get_sim_plmn_data(&plmn);
  if (!set_field(info, name, value) && !set_field(plmn, name, value)) {
    throw UsageError("no field of the shared record or the SIM blocks: " + name);
  }
  briolib_update_sim_info_data(&info);
  briolib_update_sim_plmn_data(&plmn);
}

namespace {

constexpr long long kBufferMost = 1 << 24;
constexpr char kPreset = '\xA5';

// One parameter of a call: made from the words, lent to the function, shown afterwards.
template <typename T, typename = void>
struct Parameter;

template <typename T>
struct Parameter<T, std::enable_if_t<std::is_integral_v<T>>> {
  static constexpr char kWord[] = "NUMBER";
  explicit Parameter(Arguments& words) : value(static_cast<T>(words.number())) {}
  T lend() { return value; }
  std::string show() { return ""; }
  T value;
};

template <typename T>
struct Parameter<const T*, std::enable_if_t<sizeof(std::conditional_t<std::is_void_v<T>, char, T>) == 1>> {
  static constexpr char kWord[] = "TEXT";
  explicit Parameter(Arguments& words) : null(words.take_null()), text(null ? "" : words.text()) {}
  const T* lend() { return null ? nullptr : reinterpret_cast<const T*>(text.c_str()); }
  std::string show() { return ""; }
  bool null;
  std::string text;
};

// A text that is changed in place.
template <>
struct Parameter<char*> {
  static constexpr char kWord[] = "TEXT";
  explicit Parameter(Arguments& words)
      : null(words.take_null()), before(null ? "" : words.text()), text(before) {}
  char* lend() { return null ? nullptr : text.get(); }
  std::string show() {
    const std::string after(text.get(), before.size());
    return after == before ? "" : " " + quoted(after);
  }
  bool null;
  std::string before;
  ExactText text;
};

// A record, number or row of up to 16 bytes to be filled.
template <typename T>
struct Parameter<T*, std::enable_if_t<!std::is_const_v<T> && !std::is_function_v<T>>> {
  static constexpr char kWord[] = "";  // none need be said
  explicit Parameter(Arguments& words) : null(words.take_null()) {
    std::memset(values, kPreset, sizeof values);
  }
  T* lend() { return null ? nullptr : values; }
  std::string show() {
    const std::string bytes(reinterpret_cast<char*>(values), sizeof values);
    const size_t used = bytes.find_last_not_of(kPreset) + 1;
    if (null) return "";
    if (used == 0) return " untouched";
    if constexpr (sizeof(T) == 1) {
      return " " + quoted(bytes.substr(0, used));
    } else if constexpr (std::is_integral_v<T>) {
      return " " + std::to_string(values[0]);
    } else {
      return " " + describe(values[0]);
    }
  }
  bool null;
  T values[sizeof(T) == 1 ? 16 : 1];
};

template <>
struct Parameter<brio_event_callback> {
  static constexpr char kWord[] = "null";
  explicit Parameter(Arguments& words) {
    if (!words.take_null()) throw UsageError("a callback can only be null");
  }
  brio_event_callback lend() { return nullptr; }
  std::string show() { return ""; }
};

template <typename... P>
std::string words_of() {
  std::string text;
  for (const char* word : {"", Parameter<P>::kWord...}) {
    text.append(text.empty() || *word == '\0' ? "" : " ").append(word);
  }
  return text;
}

template <typename R, typename... P>
Call wrap(R (*function)(P...)) {
  const auto run = [function](Arguments& words) {
    std::tuple<Parameter<P>...> parameters{Parameter<P>(words)...};
    words.finish();
    return std::apply(
        [function](auto&... each) {
          std::string line;
          if constexpr (std::is_void_v<R>) {
            function(each.lend()...);
          } else {
            line = text_of(function(each.lend()...));
          }
          line = (line + ... + each.show());
          return line.substr(std::min(line.find_first_not_of(' '), line.size()));
        },
        parameters);
  };
  return {run, words_of<P...>()};
}

// A function that wants the URC-data mutex held.
template <typename F>
Call locked(F function) {
  const Call call = wrap(function);
  const auto run = [call](Arguments& words) {
    brio::UrcDataLock lock;
    return call(words);
  };
  return {run, call.words};
}

// A function that writes a text into a buffer: the words are its size (or `null SIZE`) and the rest. A guard
// follows the buffer. Some clear the buffer after their text.
template <typename Size, typename... P>
Call fill(uint32_t (*function)(char*, Size, P...), bool clears = false) {
  const auto run = [function, clears](Arguments& words) {
    const bool null = words.take_null();
    const auto given = words.number();
    if (given > kBufferMost) throw UsageError("a buffer has at most 16 MiB");
    const auto size = static_cast<size_t>(std::max(given, 0LL));
    std::string bytes(size + 64, kPreset);
    const std::string guard = bytes.substr(size);
    std::tuple<Parameter<P>...> parameters{Parameter<P>(words)...};
    words.finish();
    const std::string status = std::apply(
        [&](auto&... each) {
          return text_of(function(null ? nullptr : bytes.data(), static_cast<Size>(given), each.lend()...));
        },
        parameters);
    if (bytes.substr(size) != guard) return status + " OVERRUN";
    if (bytes.find_first_not_of(kPreset) == std::string::npos) return status + (null ? "" : " untouched");
    const size_t end = bytes.find('\0');
    if (clears && bytes.find_first_not_of('\0', end) < size) return status + " NOT CLEARED";
    return status + (end < size ? " " + quoted(bytes.substr(0, end)) : " UNTERMINATED");
  };
  return {run, words_of<size_t, P...>()};
}

template <typename F>
Call fill_and_clear(F function) {
  return fill(function, true);
}

uint32_t collect(const ATResponse* response, void* answer, uint16_t status) {
  auto& line = *static_cast<std::string*>(answer);
  for (const ATLine* each = response->intermediates; each != nullptr; each = each->next) {
    line += " " + text_of(each->line);
  }
  line += " " + text_of(response->final_response);
  return status;
}

// COMMAND [type=N] [prefix=TEXT] [timeout=SECONDS] [status=N]: the request's result and the answer's lines.
// `status` is what the response callback returns.
std::string request(Arguments& words) {
  std::string type = "0", prefix, timeout = "20", status = "0", answer;
  Parameter<const char*> command(words);
  words.option("type", &type);
  const bool has_prefix = words.option("prefix", &prefix);
  words.option("timeout", &timeout);
  words.option("status", &status);
  words.finish();
  const uint32_t result = blpkt_atcmd_request_with_callback_timeout(
      command.lend(), static_cast<uint32_t>(to_number(type)), has_prefix ? prefix.c_str() : nullptr, collect,
      &answer, static_cast<uint16_t>(to_number(status)), static_cast<int32_t>(to_number(timeout)));
  return std::to_string(result) + answer;
}

}  // namespace

std::map<std::string, Call>& calls() {
  static std::map<std::string, Call> table;
  if (!table.empty()) return table;
  const auto none = [](auto&&) { return Call(); };
#define OPERATION(result, name, arguments, session, ...) \
  if (Call call = session(name); call.run) table[#name] = call;
#include "operations.def"
  table["request"] = {request, "COMMAND [type=0] [prefix=TEXT] [timeout=20] [status=0]"};
  return table;
}

}  // namespace lab
