#include "watch_layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "printable.h"

namespace brioctl::watch {
namespace {

constexpr int kLabel = 14;        // columns of a value's name
constexpr int kMiddle = 40;       // where a row's second value begins
constexpr int kSideBySide = 120;  // the lists, from this width on

// Continuation bytes of UTF-8 take no column.
bool begins_character(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
}

std::string fitted(const std::string& text, int width) {
  int columns = 0;
  std::size_t end = 0;
  while (end < text.size()) {
    if (begins_character(text[end]) && columns++ == width) break;
    end++;
  }
  return text.substr(0, end) + std::string(static_cast<std::size_t>(std::max(width - columns, 0)), ' ');
}

std::string repeated(const char* piece, int times) {
  std::string text;
  for (int i = 0; i < times; i++) text += piece;
  return text;
}

std::string duration(double seconds) {
  char text[40];
  if (seconds < 10) {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  } else if (seconds < 120) {
    std::snprintf(text, sizeof text, "%.0f s", seconds);
  } else if (seconds < 7200) {
    std::snprintf(text, sizeof text, "%.0f min", seconds / 60);
  } else {
    std::snprintf(text, sizeof text, "%.1f h", seconds / 3600);
  }
  return text;
}

std::string signal_text(const Model& model, std::int64_t now_ms) {
  if (model.samples.empty()) return "-";
  const Signal& signal = model.samples.back();
  const std::optional<Level> power = level(signal);
  const std::optional<double> ratio = ec_io(signal);
  std::string text = "no value";
  char part[64];
  if (power) {
    const std::string bound = *power->bound == '\0' ? "" : power->bound + std::string(" ");
    text = power->name + (" " + bound) + std::to_string(power->dbm) + " dBm";
  }
  if (ratio) {
    std::snprintf(part, sizeof part, ", Ec/Io %.1f dB", *ratio);
    text += part;
  }
  if (signal.bars >= 0 && signal.bars < 255) {
    text += ", " + std::to_string(signal.bars) + (signal.bars == 1 ? " bar" : " bars");
  }
  return text + ", " + duration(static_cast<double>(now_ms - signal.ms) / 1000) + " old";
}

std::string registration_text(int status) {
  static constexpr const char* kTexts[] = {"not registered", "home network", "roaming", "denied"};
  return status >= 0 && status < static_cast<int>(std::size(kTexts)) ? kTexts[status] : "-";
}

std::string hex(std::int64_t value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%0*llX", digits, static_cast<unsigned long long>(value));
  return value < 0 ? "-" : text;
}

std::string number_and_hex(int value) {
  return hex(value, 4) + (value < 0 ? "" : " (" + std::to_string(value) + ")");
}

std::string modem_text(const Model& model) {
  std::string text;
  switch (model.presence) {
    case Presence::kOpening:
      text = "being opened";
      break;
    case Presence::kOpen:
      text = "open since " + clock_time(model.opened_wall);
      if (model.gone_wall != 0) {
        text = "gone " + clock_time(model.gone_wall) + ", back " + clock_time(model.opened_wall);
      }
      break;
    case Presence::kGone:
      text = "gone " + clock_time(model.gone_wall);
      break;
  }
  return text + (model.problem.empty() ? "" : ": " + printable(model.problem));
}

class Screen {
 public:
  Screen(const Model& model, int width, std::int64_t now_ms, std::int64_t wall_ms, bool ascii)
      : model_(model), width_(width), now_ms_(now_ms), wall_ms_(wall_ms), ascii_(ascii) {}

  std::vector<Row> draw(int height);

 private:
  using List = std::vector<std::string>;

  void row(const std::string& text, Row::Style style = Row::kPlain) {
    rows_.push_back({fitted(text, width_), style});
  }
  void pair(const char* name, const std::string& value, const char* name2 = "",
            const std::string& value2 = "") {
    const std::string left = fitted(name, kLabel) + value;
    row(*name2 == '\0' ? left : fitted(left, kMiddle - 1) + " " + fitted(name2, kLabel) + value2);
  }
  void facts();
  void graph(int height);
  std::vector<std::optional<int>> columns(int count) const;
  void lists(int height);
  List last_reports(int count) const;
  List last_lines(int count) const;

