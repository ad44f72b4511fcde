#include "settings.h"

#include <cstdio>

#include "state.h"

namespace modemsim {
namespace {

template <typename Visit>
void each_member(Visit visit) {
  for (const NumberField& field : kNumberFields) visit(field);
  for (const FlagField& field : kFlagFields) visit(field);
  for (const Domain& domain : kDomains) {
    for (const NumberField* field : {&domain.stat, &domain.reject_cause, &domain.mode}) visit(*field);
  }
  for (const Report& report : kReports) visit(report.on);
  for (const TextField& field : kTextFields) visit(field);
  for (const TimeField& field : kTimeFields) visit(field);
}

bool read(Reader& reader, const NumberField& field, int& value) {
  return reader.number_into(field.name, field.low, field.high, value);
}
bool read(Reader& reader, const FlagField& field, bool& value) {
  return reader.flag(field.name, value);
}
bool read(Reader& reader, const TextField& field, std::string& value) {
  const bool is_clock = field.member == &State::clock;
  return is_clock ? read_clock(reader, field.name, value) : reader.text(field.name, value);
}
bool read(Reader& reader, const TimeField& field, Milliseconds& value) {
  return reader.seconds(field.name, value);
}

std::string shown(int value) {
  return std::to_string(value);
}
std::string shown(bool value) {
  return value ? "true" : "false";
}
std::string shown(const std::string& value) {
  return value;
}
std::string shown(Milliseconds value) {
  return format("%g", static_cast<double>(value.count()) / 1000);
}

bool is_text(const std::string& name) {
  return std::any_of(std::begin(kTextFields), std::end(kTextFields),
                     [&](const TextField& field) { return name == field.name; });
}

}  // namespace

bool read_clock(Reader& reader, const std::string& key, std::string& place) {
  if (!reader.text(key, place)) return false;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, zone = 0, size = 0;
  char sign = 0;
  const int read = std::sscanf(place.c_str(), "%2d/%2d/%2d,%2d:%2d:%2d%c%2d%n", &year, &month, &day, &hour,
                               &minute, &second, &sign, &zone, &size);
  const bool form = read == 8 && size == 20 && place.size() == 20 && (sign == '+' || sign == '-') &&
                    place.find_first_not_of("0123456789/,:+-") == std::string::npos;
  const bool time = month >= 1 && month <= 12 && day >= 1 && day <= 31 && hour < 24 && minute < 60 &&
                    second < 61 && zone <= 96;
  if (!form || !time) reader.wrong(*reader.table().get(key), key, kClockForm);
  return true;
}

// `stat`, `reject_cause` and `reg_mode`: those of every domain.
void read_domains(Reader& reader, const char* name, NumberField Domain::*field, Setters& setters) {
  int value = 0;
  const NumberField& any = kDomains[0].*field;
  if (!reader.number_into(name, any.low, any.high, value)) return;
  setters.push_back([field, value](State& state) {
    for (const Domain& domain : kDomains) state.*(domain.*field).member = value;
  });
}

Setters read_state(Reader& reader) {
  Setters setters;
  read_domains(reader, "stat", &Domain::stat, setters);
  read_domains(reader, "reject_cause", &Domain::reject_cause, setters);
  read_domains(reader, "reg_mode", &Domain::mode, setters);
  each_member([&](const auto& field) {
    auto value = State().*field.member;
    if (!read(reader, field, value)) return;
    setters.push_back([&field, value](State& state) { state.*field.member = value; });
  });
  reader.finish();
  return setters;
}

std::function<void(State&)> parse_settings(const std::vector<std::string>& settings) {
  toml::table table;
  for (const std::string& setting : settings) {
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos) throw ScenarioError(setting + ": a setting is written as bars=1");
    const std::string name = setting.substr(0, equals), value = setting.substr(equals + 1);
    toml::table parsed;
    try {
      if (!is_text(name)) parsed = toml::parse("value = " + value);
    } catch (const toml::parse_error&) {
      parsed.clear();  // a text, of which the reader says what it must be
    }
    if (parsed.contains("value")) {
      table.insert_or_assign(name, *parsed.get("value"));
    } else {
      table.insert_or_assign(name, value);
    }
  }
  const Source by_hand;
  Reader reader(by_hand, table, "");
  return [setters = read_state(reader)](State& state) {
    for (const auto& set : setters) set(state);
  };
}

std::vector<std::string> settings_of(const State& state) {
  std::vector<std::string> settings;
  each_member(
      [&](const auto& field) { settings.push_back(field.name + ("=" + shown(state.*field.member))); });
  return settings;
}

}  // namespace modemsim
