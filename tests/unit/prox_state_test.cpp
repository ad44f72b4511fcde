#include "prox_state.h"

#include <gtest/gtest.h>

#include <string>

#include "brio/brio_types.h"

namespace {

using brio::prox::Calibration;
using brio::prox::State;
using brio::prox::Transition;

TEST(ProxState, DiffIsThirteenBitsTwosComplement) {
  struct Case {
    uint32_t reading;
    int diff;
  } cases[] = {{0, 0},          {43, 43},         {0x0FFF, 4095}, {0x1000, -4096},
               {0x1FFF, -1},    {0x1FD5, -43},    {0x2000, 8192}, {0x3000, 4096},
               {0xFFFF, -8193}, {0x17FFF, 24575}, {0x12345, 9029}};
  for (const Case& c : cases) EXPECT_EQ(brio::prox::diff_of_reading(c.reading), c.diff) << c.reading;
}

TEST(ProxState, CalibrationIsExaminedOnceAgainstBothThresholds) {
  struct Case {
    uint16_t offset, useful;
    Calibration result;
  } cases[] = {{3700, 10000, Calibration::kGood},    {3701, 10000, Calibration::kBad},
               {3700, 10001, Calibration::kBad},     {0, 0, Calibration::kGood},
               {0xFFFF, 0xFFFF, Calibration::kGood},  // compared as -1
               {0x7FFF, 0, Calibration::kBad},       {0x8000, 0x8000, Calibration::kGood}};
  for (const Case& c : cases) {
    State state;
    state.offset = c.offset;
    state.useful = c.useful;
    brio::prox::examine_calibration(&state);
    EXPECT_EQ(state.calibration, c.result) << c.offset << "," << c.useful;
    state.offset = c.result == Calibration::kGood ? 3701 : 0;
    state.useful = 0;
    brio::prox::examine_calibration(&state);
    EXPECT_EQ(state.calibration, c.result) << "examined again: " << c.offset << "," << c.useful;
  }
}

TEST(ProxState, DecisionTable) {
  struct Case {
    int32_t mode;
    int16_t diff, previous, current;
    Transition transition;
    int32_t next;
    bool command, slow;
  } cases[] = {
      {BRIO_SAR_OFF, 43, 0, 0, Transition::kNone, BRIO_SAR_OFF, false, false},
      {BRIO_SAR_OFF, 44, 0, 0, Transition::kOffToOn, BRIO_SAR_ON, true, false},
      {BRIO_SAR_OFF, -4096, 30000, 0, Transition::kNone, BRIO_SAR_OFF, false, false},
      {BRIO_SAR_ON, 44, 30000, 0, Transition::kNone, BRIO_SAR_ON, false, false},
      {BRIO_SAR_ON, 43, 0, 0, Transition::kOnToOff, BRIO_SAR_OFF, true, false},
      {BRIO_SAR_ON, -1, 0, 0, Transition::kOnToOff, BRIO_SAR_OFF, true, false},
      {BRIO_SAR_INIT, 44, 0, 0, Transition::kInitToOn, BRIO_SAR_ON, false, true},
      {BRIO_SAR_INIT, 44, 5000, 0, Transition::kInitToOn, BRIO_SAR_ON, false, true},
      {BRIO_SAR_INIT, 43, 2000, 1000, Transition::kNone, BRIO_SAR_INIT, false, false},
      {BRIO_SAR_INIT, 43, 2001, 1000, Transition::kInitToOff, BRIO_SAR_OFF, true, true},
      {BRIO_SAR_INIT, 43, 1000, 2001, Transition::kNone, BRIO_SAR_INIT, false, false},
      // A drop wider than 16 bits is a drop, not a rise.
      {BRIO_SAR_INIT, 43, 32767, -32768, Transition::kInitToOff, BRIO_SAR_OFF, true, true},
      {BRIO_SAR_INIT, 43, -32768, 32767, Transition::kNone, BRIO_SAR_INIT, false, false},
      {7, 44, 0, 0, Transition::kNone, 7, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("mode " + std::to_string(c.mode) + " diff " + std::to_string(c.diff) + " drop " +
                 std::to_string(c.previous - c.current));
    State state;
    state.diff = c.diff;
    state.previous_average = c.previous;
    state.current_average = c.current;
    brio::prox::Action action = brio::prox::decide(state, c.mode);
    EXPECT_EQ(action.transition, c.transition);
    EXPECT_EQ(action.mode, c.next);
    EXPECT_EQ(action.command, c.command);
    EXPECT_EQ(action.to_slow_period, c.slow);
  }
}

TEST(ProxState, FastPeriodEndsAtTheTwentyFifthPollOfTheProcess) {
  State state;
  brio::prox::start_run(&state);
  for (int poll = 1; poll <= 24; poll++) EXPECT_FALSE(brio::prox::count_poll(&state)) << poll;
  EXPECT_TRUE(brio::prox::count_poll(&state));
  state.period_seconds = brio::prox::kSlowPeriodSeconds;
  EXPECT_FALSE(brio::prox::count_poll(&state));
  EXPECT_EQ(state.tick_count, 25) << "slow polls are not counted";

  brio::prox::start_run(&state);
  EXPECT_EQ(state.period_seconds, 5);
  EXPECT_TRUE(brio::prox::count_poll(&state)) << "a second run leaves the fast period on its first poll";
}

TEST(ProxState, ARunResetsCalibrationReadingsAndPeriodOnly) {
  State state;
  brio::prox::store_readings(&state, 0x1FFF, 1500);
  brio::prox::store_readings(&state, 44, 0xFFFF);
  EXPECT_EQ(state.diff, 44);
  EXPECT_EQ(state.previous_average, 1500);
  EXPECT_EQ(state.current_average, -1);
  state.calibration = Calibration::kBad;
  state.tick_count = 12;
  state.offset = state.useful = 5;
  brio::prox::start_run(&state);
  EXPECT_EQ(state.offset, 0xFFFF);
  EXPECT_EQ(state.useful, 0xFFFF);
  EXPECT_EQ(state.calibration, Calibration::kBad);
  EXPECT_EQ(state.tick_count, 12);
  EXPECT_EQ(state.previous_average, 1500);
}

}  // namespace
