// The AT log: every line of the query and the URC port with its time and direction, and what the host called.
//
//   2026-11-22T07:12:03.123Z       312 query --> AT+GTBARS?
//   2026-11-22T07:12:03.125Z       314 query <-- +GTBARS: 0,7,4,60,30
//   2026-11-22T07:12:09.001Z      6190 urc   <-- +CREG: 5,"1A2B","01C2D3E4",7
//   2026-11-22T07:12:03.122Z       311 host  --> wabs_get_bars
//   2026-11-22T07:12:03.126Z       315 host  <-- 0 4
//
// The columns are UTC, milliseconds on the monotonic clock since the log began, port, direction (--> to the
// modem, or a call of the host; <-- from the modem, or a call's result) and the line without its line end.
// Control characters and other bytes that are no text stand as \xNN, a backslash as \\; a single backslash at
// the end says that the line end was missing. Lines that begin with # are remarks; one of them counts:
//
//   # 2026-11-22T07:12:30.500Z     27689 modem <-- hung up
#ifndef TOOLS_AT_LOG_H
#define TOOLS_AT_LOG_H

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace at_log {

enum class Port { kQuery, kUrc, kHost, kModem };  // the last for the modem's end

struct Line {
  std::int64_t wall_ms = 0;  // since 1970, UTC
  std::int64_t ms = 0;       // since the log began, monotonic
  Port port = Port::kQuery;
  bool to_modem = false;
  std::string text;
  bool torn = false;  // without a line end
};

std::string time_stamp(std::int64_t wall_ms);  // UTC: 2026-11-22T22:13:05.123Z
// Without blanks, in upper case.
std::string compact(const std::string& command);
std::string format(const Line& line);  // without a line end
std::optional<Line> parse(
    const std::string& whole);  // nothing for a remark or an empty line; throws std::invalid_argument
// Whether a line ends an answer: OK, ERROR and their kin.
bool is_final(const std::string& text);
// FILE, or at.log of a recording's folder.
std::string file_of(const std::string& path);
// Of a file or a recording's folder. Throws std::runtime_error: a sentence with file and line. A last line
// without line end was cut off and is left out: `torn` becomes a sentence about it.
std::vector<Line> load(const std::string& path, std::string* torn = nullptr);

// A command and what the modem said until the next one.
struct Exchange {
  Line command;
  std::vector<Line> answers, reports;
};

// What the modem said on its query and its URC port, by command. Reports that came before the first command
// are those of an exchange without command text.
std::vector<Exchange> exchanges(const std::vector<Line>& lines);

// Hides IMSI, ICCID and IMEI: from the seventh digit on they become zeros, so that a recording can still be
// answered from. Remembers that a SIM's file was asked for, which the answer does not name, and that the line
// before was torn.
class Mask {
 public:
  explicit Mask(char shown = '0') : shown_(shown) {}  // instead of the digits
  void hide(Line& line);

 private:
  char shown_;
  bool file_ = false;  // an identity's file was asked for and not answered
  bool torn_ = false;
};

// Makes lines of bytes as they pass, and hands them to its listeners. Any thread.
class Journal {
 public:
  // Called with the journal's mutex held, by the thread that passes the bytes: listeners must not wait.
  using Listener = std::function<void(const Line&)>;
  using Remark = std::function<void(const std::string&)>;

  explicit Journal(bool identities);
  void listen(Listener listener);  // before the first bytes
  void listen_remarks(Remark listener);
  void bytes(Port port, bool to_modem, const char* data, std::size_t size);
  void call(bool begins, const std::string& text);
  void hung_up();
  // What happened to the log itself: lost bytes.
  void remark(const std::string& text);
  // Ends lines whose line end has not come for a second. How long until the next one needs it; -1 for none.
  int tick();
  void finish();  // ends every line

 private:
  struct Channel {
    std::string partial;
    std::int64_t since = 0;  // monotonic, of the last byte
  };
  static std::int64_t now();
  void tell(Port port, bool to_modem, std::string text, bool torn);

  std::mutex mutex_;  // guards everything below; listeners are called with it held
  bool identities_;
  std::int64_t start_;
  Mask mask_;
  std::vector<Listener> listeners_;
  std::vector<Remark> remark_listeners_;
  std::array<Channel, 4> channels_;  // by port and direction
};

}  // namespace at_log

#endif
