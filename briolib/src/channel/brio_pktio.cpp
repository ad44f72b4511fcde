// Serial ports: the read thread, which cuts both ports' bytes into answers and unsolicited lines, and the
// sending of commands.
#include "channel/brio_pktio.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/own_threads.h"
#include "base/text.h"
#include "brio/brio_at.h"
#include "channel/at_helper.h"
#include "channel/brio_pktio_ports.h"
#include "channel/request.h"

constexpr char kLogTag[] = "briolib/src/brio_pktio";

using namespace brio;

namespace {

constexpr size_t kSendBufferSize = 512;
constexpr size_t kPrefixSize = 512;
// How long a command waits for a modem that has stopped taking bytes.
constexpr int kWriteWaitSeconds = 20;
// How often a port may refuse a command that it has just reported room for.
constexpr int kWriteRefusals = 16;

// One port's bytes. Read thread only, while it runs.
struct LineBuffer {
  char data[BRIO_LINE_DATA_MAX + 1];
  char* leftover;  // incomplete line that the next read continues, or null; a place in `data`
};

// The command that is outstanding.
struct Command {
  uint32_t serial;  // grows with every change
  uint32_t type;
  bool has_prefix;
  char prefix[kPrefixSize];
};

// The lines so far of the answer to one command.
struct Answer {
  ATResponse record;
  size_t held;       // bytes that its lines take
  uint32_t command;  // its serial
};

// Serialises pktio_init and pktio_shutdown; guards s_thread. Taken before the others.
pthread_mutex_t s_lifecycle_mutex = PTHREAD_MUTEX_INITIALIZER;
// Guards s_ports and s_port_users. Held for a moment only, never while reading or writing a port.
pthread_mutex_t s_ports_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t s_ports_unused = PTHREAD_COND_INITIALIZER;  // s_port_users fell to 0
// Guards s_command. The read thread holds it while it classifies one line.
pthread_mutex_t s_command_mutex = PTHREAD_MUTEX_INITIALIZER;

Ports s_ports;
unsigned s_port_users;  // writers; the ports stay open until they are gone
Command s_command = {0, NO_COMMAND, false, {}};

void prv_read_ports(int stop);
OwnThread s_thread(Thread::kRead, prv_read_ports);

// Set before the read thread starts.
pktio_packet_cb s_packet_cb;
void* s_packet_context;
void (*s_shutdown_cb)(void*);
void* s_shutdown_context;

LineBuffer s_query_lines;
LineBuffer s_urc_lines;
Answer s_answer;                      // read thread only
char s_send_buffer[kSendBufferSize];  // under the packet layer's send mutex

// Keeps the ports open while a command is written.
class PortUse : NoCopy {
 public:
  PortUse() {
    MutexGuard lock(s_ports_mutex);
    ports_ = s_ports;
    if (ports_.query >= 0) s_port_users++;
  }
  ~PortUse() {
    if (ports_.query < 0) return;
    MutexGuard lock(s_ports_mutex);
    if (--s_port_users == 0) pthread_cond_signal(&s_ports_unused);
  }

  const Ports& ports() const { return ports_; }

