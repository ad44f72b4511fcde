// Stand-in for briolib/src/base/clock.cpp: a clock that tests, fuzz targets and endurance runs drive. Sleeps
// take no time: they move the clock and are recorded. Waits with a deadline run in real time.
#ifndef KIT_CLOCK_H
#define KIT_CLOCK_H

#include <cstdint>
#include <ctime>
#include <vector>

namespace test_clock {

// Real clock, no sleeps recorded, no failing reads, patient waits. Each test starts like this.
// Patient: a wait with a deadline lasts a minute at least. On a busy machine an answer may be late by more
// than the library waits for it; no test plans that time-out, and the answers after it would reach
// the wrong requests.
void reset();

// Moves the monotonic clock.
void advance(double seconds);

// From now on only advance, sleeps and time-outs move the monotonic clock.
void stop();

// A wait of one second lasts `factor` real seconds (0.001: a 20 s time-out takes 20 ms). Ends the patience.
void scale_waits(double factor);

// The same for select alone, which follows scale_waits otherwise.
void scale_selects(double factor);

// No wait lasts longer than this many real seconds, those under way included, however long it was meant:
// short waits keep their length, so that a busy machine does not let them run out.
void cap_waits(double seconds);

// The wait with a deadline that runs, or the next one, times out at once and moves the clock to its deadline.
void expire_wait();
void keep_wait();  // undoes that, if no wait has used it yet

// Makes reading the monotonic clock fail.
void fail_monotonic(bool fail);

// Stops the wall clock at `now`.
void set_wall(std::time_t now);

// What the library slept, in milliseconds, in order.
std::vector<unsigned> sleeps();

// select with a time-out (the proximity monitor's poll): by default it really waits, scaled. In manual mode
// it reports its time-out once per tick(), moves the clock by that, and otherwise waits for its descriptors
// only.
void manual_select(bool on);
// Lets one select time out and waits until the following one is entered (or its thread is gone: false after
// 10 s).
bool tick();
// Makes the select that waits, or the next one, report an exception on its descriptors. Manual mode only.
void except_select();

}  // namespace test_clock

#endif
