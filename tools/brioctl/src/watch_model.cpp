#include "watch_model.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>

#include "printable.h"
#include "text.h"

namespace brioctl::watch {
namespace {

using Json = nlohmann::ordered_json;

// 3GPP TS 27.007, +COPS.
constexpr const char* kTechnologies[] = {"GSM",   "GSM compact", "UMTS", "EDGE",
                                         "HSDPA", "HSUPA",       "HSPA", "LTE"};
constexpr const char* kRegistrations[] = {"none", "home", "roaming", "denied"};
constexpr const char* kNotOpen = "not open";
constexpr const char* kSarModes[] = {"off", "on", "undecided"};

// The scale of the signal's power by technology: step n is `zero` + n dBm, 0 and `top` stand for all beyond.
struct Scale {
  const char* name;
  int zero, top;
};

const Scale* scale_of(int rat) {
  static constexpr Scale kRssi = {"RSSI", -111, 63}, kRscp = {"RSCP", -121, 96}, kRsrp = {"RSRP", -141, 97};
  switch (rat) {
    case 0:
    case 3:
      return &kRssi;
    case 2:
    case 4:
    case 5:
    case 6:
      return &kRscp;
    case kRatLte:
      return &kRsrp;
    default:
      return nullptr;
  }
}

template <std::size_t N>
const char* word(const char* const (&words)[N], int value) {
  return value >= 0 && value < static_cast<int>(N) ? words[value] : nullptr;
}

template <typename T>
void bound(std::deque<T>& items, std::size_t most) {
  while (items.size() > most) items.pop_front();
}

}  // namespace

std::string local_time(std::int64_t wall_ms, const char* format) {
  const std::time_t seconds = wall_ms / 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[40];
  std::strftime(text, sizeof text, format, &local);
  return text;
}

const char* technology_name(int rat) {
  return word(kTechnologies, rat);
}

const char* sar_name(int mode) {
  return word(kSarModes, mode);
}

std::string clock_time(std::int64_t wall_ms) {
  return local_time(wall_ms, "%H:%M:%S");
}

std::optional<Level> level(const Signal& signal) {
  const Scale* scale = scale_of(signal.rat);
  if (scale == nullptr || signal.a < 0 || signal.a > scale->top) return std::nullopt;
  const int step = std::max(signal.a, 1);
  return Level{scale->name, scale->zero + step, signal.a == 0 ? "<" : signal.a == scale->top ? ">=" : ""};
}

std::optional<double> ec_io(const Signal& signal) {
  constexpr int kTop = 49;
  const Scale* scale = scale_of(signal.rat);
  if (scale == nullptr || scale->name != std::string("RSCP") || signal.b < 0 || signal.b > kTop) {
    return std::nullopt;
  }
  return (std::max(signal.b, 1) - kTop) / 2.0;
}

std::string cost(double every) {
  char text[80];
  std::snprintf(text, sizeof text, "%.*f AT commands a minute", every > 60 ? 1 : 0,
                60 / every + 60 / std::max(every, kStateEvery));
  return text;
}

// --- What happens

void Model::add(Record record) {
  if (record.kind != Kind::kState) {
    reports.push_back(record);
    bound(reports, kReports);
  }
  news.push_back(std::move(record));
  if (news.size() > kNews) lost++;
  bound(news, kNews);
}

void Model::line(const at_log::Line& line, std::int64_t now_ms) {
  if (line.port == at_log::Port::kHost) return;
  lines.push_back(line);
  bound(lines, kLines);
  if (line.to_modem) {
    commands.push_back(now_ms);
    bound(commands, kCommands);
    while (commands.front() + 60000 <= now_ms) commands.pop_front();
    return;
  }
  Signal signal;
  signal.ms = now_ms;
  const char* format = line.port == at_log::Port::kUrc ? "+GTBARS: %d,%d,%d,%d" : "+GTBARS: %*d,%d,%d,%d,%d";
  if (std::sscanf(line.text.c_str(), format, &signal.rat, &signal.bars, &signal.a, &signal.b) >= 3) {
    samples.push_back(signal);
    bound(samples, kSamples);
  }
  if (line.port == at_log::Port::kUrc) add({line.wall_ms, Kind::kReport, line.text, {}, {}, 0});
}

void Model::event(const std::string& text, std::int64_t wall_ms) {
  add({wall_ms, Kind::kEvent, text, {}, {}, 0});
}

void Model::read(const Reading& now, std::int64_t now_ms, std::int64_t wall_ms) {
  reading = now;
  Record record{wall_ms, Kind::kState, "", reading, {}, 0};
  if (!samples.empty()) {
    record.signal = samples.back();
    record.age_ms = now_ms - samples.back().ms;
  }
  add(std::move(record));
}

void Model::opened(std::int64_t wall_ms) {
  presence = Presence::kOpen;
  opened_wall = wall_ms;
  problem.clear();
  if (gone_wall != 0) {
    add({wall_ms,
         Kind::kModem,
         "back " + clock_time(wall_ms) + ", gone " + clock_time(gone_wall),
         {},
         {},
         0});
  }
}

void Model::gone(std::int64_t wall_ms) {
  presence = Presence::kGone;
  gone_wall = wall_ms;
  reading = {};
  add({wall_ms, Kind::kModem, "gone " + clock_time(wall_ms), {}, {}, 0});
}

void Model::waits(const std::string& reason, std::int64_t wall_ms) {
  add({wall_ms, Kind::kModem, kNotOpen + (": " + reason), {}, {}, 0});
}

// --- Lines

namespace {

constexpr const char* kKinds[] = {"state", "report", "event", "modem"};

Json hex(std::int64_t value, int digits) {
  if (value < 0) return nullptr;
  char text[24];
  std::snprintf(text, sizeof text, "%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

template <typename T>
Json known(const T& value, bool is) {
  return is ? Json(value) : Json(nullptr);
}

Json of_word(const char* text) {
  return text == nullptr ? Json(nullptr) : Json(text);
}

// The names are those of the JSON and, in this order, the columns of the CSV.
Json state_fields(const Record& record) {
  const Reading& reading = record.reading;
  const std::optional<Level> power = record.signal ? level(*record.signal) : std::nullopt;
  const std::optional<double> ratio = record.signal ? ec_io(*record.signal) : std::nullopt;
  const int bars = record.signal ? record.signal->bars : -1;
  Json fields;
  fields["registration"] = of_word(word(kRegistrations, reading.cs));
  fields["packet_data"] = of_word(word(kRegistrations, reading.ps));
  fields["technology"] = of_word(technology_name(reading.rat));
  fields["plmn"] = known(reading.plmn, !reading.plmn.empty());
  fields["cell"] = hex(reading.cell, 8);
  fields["tac"] = hex(reading.tac, 4);
  fields["lac"] = hex(reading.lac, 4);
  fields["band"] = known(reading.band, !reading.band.empty());
  fields["channel"] = known(reading.channel, reading.channel >= 0);
  fields["bars"] = known(bars, bars >= 0 && bars < 255);
  fields["signal"] = of_word(power ? power->name : nullptr);
  fields["dbm"] = power ? Json(power->dbm) : Json(nullptr);
  fields["bound"] = of_word(power && *power->bound != '\0' ? power->bound : nullptr);
  fields["ec_io"] = ratio ? Json(*ratio) : Json(nullptr);
  fields["signal_age"] = known(static_cast<double>(record.age_ms) / 1000, record.signal.has_value());
  fields["sar"] = of_word(sar_name(reading.sar));
  return fields;
}

std::string dumped(const Json& value) {
  return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::string plain(const Json& value) {
  return value.is_string() ? printable(value.get<std::string>()) : dumped(value);
}

// Without the times of day and reasons, which are for people: "gone", "back" or "not open".
std::string text_of(const Record& record) {
  if (record.kind != Kind::kModem) return record.text;
  return starts(record.text, kNotOpen) ? kNotOpen : record.text.substr(0, record.text.find(' '));
}

// RFC 4180.
std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

std::string as_line(const Record& record) {
  char milliseconds[8];
  std::snprintf(milliseconds, sizeof milliseconds, ".%03d ", static_cast<int>(record.wall_ms % 1000));
  std::string text = local_time(record.wall_ms, "%Y-%m-%d %H:%M:%S") + milliseconds;
  const std::string kind = kKinds[static_cast<int>(record.kind)];
  text += kind + std::string(8 - kind.size(), ' ');
  if (record.kind != Kind::kState) return text + printable(record.text);
  std::string separator;
  const Json fields = state_fields(record);
  for (const auto& [name, value] : fields.items()) {
    // Each technology has its own.
    if (value.is_null() && (name == "lac" || name == "tac" || name == "bound" || name == "ec_io")) continue;
    text += separator + name + "=" + (value.is_null() ? "-" : plain(value));
    separator = " ";
  }
  return text;
}

Json as_json(const Record& record) {
  Json fields;
  fields["time"] = at_log::time_stamp(record.wall_ms);
  fields["type"] = kKinds[static_cast<int>(record.kind)];
  if (record.kind == Kind::kState) {
    fields.update(state_fields(record));
  } else {
    fields["text"] = text_of(record);
  }
  return fields;
}

std::string as_csv(const Record& record) {
  std::string text = at_log::time_stamp(record.wall_ms) + "," + kKinds[static_cast<int>(record.kind)];
  const Json fields = state_fields(record);
  for (const Json& value : fields) {
    text += "," + (value.is_null() || record.kind != Kind::kState ? "" : csv_field(plain(value)));
  }
  return text + "," + csv_field(printable(text_of(record)));
}

std::string csv_heading() {
  std::string text = "time,type";
  const Json fields = state_fields({});
  for (const auto& field : fields.items()) text += "," + field.key();
  return text + ",text";
}

}  // namespace brioctl::watch