  const Model& model_;
  int width_;
  std::int64_t now_ms_, wall_ms_;
  bool ascii_;
  std::vector<Row> rows_;
};

void Screen::facts() {
  const Reading& reading = model_.reading;
  const char* technology = technology_name(reading.rat);
  const bool lte = reading.rat == kRatLte;
  const auto or_dash = [](const std::string& text) { return text.empty() ? "-" : printable(text); };
  pair("Registration", registration_text(reading.cs), "Packet data", registration_text(reading.ps));
  pair("Technology", technology == nullptr ? "-" : technology, "Network", or_dash(reading.plmn));
  pair("Cell", hex(reading.cell, 8),
       lte                     ? "TAC"
       : technology == nullptr ? "TAC or LAC"
                               : "LAC",
       number_and_hex(lte ? reading.tac : reading.lac));
  pair("Band", or_dash(reading.band), "Channel", reading.channel < 0 ? "-" : std::to_string(reading.channel));
  pair("Signal", signal_text(model_, now_ms_));
  const char* sar = sar_name(reading.sar);
  const auto recent = std::count_if(model_.commands.begin(), model_.commands.end(),
                                    [&](std::int64_t sent) { return sent + 60000 > now_ms_; });
  pair("SAR back-off", sar == nullptr ? "-" : sar, "AT commands",
       std::to_string(recent) + " in the last minute");
  pair("Modem", modem_text(model_));
  if (model_.presence != Presence::kOpen || !model_.problem.empty()) rows_.back().style = Row::kAlarm;
}

// The lowest power in each column's time; nothing where none was known.
std::vector<std::optional<int>> Screen::columns(int count) const {
  std::vector<std::optional<int>> values(static_cast<std::size_t>(count));
  const auto column_ms = static_cast<std::int64_t>(model_.seconds_per_column * 1000);
  const std::int64_t first = now_ms_ / column_ms - count + 1;
  // A sample holds until the next one, but not for long.
  const auto holds_ms = static_cast<std::int64_t>(model_.every * 2500);
  for (std::size_t i = 0; i < model_.samples.size(); i++) {
    const std::optional<Level> power = level(model_.samples[i]);
    if (!power) continue;
    const std::int64_t from = model_.samples[i].ms;
    const std::int64_t next = i + 1 < model_.samples.size() ? model_.samples[i + 1].ms : now_ms_ + 1;
    const std::int64_t last = std::max(from, std::min(next - 1, from + holds_ms));
    for (std::int64_t at = std::max(from / column_ms, first); at <= last / column_ms; at++) {
      if (at - first >= count) break;
      auto& value = values[static_cast<std::size_t>(at - first)];
      value = std::min(value.value_or(power->dbm), power->dbm);
    }
  }
  return values;
}

void Screen::graph(int height) {
  constexpr int kScale = 6;  // columns of the scale's numbers
  constexpr int kEighths = 8;
  static constexpr const char* kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  const int count = width_ - kScale - 1, bars = height - 1;
  if (count < 10 || bars < 2) {
    for (int i = 0; i < height; i++) row("");
    return;
  }
  const auto values = columns(count);
  int low = 0, high = -200;
  for (const auto& value : values) {
    low = std::min(low, value.value_or(low));
    high = std::max(high, value.value_or(high));
  }
  if (high < low) {
    low = -140;
    high = -44;
  }
  low = static_cast<int>(std::floor((low - 3) / 10.0)) * 10;
  high = std::max(static_cast<int>(std::ceil((high + 1) / 10.0)) * 10, low + 30);
  for (int line = bars - 1; line >= 0; line--) {
    char number[16] = "";
    if (line == 0 || line == bars - 1) std::snprintf(number, sizeof number, "%d", line == 0 ? low : high);
    std::string text = std::string(static_cast<std::size_t>(kScale) - std::string(number).size() - 1, ' ') +
                       number + (ascii_ ? " |" : " ┤");
    for (const auto& value : values) {
      const int filled =
          value ? std::max(1, (*value - low) * bars * kEighths / (high - low)) - line * kEighths : 0;
      const int eighths = std::clamp(filled, 0, kEighths);
      text += ascii_ ? (eighths >= kEighths / 2 || (line == 0 && eighths > 0) ? "#" : " ") : kBlocks[eighths];
    }
    row(text);
  }
  const std::string left = " " + duration(count * model_.seconds_per_column) + " ago ";
  const std::string middle = " dBm, a column is " + duration(model_.seconds_per_column) + " ", right = " now";
  const int ruled = count - static_cast<int>(left.size() + middle.size() + right.size());
  const char* rule = ascii_ ? "-" : "─";
  row(std::string(kScale, ' ') + (ascii_ ? "+" : "└") + left + repeated(rule, ruled / 2) + middle +
      repeated(rule, ruled - ruled / 2) + right);
}

Screen::List Screen::last_reports(int count) const {
  List list;
  const std::size_t size = model_.reports.size();
  for (std::size_t i = size - std::min(size, static_cast<std::size_t>(count)); i < size; i++) {
    const Record& record = model_.reports[i];
    list.push_back(clock_time(record.wall_ms) + " " + (record.kind == Kind::kModem ? "modem " : "") +
                   printable(record.text));
  }
  return list;
}

// A command and its answer are one row.
Screen::List Screen::last_lines(int count) const {
  List list;
  bool answers = false;  // the row can take a line more
  for (const at_log::Line& line : model_.lines) {
    const bool report = line.port == at_log::Port::kUrc;
    const std::string text = (line.to_modem ? "--> " : "<-- ") + printable(line.text);
    if (answers && !report && !line.to_modem) {
      list.back() += "  " + text;
      continue;
    }
    list.push_back(clock_time(line.wall_ms) + (report ? " urc   " : " query ") + text);
    answers = !report;
  }
  list.erase(list.begin(),
             list.end() - std::min<std::ptrdiff_t>(count, static_cast<std::ptrdiff_t>(list.size())));
  return list;
}

void Screen::lists(int height) {
  if (height <= 0) return;
  const auto at = [](const List& list, int i) {
    return i < static_cast<int>(list.size()) ? list[static_cast<std::size_t>(i)] : "";
  };
  if (width_ >= kSideBySide) {
    const int left = width_ / 2;
    row(fitted("Reports and events", left) + "Lines of the ports", Row::kTitle);
    const List reports = last_reports(height - 1), lines = last_lines(height - 1);
    for (int i = 0; i < height - 1; i++) row(fitted(at(reports, i), left - 2) + "  " + at(lines, i));
    return;
  }
  const int upper = height < 6 ? height : (height + 1) / 2, lower = height - upper;
  const List reports = last_reports(upper - 1), lines = last_lines(std::max(lower - 1, 0));
  row("Reports and events", Row::kTitle);
  for (int i = 0; i < upper - 1; i++) row(at(reports, i));
  if (lower > 0) row("Lines of the ports", Row::kTitle);
  for (int i = 0; i < lower - 1; i++) row(at(lines, i));
}

std::vector<Row> Screen::draw(int height) {
  const std::string time = local_time(wall_ms_, "%Y-%m-%d %H:%M:%S");
  row(fitted(" brioctl watch: " + printable(model_.modem), width_ - static_cast<int>(time.size()) - 2) + " " +
          time,
      Row::kTitle);
  facts();
  const int rest = height - static_cast<int>(rows_.size()) - 1;
  const int graphed = rest < 8 ? 0 : std::min(rest * 2 / 5, 16);
  if (graphed > 0) graph(graphed);
  lists(rest - graphed);
  char every[32];
  std::snprintf(every, sizeof every, "%g", model_.every);
  rows_.resize(static_cast<std::size_t>(std::max(height - 1, 0)), {fitted("", width_), Row::kPlain});
  row(std::string(" q ends   + - time scale   asks every ") + every + " s: " + cost(model_.every),
      Row::kTitle);
  rows_.resize(static_cast<std::size_t>(std::max(height, 0)));
  if (ascii_) {
    for (Row& each : rows_) {
      std::string text;
      for (const char c : each.text) {
        if (begins_character(c)) text += (static_cast<unsigned char>(c) & 0x80) != 0 ? '?' : c;
      }
      each.text = text;
    }
  }
  return rows_;
}

}  // namespace

std::vector<Row> layout(const Model& model, int width, int height, std::int64_t now_ms, std::int64_t wall_ms,
                        bool ascii) {
  return Screen(model, std::max(width, 1), now_ms, wall_ms, ascii).draw(height);
}

}  // namespace brioctl::watch