 private:
  Ports ports_;
};

// Takes the ports out of use and closes them. Only the read thread does this, or the thread that failed to
// start it.
void prv_retire_ports() {
  s_thread.hang_up();  // a writer that waits for room sees this and leaves
  Ports ports;
  {
    MutexGuard lock(s_ports_mutex);
    ports = s_ports;
    s_ports = Ports();
    while (s_port_users > 0) pthread_cond_wait(&s_ports_unused, &s_ports_mutex);
  }
  close_ports(ports);
}

void prv_drop_answer() {
  clear_answer(&s_answer.record);
  s_answer.held = 0;
}

void prv_keep(LineBuffer* lines, char* partial) {
  lines->leftover = *partial != '\0' ? partial : nullptr;
}

// One line of text and the place after it, which is the end of the text when it was a prompt.
struct Cut {
  char* line;
  char* rest;
};

// Ends the first line of `text`, which ends at `end`. False when `text` holds no complete line.
bool prv_cut_line(char* text, char* end, Cut* cut) {
  char* line_end = find_next_EOL(text);
  if (line_end == nullptr) return false;
  *line_end = '\0';
  *cut = {text, line_end < end ? line_end + 1 : end};
  return true;
}

enum class Verdict { kComplete, kGoOn, kGoOnBas, kNoCommand, kViolation };

// Judges one line by the outstanding command.
Verdict prv_classify(const char* line) {
  MutexGuard lock(s_command_mutex);
  if (s_command.type == NO_COMMAND) return Verdict::kNoCommand;
  if (s_answer.command != s_command.serial) {
    // Lines of a command that has timed out since are no part of this answer.
    prv_drop_answer();
    s_answer.command = s_command.serial;
  }
  const char* prefix = s_command.has_prefix ? s_command.prefix : nullptr;
  int32_t result = process_answer_line(line, &s_answer.record, s_command.type, prefix, &s_answer.held);
  if (result == AT_LINE_FINAL) return Verdict::kComplete;
  if (result != AT_LINE_MORE) return Verdict::kViolation;
  return prefix != nullptr && strcmp(prefix, kBasPrefix) == 0 ? Verdict::kGoOnBas : Verdict::kGoOn;
}

char* prv_skip_to_final(char* text) {
  char* final_line = strstr(text, "OK");
  if (final_line == nullptr) final_line = strstr(text, "ERROR");
  return final_line != nullptr ? final_line : text;
}

// Takes the lines of one read of the query port apart. `text` holds at least one complete line.
void prv_take_answer_lines(Cut cut, char* end) {
  for (;;) {
    Verdict verdict = prv_classify(cut.line);
    switch (verdict) {
      case Verdict::kComplete:
        // What the same read holds after the final line is dropped.
        if (s_packet_cb != nullptr) s_packet_cb(kKindResponse, &s_answer.record, s_packet_context);
        prv_drop_answer();
        return;
      case Verdict::kNoCommand:
        // An answer whose request has timed out, or noise.
        prv_drop_answer();
        BLIB_E("prv_read_thread:NO_COMMAND:cleaning up!\n");
        return;
      case Verdict::kViolation:
        prv_drop_answer();
        BLIB_E("process_line:ERROR:cleaning up!\n");
        return;
      case Verdict::kGoOnBas:
        cut.rest = prv_skip_to_final(cut.rest);
        break;
      case Verdict::kGoOn:
        break;
    }
    char* text = skip_line_ends(cut.rest);
    BLIB_D(BRIO_LOG_AT_DETAIL, "line[%s][%p] \n", text, static_cast<void*>(text));
    if (!prv_cut_line(text, end, &cut)) {
      if (*text == '\0') return;
      BLIB_D(BRIO_LOG_AT_DETAIL, "leftover buf str[%s]\n", text);
      prv_keep(&s_query_lines, text);
      return;
    }
  }
}

// Reads one port; null when the thread is to end. The text begins with no line end.
char* prv_read_port(int fd, LineBuffer* lines) {
  int32_t count = 0;
  char* text = read_line(fd, lines->data, &lines->leftover, &count);
  if (count > 0) return text;
  if (count < 0) {
    BLIB_E("read:errno=%d:error on read--pausing read thread\n", errno);
  } else {
    BLIB_E("eof::EOF received--pausing read thread\n");
  }
  return nullptr;
}

// False when the thread is to end.
bool prv_serve_query_port(int fd) {
  char* text = prv_read_port(fd, &s_query_lines);
  if (text == nullptr) return false;
  BLIB_D(BRIO_LOG_AT_DETAIL, "AT resp[%s]\n", text);
  char* end = text + strlen(text);
  Cut cut;
  if (prv_cut_line(text, end, &cut)) {
    prv_take_answer_lines(cut, end);
  } else {
    BLIB_D(BRIO_LOG_AT_DETAIL, "saving incomplete URC len[%td] Str[%s]\n", end - text, text);
    prv_keep(&s_query_lines, text);
  }
  return true;
}

// False when the thread is to end.
bool prv_serve_urc_port(int fd) {
  BLIB_D(BRIO_LOG_URC, "s_pktio_urc_p[%p]\n", static_cast<void*>(s_urc_lines.data));
  char* text = prv_read_port(fd, &s_urc_lines);
  if (text == nullptr) return false;
  if (find_next_EOL(text) == nullptr) {
    BLIB_D(BRIO_LOG_URC, "saving incomplete URC[%s]\n", text);
    prv_keep(&s_urc_lines, text);
    return true;
  }
  BLIB_D(BRIO_LOG_URC, "URC: %s\n", text);
  char* end = text + strlen(text);
  Cut cut;
  while (prv_cut_line(text, end, &cut)) {
    if (s_packet_cb != nullptr) s_packet_cb(kKindUrc, cut.line, s_packet_context);
    text = skip_line_ends(cut.rest);
  }
  if (*text != '\0') {
    BLIB_D(BRIO_LOG_URC, "leftover string[%s]\n", text);
    prv_keep(&s_urc_lines, text);
  }
  return true;
}

// One wait for the ports and what came of it. False when the thread is to end.
bool prv_serve_ports(const Ports& ports, const fd_set& watched, int highest) {
  fd_set readable = watched;
  fd_set exceptional = watched;
  BLIB_D(BRIO_LOG_SELECT, "entered select\n");
  int ready = select(highest + 1, &readable, nullptr, &exceptional, nullptr);
  int err = errno;
  BLIB_D(BRIO_LOG_SELECT, "exited select num_fds[%d]\n", ready);
  if (ready < 0) {
    if (err == EINTR) return true;
    BLIB_E("select:errno=%d:select failed--pausing read thread\n", err);
    return false;
  }
  if (FD_ISSET(ports.query, &exceptional) || FD_ISSET(ports.urc, &exceptional)) {
    BLIB_E("selerr:errno=%d:select err on read fd--exiting\n", err);
    return false;
  }
  if (FD_ISSET(ports.stop, &exceptional)) {
    BLIB_E("selerr:errno=%d:select err on socket pair--exiting\n", err);
    return false;
  }
  if (FD_ISSET(ports.stop, &readable)) {
    BLIB_D(BRIO_LOG_PORT, "exiting read thread\n");
    return false;
  }
  if (FD_ISSET(ports.query, &readable) && !prv_serve_query_port(ports.query)) return false;
  if (FD_ISSET(ports.urc, &readable) && !prv_serve_urc_port(ports.urc)) return false;
  return true;
}

void prv_read_ports(int) {
  Ports ports;
  {
    MutexGuard lock(s_ports_mutex);
    ports = s_ports;
  }
  fd_set watched;
  FD_ZERO(&watched);
  int highest = -1;
  const int descriptors[] = {ports.query, ports.urc, ports.stop};
  for (int fd : descriptors) {
    FD_SET(fd, &watched);
    if (fd > highest) highest = fd;
  }
  BLIB_D(BRIO_LOG_PORT, "prv_read_thread(),nfds:%d\n", highest);
  while (prv_serve_ports(ports, watched, highest)) {
  }
  prv_drop_answer();
  if (s_shutdown_cb != nullptr) s_shutdown_cb(s_shutdown_context);
  prv_retire_ports();
}

// The thread closes the ports.
void prv_end_thread() {
  assert_held(s_lifecycle_mutex);
  if (!s_thread.started()) return;
  const int error = s_thread.stop();
  if (error != 0) {
    BLIB_W("socketpair:errno=%d:unable to write to socket pair\n", error);
    if (error != EBADF) BLIB_E("socketpair:write:error on socket pair\n");
  }
  s_thread.join();
}

// Waits until the query port takes bytes again. False with errno when it does not within kWriteWaitSeconds
// since `start`, or the ports are closing.
bool prv_wait_writable(const Ports& ports, const timespec& start) {
  pollfd watched[] = {{ports.query, POLLOUT, 0}, {ports.stop, POLLIN, 0}};
  int ready;
  do {
    timespec now = start;
    clock_monotonic(&now);
    auto waited = now.tv_sec - start.tv_sec;
    ready =
        waited < kWriteWaitSeconds ? clock_poll(watched, 2, kWriteWaitSeconds - static_cast<int>(waited)) : 0;
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) return false;
  if (ready > 0 && watched[1].revents == 0) return true;
  errno = ready == 0 ? ETIMEDOUT : ECANCELED;
  return false;
}

// Everything in one write. A port that has room for a part only fails like any short write.
bool prv_write_whole(const Ports& ports, const char* bytes, size_t length) {
  timespec start = {};
  clock_monotonic(&start);
  ssize_t written;
  int refusals = 0;
  do {
    written = write(ports.query, bytes, length);
  } while (written < 0 && (errno == EINTR || (errno == EAGAIN && refusals++ < kWriteRefusals &&
                                              prv_wait_writable(ports, start))));
  if (written >= 0) errno = EIO;
  return written == static_cast<ssize_t>(length);
}

// The number of the command before.
uint32_t prv_set_command(uint32_t type, const char* prefix) {
  MutexGuard lock(s_command_mutex);
  const uint32_t before = s_command.serial++;
  s_command.type = type;
  s_command.has_prefix = prefix != nullptr;
  copy_text(s_command.prefix, prefix != nullptr ? prefix : "");
  return before;
}

}  // namespace

