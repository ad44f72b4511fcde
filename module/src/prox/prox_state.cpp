#include "prox/prox_state.h"

#include "brio/brio_types.h"

namespace brio::prox {
namespace {

// At most one row fits: diff above the threshold or not, and for the release out of INIT an average that has
// dropped. INIT -> ON sends no command: the back-off counts as applied at the modem's start.
struct Row {
  int32_t from;
  bool near;
  bool needs_drop;
  Action action;
};

constexpr Row kRows[] = {
    {BRIO_SAR_OFF, true, false, {Transition::kOffToOn, BRIO_SAR_ON, true, false}},
    {BRIO_SAR_ON, false, false, {Transition::kOnToOff, BRIO_SAR_OFF, true, false}},
    {BRIO_SAR_INIT, true, false, {Transition::kInitToOn, BRIO_SAR_ON, false, true}},
    {BRIO_SAR_INIT, false, true, {Transition::kInitToOff, BRIO_SAR_OFF, true, true}},
};

}  // namespace

bool count_poll(State* state) {
  if (state->period_seconds != kFastPeriodSeconds) return false;
  return state->tick_count++ > kFastPolls;
}

int16_t diff_of_reading(uint32_t reading) {
  uint32_t extended = (reading & 0x1000U) != 0 ? reading - 8192U : reading;
  return static_cast<int16_t>(extended);
}

void store_readings(State* state, uint32_t diff, uint32_t average) {
  state->diff = diff_of_reading(diff);
  state->previous_average = state->current_average;
  state->current_average = static_cast<int16_t>(average);
}

void examine_calibration(State* state) {
  if (state->calibration != Calibration::kUnexamined) return;
  bool good = static_cast<int16_t>(state->offset) <= kOffsetThreshold &&
              static_cast<int16_t>(state->useful) <= kUsefulThreshold;
  state->calibration = good ? Calibration::kGood : Calibration::kBad;
}

Action decide(const State& state, int32_t mode) {
  bool near = state.diff > kDiffThreshold;
  bool dropped = state.previous_average - state.current_average > kAverageDropThreshold;
  for (const Row& row : kRows) {
    if (row.from == mode && row.near == near && (dropped || !row.needs_drop)) return row.action;
  }
  return {Transition::kNone, mode, false, false};
}

}  // namespace brio::prox
