#include "modemsim/pty_port.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

namespace modemsim {
namespace {

constexpr std::chrono::microseconds kPieceCheck(20);     // how soon to look whether a piece was read
constexpr std::chrono::milliseconds kPiecePatience(20);  // then the next piece goes out all the same
constexpr std::chrono::milliseconds kStreamTick(10);     // of a stream with a rate

// The trace stream repeats this block. Its length is prime, so that no buffer size of a reader lines up with
// it.
constexpr std::size_t kPatternSize = 65521;

const std::array<unsigned char, kPatternSize>& pattern() {
  static const auto bytes = [] {
    std::array<unsigned char, kPatternSize> block{};
    std::uint32_t x = 2463534242U;
    for (auto& byte : block) {
      x ^= x << 13;
      x ^= x >> 17;
      x ^= x << 5;
      byte = static_cast<unsigned char>(x >> 11);
    }
    return block;
  }();
  return bytes;
}

std::string failure(const char* what) {
  return std::string(what) + ": " + std::strerror(errno);
}

}  // namespace

unsigned char trace_pattern_byte(std::uint64_t position) {
  return pattern()[position % kPatternSize];
}

std::string PtyPort::create(int inotify) {
  close();
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (master_ < 0) return failure("cannot open a pseudo terminal");
  char name[128];
  termios settings{};
  if (grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name, sizeof name) != 0 ||
      tcgetattr(master_, &settings) != 0) {
    std::string text = failure("cannot prepare a pseudo terminal");
    close();
    return text;
  }
  cfmakeraw(&settings);
  if (tcsetattr(master_, TCSANOW, &settings) != 0) {
    std::string text = failure("cannot make a pseudo terminal raw");
    close();
    return text;
  }
  device_ = name;
  if (inotify >= 0) watch_ = inotify_add_watch(inotify, name, IN_OPEN | IN_CLOSE);
  if (watch_ < 0) {
    peer_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (peer_ < 0) {
      std::string text = failure("cannot open the other side of a pseudo terminal");
      close();
      return text;
    }
    always_open_ = open_ = true;
  }
  return "";
}

void PtyPort::close() {
  always_open_ = false;
  release_peer();
  if (master_ >= 0) ::close(master_);
  master_ = watch_ = -1;
  open_ = blocked_ = false;
  retry_at_ = Clock::time_point::max();
  waiting_.clear();
  head_ = 0;
  stream_left_ = 0;
  endless_ = false;
  device_.clear();
}

void PtyPort::release_peer() {
  if (peer_ < 0 || always_open_) return;
  ::close(peer_);
  peer_ = -1;
}

void PtyPort::device_opened() {
  if (master_ < 0 || open_) return;
  pollfd item{master_, 0, 0};
  if (poll(&item, 1, 0) >= 0 && (item.revents & POLLHUP) == 0) open_ = true;
}

void PtyPort::note_hangup() {
  open_ = blocked_ = false;
  retry_at_ = Clock::time_point::max();
  waiting_.clear();
  head_ = 0;
  stream_left_ = 0;
  endless_ = false;
  release_peer();
  // What the last user left unread must not reach the next one.
  const int fd = ::open(device_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  if (fd >= 0) {
    tcflush(fd, TCIFLUSH);
    ::close(fd);
  }
}

std::size_t PtyPort::read(char* buffer, std::size_t size) {
  const ssize_t count = ::read(master_, buffer, size);
  if (count > 0) return static_cast<std::size_t>(count);
  if (count == 0 || (errno != EAGAIN && errno != EINTR)) note_hangup();
  return 0;
}

bool PtyPort::queue(const std::string& bytes) {
  if (!open_ || waiting_.size() - head_ + bytes.size() > room_) return false;
  if (head_ == waiting_.size()) {
    waiting_.clear();
    head_ = 0;
  }
  waiting_ += bytes;
  return true;
}

void PtyPort::stream(std::uint64_t bytes, std::uint64_t rate) {
  if (!open_) return;
  stream_left_ += bytes;
  stream_rate_ = rate;
  stream_sent_ = 0;
  stream_start_ = Clock::now();
}

void PtyPort::stream_for_ever(std::uint64_t rate) {
  stream_left_ = 0;
  endless_ = rate > 0;
  if (endless_) stream(std::numeric_limits<std::uint64_t>::max(), rate);
}

void PtyPort::flush() {
  blocked_ = false;
  retry_at_ = Clock::time_point::max();
  if (head_ == waiting_.size() && stream_left_ == 0) return;
  if (!(chunk_ > 0 ? flush_pieces() : flush_whole())) return;
  release_peer();
  if (stream_left_ > 0) flush_stream();
}

bool PtyPort::flush_whole() {
  while (head_ < waiting_.size()) {
    const ssize_t count = ::write(master_, waiting_.data() + head_, waiting_.size() - head_);
    if (count > 0) {
      head_ += static_cast<std::size_t>(count);
      continue;
    }
    blocked_ = true;
    if (head_ > room_ / 4) {
      waiting_.erase(0, head_);
      head_ = 0;
    }
    return false;
  }
  return true;
}

// False when the host has gone, which a side of our own would hide.
bool PtyPort::hold_peer() {
  if (peer_ >= 0) return true;
  pollfd item{master_, 0, 0};
  if (poll(&item, 1, 0) > 0 && (item.revents & POLLHUP) != 0) {
    note_hangup();
    return false;
  }
  peer_ = ::open(device_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  return true;
}

// Polling the host's side makes the kernel hand over what it still holds, so "nothing to read" means that the
// reader has it.
bool PtyPort::reader_is_behind() {
  pollfd item{peer_, POLLIN, 0};
  return peer_ >= 0 && poll(&item, 1, 0) > 0 && (item.revents & POLLIN) != 0;
}

bool PtyPort::flush_pieces() {
  while (head_ < waiting_.size() && hold_peer()) {
    const auto now = Clock::now();
    if (now - last_piece_ < kPiecePatience && reader_is_behind()) {
      retry_at_ = now + kPieceCheck;
      return false;
    }
    const ssize_t count =
        ::write(master_, waiting_.data() + head_, std::min(chunk_, waiting_.size() - head_));
    if (count <= 0) {
      blocked_ = true;
      return false;
    }
    head_ += static_cast<std::size_t>(count);
    last_piece_ = now;
  }
  return true;
}

void PtyPort::flush_stream() {
  const auto& block = pattern();
  while (stream_left_ > 0) {
    const std::size_t start = stream_position_ % kPatternSize;
    std::uint64_t size = std::min<std::uint64_t>(stream_left_, kPatternSize - start);
    if (stream_rate_ > 0) {
      const auto now = Clock::now();
      const double allowed =
          std::chrono::duration<double>(now - stream_start_).count() * static_cast<double>(stream_rate_);
      size = std::min(size,
                      static_cast<std::uint64_t>(std::max(0.0, allowed - static_cast<double>(stream_sent_))));
      if (size == 0) {
        retry_at_ = now + kStreamTick;
        return;
      }
    }
    const ssize_t count = ::write(master_, block.data() + start, static_cast<std::size_t>(size));
    if (count <= 0) {
      blocked_ = true;
      return;
    }
    const auto sent = static_cast<std::uint64_t>(count);
    stream_position_ += sent;
    stream_sent_ += sent;
    stream_left_ -= sent;
  }
}

}  // namespace modemsim
