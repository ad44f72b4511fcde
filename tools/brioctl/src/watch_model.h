// What brioctl watch knows of a modem, and how it looks: rows of text for a screen of any size, a line, JSON,
// CSV. No terminal, no library, no clock: the caller says what happened and what time it is.
#ifndef BRIOCTL_WATCH_MODEL_H
#define BRIOCTL_WATCH_MODEL_H

#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "at_log.h"

namespace brioctl::watch {

// The modem's +GTBARS, in its own steps (brio_atcmd_data tells what they mean).
struct Signal {
  std::int64_t ms = 0;  // monotonic
  int rat = -1, bars = -1, a = -1, b = -1;
};

// Signal power: RSSI, RSCP or RSRP by technology.
struct Level {
  const char* name = "";
  int dbm = 0;
  const char* bound = "";  // "<" or ">=" at the ends of the modem's scale
};
std::optional<Level> level(const Signal& signal);
std::optional<double> ec_io(const Signal& signal);  // dB

// What the library knows. -1 and "" are unknown.
struct Reading {
  int cs = -1, ps = -1;  // 0 not registered, 1 home, 2 roaming, 3 denied
  int rat = -1;          // 3GPP TS 27.007, +COPS
  std::string plmn, band;
  std::int64_t cell = -1;
  int tac = -1, lac = -1, channel = -1;
  int sar = -1;  // enum brio_sar_mode
};

constexpr int kRatLte = 7;
const char* technology_name(int rat);  // null when unknown
const char* sar_name(int mode);        // null when unknown

enum class Kind { kState, kReport, kEvent, kModem };

// Something that happened, or with kState what was known then.
struct Record {
  std::int64_t wall_ms = 0;  // since 1970, UTC
  Kind kind = Kind::kState;
  std::string text;
  Reading reading;
  std::optional<Signal> signal;
  std::int64_t age_ms = 0;  // of the signal
};

enum class Presence { kOpening, kOpen, kGone };

// Everything that grows is bounded.
struct Model {
  static constexpr std::size_t kLines = 200, kReports = 200, kSamples = 20000, kNews = 2000, kCommands = 6000;

  std::string modem;  // its name
  double every = 1;   // seconds between questions for the signal
  Presence presence = Presence::kOpening;
  std::int64_t opened_wall = 0, gone_wall = 0;  // 0 for never
  std::string problem;                          // why the modem is not asked, or does not answer
  Reading reading;
  std::deque<Signal> samples;         // the newest at the end
  std::deque<at_log::Line> lines;     // of both ports
  std::deque<Record> reports;         // all but kState
  std::deque<Record> news;            // what nobody took yet, kState too
  std::size_t lost = 0;               // of the news
  std::deque<std::int64_t> commands;  // of the last minute: when they were sent
  double seconds_per_column = 1;      // of the graph

  void line(const at_log::Line& line, std::int64_t now_ms);
  void event(const std::string& text, std::int64_t wall_ms);
  void read(const Reading& now, std::int64_t now_ms, std::int64_t wall_ms);
  void opened(std::int64_t wall_ms);
  void gone(std::int64_t wall_ms);
  void waits(const std::string& reason, std::int64_t wall_ms);  // it was never open yet

 private:
  void add(Record record);
};

// How many AT commands a minute it takes to ask at this rate.
std::string cost(double every);
// The state is also asked for when it may have changed; at the latest after so many seconds.
constexpr double kStateEvery = 10;

// Without line end.
std::string as_line(const Record& record);  // local time
nlohmann::ordered_json as_json(const Record& record);
std::string as_csv(const Record& record);
std::string csv_heading();

std::string local_time(std::int64_t wall_ms, const char* format);  // of strftime
std::string clock_time(std::int64_t wall_ms);                      // 22:13:05, local

}  // namespace brioctl::watch

#endif
