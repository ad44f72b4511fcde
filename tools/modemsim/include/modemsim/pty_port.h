// One pseudo terminal of the modem: what the host has open as a serial port.
//
// The simulator keeps no descriptor of the host's side, so that it knows when nobody has the port open: the
// master then reports a hang-up and must not be polled. Opening is learnt through inotify.
#ifndef MODEMSIM_PTY_PORT_H
#define MODEMSIM_PTY_PORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace modemsim {

using Clock = std::chrono::steady_clock;

class PtyPort {
 public:
  PtyPort() = default;
  ~PtyPort() { close(); }
  PtyPort(const PtyPort&) = delete;
  PtyPort& operator=(const PtyPort&) = delete;

  // Creates the pty in raw mode, without echo. Returns "" or what failed. With a negative `inotify` the port
  // counts as open for ever.
  std::string create(int inotify);
  // Hangs up.
  void close();

  int fd() const { return master_; }
  int watch() const { return watch_; }
  const std::string& device() const { return device_; }
  bool is_open() const { return open_; }

  // inotify saw an open (or a close) of the device.
  void device_opened();
  void device_closed() { release_peer(); }

  // Reads once into `buffer`; the number of bytes, 0 for none. Notices that the last user closed the port.
  std::size_t read(char* buffer, std::size_t size);

  // Bytes for the host, dropped when nobody listens or too many wait; false when they were dropped.
  bool queue(const std::string& bytes);
  void set_room(std::size_t bytes) { room_ = bytes; }  // how many may wait
  // Appends a generated stream to what is queued; `rate` in bytes per second, 0 without limit.
  void stream(std::uint64_t bytes, std::uint64_t rate);
  // A stream without end, for which nobody waits; rate 0 stops it.
  void stream_for_ever(std::uint64_t rate);
  bool streams_for_ever() const { return endless_; }
  void set_chunk(std::size_t bytes) { chunk_ = bytes; }

  bool pending() const { return open_ && (head_ < waiting_.size() || (stream_left_ > 0 && !endless_)); }
  // Writes as much as goes. Afterwards blocked() says whether to poll for room, and retry_at() when to come
  // again without it (Clock::time_point::max() for never).
  void flush();
  bool blocked() const { return blocked_; }
  Clock::time_point retry_at() const { return retry_at_; }

 private:
  void note_hangup();
  bool flush_pieces();
  bool flush_whole();
  void flush_stream();
  bool hold_peer();
  bool reader_is_behind();
  void release_peer();

  int master_ = -1;
  int watch_ = -1;
  int peer_ = -1;  // the host's side, held only while pieces are written, to see whether they were read
  bool always_open_ = false;
  bool open_ = false;
  std::string device_;
  std::string waiting_;
  std::size_t head_ = 0;
  std::size_t room_ = std::size_t{16} << 20;
  std::size_t chunk_ = 0;
  bool blocked_ = false;
  Clock::time_point retry_at_ = Clock::time_point::max();
  Clock::time_point last_piece_{};
  bool endless_ = false;
  std::uint64_t stream_left_ = 0;
  std::uint64_t stream_rate_ = 0;
  std::uint64_t stream_position_ = 0;
  std::uint64_t stream_sent_ = 0;
  Clock::time_point stream_start_{};
};

unsigned char trace_pattern_byte(std::uint64_t position);

}  // namespace modemsim

#endif
