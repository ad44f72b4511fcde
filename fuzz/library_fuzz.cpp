// The whole library with its threads on the simulated modem: answers, reports, silence, junk and unplugging
// from the input against calls of the host interface. Behind each input the library is closed without a trace
// and opens on a healthy modem.
//
// Input: steps of a letter and what prepare_step and call_host take for it. The steps "k" to "u" say how the
// next commands are answered, one each in their order; without one the modem answers from its state.
#include <thread>

#include "clock/test_clock.h"
#include "host.h"
#include "modemsim/modem.h"
#include "process/process.h"
#include "record.h"
#include "root.h"

namespace {

using fuzz::Input;
using fuzz::require;
using modemsim::Port;

constexpr int kStepsMax = 48;

// Descriptors and threads of the process. A thread that was joined leaves /proc a little later.
struct Held {
  long descriptors = process::descriptors(), threads = process::threads();
  bool operator==(const Held& other) const {
    return descriptors == other.descriptors && threads == other.threads;
  }
};

struct World {
  fuzz::Root root;
  modemsim::Modem modem;
  bool plugged = true;

  World() {
    require(modem.start(root.dir()));
    root.write("/mnt/us/apn", "broadband\n");  // the library keeps the last override file open
    open_healthy();
    root.remove("/mnt/us/apn");
  }

  // Requests after whatever was before. A modem that has booted answers nothing late.
  void open_healthy() {
    test_clock::reset();
    modem.clear_faults();
    modem.chunk(0);
    modem.unplug();
    plugged = modem.plug();
    modem.with_state([](modemsim::State& state) { state = modemsim::State(); });
    uint32_t bars = 0;
    require(wabs_open() == 0 && wabs_get_bars(&bars) == 0 && bars == 4);
    require(wabs_close() == 0);
  }

  // Without the descriptor that the simulator opens for a moment when a port was closed.
  Held held() {
    for (;;) {
      const Held before;
      modem.with_state([](modemsim::State&) {});
      const Held now;
      if (now == before) return now;
    }
  }

  void check_held(const Held& wanted) {
    Held now;
    if (process::eventually([&] { return (now = held()) == wanted; })) return;
    fprintf(stderr, "held: descriptors %ld, not %ld; threads %ld, not %ld\n", now.descriptors,
            wanted.descriptors, now.threads, wanted.threads);
    abort();
  }
};

std::string with_line_ends(std::string_view text) {
  std::string framed;
  for (char c : text) framed += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return framed;
}

// How one command is answered.
void script_answer(World& w, char letter, Input& in) {
  modemsim::Fault fault;
  fault.times = 1;
  switch (letter) {
    case 'l':
      fault.replace = true;
      fault.reply = with_line_ends(in.field('|'));
      break;
    case 'm':
      fault.silent = true;
      break;
    case 'n':
      fault.delay = modemsim::Milliseconds(in.byte() % 32);
      break;
    case 'o':
      fault.before = with_line_ends(in.field('|'));
      break;
    case 'p':
      fault.after = with_line_ends(in.field('|'));
      break;
    case 'q':
      fault.joined = true;
      break;
    case 'r':
      fault.before = std::string(in.byte() * size_t{16}, 'x');
      break;
    case 'u':
      fault.unplug = true;
      w.plugged = false;
      break;
    default:
      break;
  }
  w.modem.fault(fault);
}

void change_state(World& w, Input& in) {
  const uint8_t what = in.byte();
  const uint8_t value = in.byte();
  w.modem.update([what, value](modemsim::State& s) {
    int* const numbers[] = {&s.bars, &s.cs_stat,    &s.ps_stat, &s.card_status,
                            &s.rat,  &s.carrier_id, &s.antenna};
    std::string* const texts[] = {&s.imsi, &s.iccid, &s.model, &s.operator_numeric, &s.clock, &s.firmware};
    if (what % 2 == 0) {
      *numbers[what / 2 % std::size(numbers)] = value;
    } else {
      texts[what / 2 % std::size(texts)]->resize(value, '7');
    }
  });
}

// A scan that another thread of the host releases.
void scan_and_abort(World& w) {
  w.modem.clear_commands();
  std::thread aborter([&w] {
    w.modem.wait_command("AT+COPS=?", 1, modemsim::Milliseconds(20));
    fuzz::kAbortScan();
  });
  fuzz::scan(256, false);
  aborter.join();
}

void step(World& w, Input& in) {
  const char letter = static_cast<char>(in.byte());
  switch (letter) {
    case '#':
      w.root.take_file(in);
      break;
    case '+':
      w.modem.urc("+" + std::string(in.field('|')));
      break;
    case '>':
      w.modem.raw(in.byte() % 2 != 0 ? Port::kQuery : Port::kUrc, with_line_ends(in.field('|')));
      break;
    case '~':
      w.modem.stream_trace(in.byte() * 64);
      break;
    case '%':
      w.modem.chunk(in.byte());
      break;
    case '=':
      change_state(w, in);
      break;
    case '-':
      w.modem.unplug();
      w.plugged = false;
      break;
    case '*':
      if (!std::exchange(w.plugged, true)) require(w.modem.plug());
      break;
    case '@':
      test_clock::advance(in.byte() * 4.0);
      usleep(4000);  // the proximity monitor polls meanwhile
      break;
    case '^':
      scan_and_abort(w);
      break;
    default:
      if (letter >= 'k' && letter <= 'u') {
        script_answer(w, letter, in);
      } else {
        fuzz::call_host(in);
      }
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static World world;
  const Held held = world.held();
  Input in(data, size);
  const uint8_t flags = in.byte();
  fuzz::g_format_log_lines = (flags & 2) != 0;
  wabs_set_log_mask(fuzz::g_format_log_lines ? 0xFFFFFFFF : 0);
  briolib_log_set_log_mask(fuzz::g_format_log_lines ? 0xFFFFFFFF : 0);
  test_clock::reset();
  test_clock::scale_waits(0.0005);
  test_clock::cap_waits(0.008);
  if ((flags & 1) != 0) {  // the proximity monitor runs
    world.modem.with_state(
        [](modemsim::State& state) { state.carrier_id = 202, state.imsi = "234151234567890"; });
  }
  if ((flags & 4) != 0) wabs_open();
  for (int i = 0; i < kStepsMax && !in.empty(); i++) step(world, in);
  fuzz::check_record();
  fuzz::check_sim_blocks();
  wabs_close();
  world.root.remove_files();
  world.open_healthy();
  world.check_held(held);
  return 0;
}
