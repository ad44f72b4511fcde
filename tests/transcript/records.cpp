// The library's records as names and values. Each record lists its fields once.
#include <cstring>
#include <type_traits>

#include "base/words.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "session.h"

namespace {

// Hands the names, as one text, and the fields to a visitor.
#define VISIT(...)                      \
  template <typename V>                 \
  void visit(V&& visitor) {             \
    visitor(#__VA_ARGS__, __VA_ARGS__); \
  }

// An unsigned word that holds a two's complement value.
template <typename T>
std::make_signed_t<T>& as_signed(T& word) {
  return reinterpret_cast<std::make_signed_t<T>&>(word);
}

template <typename R>
struct Named;
template <>
struct Named<network_time> : network_time {
  VISIT(year, month, day, hour, minute, second, spare, time_zone, dst)
};
template <>
struct Named<brio_atcmd_data> : brio_atcmd_data {
  VISIT(cs_reg_status, ps_reg_status, rat_valid, cops_mode, lac, cell_id, rat, rac, mcc, mnc, plmn_text,
        band_text, arfcn, reject_bytes, reject_words, as_signed(signal_a), as_signed(signal_b), bars,
        pdp_state, mm_state, mm_substate, gmm_state, gmm_substate, spare_state, nmo, time_info,
        carrier_config, carrier_word, as_signed(bas_value_a), as_signed(bas_value_b), curr_lte_ant, emm_state,
        emm_substate, rrc_state, tac, bas_query_flag, wan_type, band)
};
template <>
struct Named<atcmd_snapshot> : atcmd_snapshot {
  VISIT(cs_reg_status, ps_reg_status, lac, cell_id, rat, rac, mcc, mnc, plmn_text, band_text, arfcn,
        reject_bytes, reject_words, signal_a, signal_b, bars, pdp_state, mm_state, mm_substate, gmm_state,
        gmm_substate, rrc_state, nmo, rat_valid, spare_state, carrier_config, sim_status, curr_lte_ant,
        bas_value_a, bas_value_b, emm_state, emm_substate, tac, bas_query_flag, wan_type, band, snapshot_mode,
        fw_ver, lib_ver, imei)
};
template <>
struct Named<sim_info_data> : sim_info_data {
  VISIT(psloci, loci, epsloci, iccid)
};
template <>
struct Named<sim_plmn_data> : sim_plmn_data {
  VISIT(uplmn_count, uplmn, oplmn_count, oplmn, fplmn_count, fplmn, hplmn_count, hplmn, ehplmn_count, ehplmn,
        home_mcc, home_mnc)
};
template <>
struct Named<sim_identity> : sim_identity {
  VISIT(iccid, imsi)
};
template <>
struct Named<sim_card_status> : sim_card_status {
  VISIT(card_status, lock_status)
};
template <>
struct Named<modem_info> : modem_info {
  VISIT(fw_ver, serial, imei, hw_ver, fault_ct)
};
template <>
struct Named<bas_status> : bas_status {
  VISIT(as_signed(value_a), as_signed(value_b), antenna)
};

template <typename T>
std::enable_if_t<std::is_integral_v<T>, std::string> text_of(T value) {
  return std::to_string(value);
}
template <size_t N>
std::string text_of(const char (&text)[N]) {
  return quoted(std::string(text, strnlen(text, N)));
}
template <typename T, size_t N>
std::string text_of(const T (&values)[N]) {
  std::string text;
  for (const T& value : values) text += (text.empty() ? "" : ",") + text_of(value);
  return text;
}
std::string text_of(const uint32_t (&words)[4]) {  // the shared record's network_time
  network_time time;
  std::memcpy(&time, words, sizeof time);
  return "{" + describe(time) + "}";
}
// Entries in use, equal neighbours counted: "310-260/4 x3,262-01/2".
template <size_t N>
std::string text_of(const plmn_entry (&list)[N]) {
  size_t used = N;
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
void assign(T& place, const std::string& text) {
  if constexpr (std::is_integral_v<T>) {
    place = static_cast<T>(to_number(text));
  } else if constexpr (std::is_same_v<std::remove_extent_t<T>, char>) {
    std::memset(place, 0, sizeof place);
    std::memcpy(place, text.data(), std::min(text.size(), sizeof place - 1));
  } else {
    throw UsageError("a list cannot be set");
  }
}

template <typename R>
void add_fields(Fields& fields, const R& record) {
  Named<R>{record}.visit([&](const char* names, auto&... each) {
    const std::string values[] = {text_of(each)...};
    const std::string* value = values;
    for (const std::string& name : split_names(names)) fields.emplace_back(name, *value++);
  });
}

std::string hexadecimal(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%x", value);
  return text;
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
  for (const auto& [name, value] : fields) text += (text.empty() ? "" : " ") + name + "=" + value;
  return text;
}
template std::string describe(const network_time&);
template std::string describe(const atcmd_snapshot&);
template std::string describe(const sim_info_data&);
template std::string describe(const sim_plmn_data&);
template std::string describe(const sim_identity&);
template std::string describe(const sim_card_status&);
template std::string describe(const modem_info&);
template std::string describe(const bas_status&);

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
  fields.emplace_back("lib_mask", hexadecimal(brio::relaxed_load(g_brio_lib_log_mask)));
  fields.emplace_back("module_mask", hexadecimal(brio::relaxed_load(gBrioModuleLogMask)));
  fields.emplace_back("g_pre_sar_mode", text_of(brio::relaxed_load(g_pre_sar_mode)));
  fields.emplace_back("g_611_urc_on", text_of(brio::relaxed_load(g_611_urc_on)));
  return fields;
}

void set_shared_field(const std::string& name, const std::string& value) {
  if (name == "lib_mask")
    return brio::relaxed_store(g_brio_lib_log_mask, static_cast<uint32_t>(to_number(value)));
  if (name == "module_mask")
    return brio::relaxed_store(gBrioModuleLogMask, static_cast<uint32_t>(to_number(value)));
  brio::UrcDataLock lock;
  Named<brio_atcmd_data> record{g_brio_lib_atcmd_data};
  bool found = false;
  record.visit([&](const char* names, auto&... each) {
    const auto all = split_names(names);
    auto next = all.begin();
    ((*next++ == name ? (found = true, assign(each, value)) : void()), ...);
  });
  if (!found) throw UsageError("no field of the shared record: " + name);
  g_brio_lib_atcmd_data = record;
}
