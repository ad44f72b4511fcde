// What the proximity monitor decides, without sensor, modem, thread or log.
#pragma once

#include <stdint.h>

namespace brio::prox {

inline constexpr int32_t kFastPeriodSeconds = 5;
inline constexpr int32_t kSlowPeriodSeconds = 6;
// The count before a fast poll must exceed this for the slow scan: the 25th poll, about 125 seconds after the
// start.
inline constexpr int32_t kFastPolls = 23;
inline constexpr int32_t kDiffThreshold = 43;           // a body is near above it
inline constexpr int32_t kAverageDropThreshold = 1000;  // INIT is released above it
inline constexpr int32_t kOffsetThreshold = 3700;       // calibration is good up to it
inline constexpr int32_t kUsefulThreshold = 10000;      // calibration is good up to it

enum class Calibration : int16_t {
  kUnexamined = 0,
  kGood = 1,
  kBad = 2  // SAR control is disabled for the rest of the process
};

// The monitor's memory. The tick count, the averages and the calibration check outlive a monitor run.
struct State {
  int32_t period_seconds = 0;
  int32_t tick_count = 0;
  int16_t diff = 0;
  int16_t previous_average = 0;
  int16_t current_average = 0;
  Calibration calibration = Calibration::kUnexamined;
  uint16_t offset = 0;
  uint16_t useful = 0;
};

enum class Transition { kNone, kOffToOn, kOnToOff, kInitToOn, kInitToOff };

// What a transition asks for.
struct Action {
  Transition transition;
  int32_t mode;         // enum brio_sar_mode afterwards
  bool command;         // the modem is told before the mode changes
  bool to_slow_period;  // afterwards
};

// Counts one poll of the fast period; true when it is the one that ends the fast period.
bool count_poll(State* state);

// "prox_diff" holds a 13-bit two's-complement number.
int16_t diff_of_reading(uint32_t reading);

// Takes the readings of one poll.
void store_readings(State* state, uint32_t diff, uint32_t average);

// Examines offset and useful signal, once; the result is in state->calibration.
void examine_calibration(State* state);

// What the readings ask for in `mode` (enum brio_sar_mode).
Action decide(const State& state, int32_t mode);

}  // namespace brio::prox
