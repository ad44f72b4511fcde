// The whole library with its threads on the simulated modem: answers, reports, silence, junk and unplugging
// from the input against calls of the host interface. Behind each input the library is closed without a trace
// and opens on a healthy modem.
//
// Input: steps of a letter and what its row of kSteps or call_host takes for it. The steps "k" to "s" and "u"
// say how the next commands are answered, one each in their order; without one the modem answers from its
// state.
#include <thread>

#include "host.h"
#include "kit/clock.h"
#include "kit/process.h"
#include "modemsim/modem.h"
#include "record.h"
#include "root.h"

namespace fuzz {

using modemsim::Fault;
using modemsim::Port;

constexpr int kStepsMax = 48;

// Descriptors and threads of the process. A thread that was joined leaves /proc a little later.
using Held = std::pair<long, long>;
Held count_held() {
  return {process::descriptors(), process::threads()};
}

struct World {
  Root root;
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
    Held before;
    do before = count_held(), modem.with_state([](modemsim::State&) {});
    while (count_held() != before);
    return before;
  }

  void check_held(const Held& wanted) {
    Held now;
    if (process::eventually([&] { return (now = held()) == wanted; })) return;
    fprintf(stderr, "held: descriptors %ld, not %ld; threads %ld, not %ld\n", now.first, wanted.first,
            now.second, wanted.second);
    abort();
  }
};

std::string with_line_ends(Bytes text) {
  std::string framed;
  for (char c : text) framed += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return framed;
}

// How one command is answered; the first, as the state says.
constexpr void (*kAnswers[])(Fault&, Input&) = {
    [](Fault&, Input&) {},
    [](Fault& fault, Input& in) { fault.replace = true, fault.reply = with_line_ends(in.field('|')); },
    [](Fault& fault, Input&) { fault.silent = true; },
    [](Fault& fault, Input& in) { fault.delay = modemsim::Milliseconds(in.byte() % 32); },
    [](Fault& fault, Input& in) { fault.before = with_line_ends(in.field('|')); },
    [](Fault& fault, Input& in) { fault.after = with_line_ends(in.field('|')); },
    [](Fault& fault, Input&) { fault.joined = true; },
    [](Fault& fault, Input& in) { fault.before = std::string(in.byte() * size_t{16}, 'x'); },
    [](Fault& fault, Input&) { fault.unplug = true; },
};

void script_answer(World& w, size_t choice, Input& in) {
  Fault fault;
  fault.times = 1;
  kAnswers[choice](fault, in);
  if (fault.unplug) w.plugged = false;
  w.modem.fault(fault);
}

void change_state(World& w, Input& in) {
  const uint8_t what = in.byte();
  const uint8_t value = in.byte();
  w.modem.update([what, value](modemsim::State& s) {
    int* const numbers[] = {&s.bars, &s.cs_stat,    &s.ps_stat, &s.card_status,
                            &s.rat,  &s.carrier_id, &s.antenna};
    std::string* const texts[] = {&s.imsi, &s.iccid, &s.model, &s.operator_numeric, &s.clock, &s.firmware};
    if (what % 2 == 0) *numbers[what / 2 % std::size(numbers)] = value;
    if (what % 2 != 0) texts[what / 2 % std::size(texts)]->resize(value, '7');
  });
}

void write_raw(World& w, Input& in) {
  const Port port = in.byte() % 2 != 0 ? Port::kQuery : Port::kUrc;
  w.modem.raw(port, with_line_ends(in.field('|')));
}

// A scan that another thread of the host releases.
void scan_and_abort(World& w, Input&) {
  w.modem.clear_commands();
  std::thread aborter([&w] {
    w.modem.wait_command("AT+COPS=?", 1, modemsim::Milliseconds(20));
    kAbortScan();
  });
  kScan.run(32, false);
  aborter.join();
}

constexpr std::pair<char, void (*)(World&, Input&)> kSteps[] = {
    {'#', [](World& w, Input& in) { w.root.take_file(in); }},
    {'+', [](World& w, Input& in) { w.modem.urc("+" + std::string(in.field('|'))); }},
    {'>', write_raw},
    {'~', [](World& w, Input& in) { w.modem.stream_trace(in.byte() * 64); }},
    {'%', [](World& w, Input& in) { w.modem.chunk(in.byte()); }},
    {'=', change_state},
    {'-', [](World& w, Input&) { w.modem.unplug(), w.plugged = false; }},
    {'*', [](World& w, Input&) { require(std::exchange(w.plugged, true) || w.modem.plug()); }},
    // The proximity monitor polls meanwhile.
    {'@', [](World&, Input& in) { test_clock::advance(in.byte() * 4.0), usleep(4000); }},
    {'^', scan_and_abort},
};

void step(World& w, Input& in) {
  const char letter = static_cast<char>(in.byte());
  const size_t answer = letter == 'u' ? std::size(kAnswers) - 1 : static_cast<uint8_t>(letter - 'k');
  if (answer < std::size(kAnswers)) return script_answer(w, answer, in);
  for (const auto& [name, run] : kSteps)
    if (name == letter) return run(w, in);
  call_host(in);
}

void run(Input in) {
  static World world;
  const Held held = world.held();
  const uint8_t flags = in.byte();
  format_log_lines((flags & 2) != 0);
  test_clock::reset();
  Root::stop_wall_clock();
  test_clock::scale_waits(0.0005);
  test_clock::cap_waits(0.008);
  if ((flags & 1) != 0) {  // the proximity monitor runs
    world.modem.with_state(
        [](modemsim::State& state) { state.carrier_id = 202, state.imsi = "234151234567890"; });
  }
  if ((flags & 4) != 0) wabs_open();
  for (int i = 0; i < kStepsMax && !in.empty(); i++) step(world, in);
  check_record();
  check_sim_blocks();
  wabs_close();
  world.root.check_files();
  world.root.remove_files();
  world.open_healthy();
  world.check_held(held);
}

// A stored selection that waits without limit would never end its input.
extern "C" uint32_t __real_blpkt_atcmd_request_with_callback_timeout(const char*, uint32_t, const char*,
                                                                     recv_func, void*, uint16_t, int32_t);
extern "C" uint32_t __wrap_blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                                     const char* prefix, recv_func callback,
                                                                     void* data, uint16_t value,
                                                                     int32_t seconds) {
  return __real_blpkt_atcmd_request_with_callback_timeout(command, type, prefix, callback, data, value,
                                                          seconds < 0 ? 1 : seconds);
}

}  // namespace fuzz
