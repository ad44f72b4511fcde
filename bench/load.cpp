// Answers and reports at the same time, as a busy modem sends them: every answer must be its own request's,
// every report must be handled, and heap and descriptors must not grow.
//
//   load [requests] [reports] [reports of the second, heap-only round] [seed]
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "kit/log.h"
#include "kit/process.h"
#include "pty_port.h"

namespace {

std::atomic<long> s_reports_handled{0};
std::atomic<long> s_lines_dropped{0};

void count_line(const char* line) {
  // One of these is the last line of each report's way, whatever it holds.
  for (const char* mark : {"I blib:URC::", "No URC Callback func avail", "doesn't start with + skip parse"}) {
    if (strstr(line, mark) != nullptr) s_reports_handled++;
  }
  for (const char* mark :
       {"cant add log to queue", "cant allocate log payload", "cleaning up!", "can't queue response"}) {
    if (strstr(line, mark) != nullptr) s_lines_dropped++;
  }
}

// The modem's side: answers "AT+X=<number>" with that number, in pieces of random size.
void answer(bench::PtyPort& port, std::atomic<bool>& stop, unsigned seed) {
  std::mt19937 random(seed);
  std::string held;
  char buffer[256];
  while (!stop) {
    ssize_t got = read(port.master(), buffer, sizeof(buffer));
    if (got <= 0) return;
    held.append(buffer, static_cast<size_t>(got));
    size_t end;
    while ((end = held.find('\r')) != std::string::npos) {
      std::string number = held.substr(0, end).substr(held.find('=') + 1);
      held.erase(0, end + 1);
      std::string text =
          "\r\n+X: " + number + "\r\n\r\n" + (random() % 16 == 0 ? "+CME ERROR: 3" : "OK") + "\r\n";
      for (size_t at = 0; at < text.size();) {
        size_t piece = std::min<size_t>(text.size() - at, 1 + random() % 40);
        if (write(port.master(), text.data() + at, piece) < 0) return;
        at += piece;
      }
    }
  }
}

std::string random_report(std::mt19937& random) {
  auto number = [&random](unsigned limit) { return std::to_string(random() % limit); };
  switch (random() % 8) {
    case 0:
      return "+CREG: " + number(6) + ",\"1A2B\",\"01C2D3E4\",7";
    case 1:
      return "+CGREG: " + number(6) + ",\"1A2B\",\"01C2D3E4\",7";
    case 2:
      return "+GTBARS: 7," + number(6) + "," + number(97) + "," + number(50);
    case 3:
      return "+GTOTAREJECT: 0," + number(8) + "," + number(112) + ",310,410";
    case 4:
      return "+CTZV: -28,\"26/03/07,09:05:" + number(60) + "\"";
    case 5:
      return "+BASURC: " + number(2000) + "," + number(2000) + "," + number(3);
    case 6:
      return "+NOBODY: " + std::string(random() % 1500, 'x');
    default:
      return "RING " + number(1000);
  }
}

// At most ten reports are on their way, so that none meets a full queue.
bool send_reports(bench::PtyPort& port, long count, unsigned seed) {
  std::mt19937 random(seed);
  long start = s_reports_handled;
  auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  for (long sent = 0; sent < count; sent++) {
    while (sent - (s_reports_handled - start) >= 2) {
      if (std::chrono::steady_clock::now() > patience) return false;
      std::this_thread::yield();
    }
    std::string line = "\r\n" + random_report(random) + "\r\n";
    if (write(port.master(), line.data(), line.size()) < 0) return false;
  }
  while (s_reports_handled - start < count) {
    if (std::chrono::steady_clock::now() > patience) return false;
    std::this_thread::yield();
  }
  return true;
}

uint32_t recv_func_number(const ATResponse* response, void* user_data, uint16_t) {
  if (response->intermediates == nullptr || response->intermediates->line == nullptr) return 6;
  *static_cast<long*>(user_data) = atol(response->intermediates->line + 4);
  return 0;
}

// What is in use once the last line's block is freed, which is just after the line was counted.
long heap_of_at_most(long most) {
  process::eventually([most] { return process::heap_in_use() <= most; });
  return process::heap_in_use();
}

// Requests whose answers must carry their own number; one in sixteen is refused.
long wrong_answers(long count) {
  long wrong = 0;
  for (long i = 0; i < count; i++) {
    long got = -1;
    std::string command = "AT+X=" + std::to_string(i);
    uint32_t status =
        blpkt_atcmd_request_with_callback(command.c_str(), SINGLELINE, "+X", recv_func_number, &got, 0);
    bool right = (status == BLPKT_STATUS_SUCCESS && got == i) || (status == BLPKT_STATUS_ERROR && got == -1);
    if (!right) wrong++;
  }
  return wrong;
}

}  // namespace

int main(int argc, char** argv) {
  process::count_heap_exactly(argv);
  long requests = argc > 1 ? atol(argv[1]) : 10000;
  long reports = argc > 2 ? atol(argv[2]) : 10000;
  long more_reports = argc > 3 ? atol(argv[3]) : 100000;
  unsigned seed = argc > 4 ? static_cast<unsigned>(atoi(argv[4])) : 1;

  log_capture::hand_to(count_line);
  bench::PortRoot root;
  bench::PtyPort query(root, "ttyACM2"), urc(root, "ttyACM3");
  brio_set_root_dir(root.path().c_str());
  long descriptors_before = process::descriptors();
  if (blpkt_init() != 0 || pktio_init("/dev/ttyACM2", blpkt_handle_packet, nullptr) != 0) {
    fprintf(stderr, "load: the channel did not open\n");
    return 1;
  }
  std::atomic<bool> stop{false};
  std::thread modem([&] { answer(query, stop, seed); });

  long wrong = 0;
  bool complete = true;
  auto round = [&](long request_count, long report_count, unsigned round_seed) {
    std::thread host([&] { wrong += wrong_answers(request_count); });
    complete = send_reports(urc, report_count, round_seed) && complete;
    host.join();
  };
  // A first round fills what is allocated once. The count after it can still hold the last line's block.
  round(requests, reports, seed);
  long heap_before = process::heap_in_use();
  auto start = std::chrono::steady_clock::now();
  round(requests, reports, seed + 1);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  long heap_after = heap_of_at_most(heap_before);

  complete = send_reports(urc, more_reports, seed + 2) && complete;
  long heap_at_end = heap_of_at_most(heap_before);
  long dropped = s_lines_dropped;

  pktio_shutdown();
  blpkt_shutdown();
  stop = true;
  query.poke();
  modem.join();
  long descriptors_after = process::descriptors();

  long growth = heap_after - heap_before;
  long growth_at_end = heap_at_end - heap_before;
  printf("requests   %ld, wrong or lost %ld\n", requests, wrong);
  printf("reports    %ld beside them in %.1f s, then %ld: %s, %ld lines dropped\n", reports, seconds,
         more_reports, complete ? "all handled" : "NOT ALL HANDLED", dropped);
  printf("heap       %+ld bytes after the second, %+ld after the third round\n", growth, growth_at_end);
  printf("files      %+ld descriptors\n", descriptors_after - descriptors_before);
  bool good = wrong == 0 && complete && dropped == 0 && growth <= 0 && growth_at_end <= 0 &&
              descriptors_after == descriptors_before;
  return good ? 0 : 1;
}