uint32_t pktio_reset_command() {
  return prv_set_command(NO_COMMAND, nullptr);
}

bool pktio_answer_is_late(const ATResponse* answer, uint32_t* command) {
  if (answer != &s_answer.record) return false;
  *command = s_answer.command;
  MutexGuard lock(s_command_mutex);
  return s_answer.command != s_command.serial;
}

void pktio_set_shutdown_callback(void (*callback)(void*), void* context) {
  s_shutdown_cb = callback;
  s_shutdown_context = context;
}

uint32_t pktio_init(const char* query_port, pktio_packet_cb callback, void* context) {
  if (refused_here("pktio_init")) return PKTIO_FAILED;
  MutexGuard lifecycle(s_lifecycle_mutex);
  prv_end_thread();
  Ports ports;
  if (!open_ports(query_port, &ports)) {
    close_ports(ports);
    return PKTIO_FAILED;
  }
  if (!s_thread.open_sockets()) {
    BLIB_E("socketpair:errno=%d:can't create socket pair\n", errno);
    close_ports(ports);
    return PKTIO_FAILED;
  }
  ports.stop = s_thread.stop_socket();
  s_packet_cb = callback;
  s_packet_context = context;
  s_query_lines.leftover = nullptr;
  s_urc_lines.leftover = nullptr;
  pktio_reset_command();
  {
    MutexGuard lock(s_ports_mutex);
    s_ports = ports;
  }
  const int err = s_thread.start();
  if (err != 0) {
    BLIB_E("create_th:err=%d:cant create thread\n", err);
    prv_retire_ports();
    s_thread.close_sockets();
    return PKTIO_FAILED;
  }
  return PKTIO_OK;
}

uint32_t pktio_at_send_cmd(const char* command, uint32_t type, const char* response_prefix) {
  if (command == nullptr || refused_in_forked_child("pktio_at_send_cmd")) return PKTIO_FAILED;
  prv_set_command(type, response_prefix);
  size_t length = strnlen(command, sizeof(s_send_buffer) - 1);
  memcpy(s_send_buffer, command, length);
  s_send_buffer[length] = '\r';
  BLIB_D(BRIO_LOG_PORT, "atcmd request:%s\n", command);

  PortUse use;
  if (prv_write_whole(use.ports(), s_send_buffer, length + 1)) return PKTIO_OK;
  char text[128];
  BLIB_E("AT:Unable to send command %s err %s:\n", command, strerror_r(errno, text, sizeof(text)));
  return PKTIO_FAILED;
}

void pktio_shutdown(void) {
  if (refused_here("pktio_shutdown")) return;
  MutexGuard lifecycle(s_lifecycle_mutex);
  prv_end_thread();
}
