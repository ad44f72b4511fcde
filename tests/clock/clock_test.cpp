// The real clock, which every other test replaces: each wait lasts as long as asked for, interrupted or not.
#include "base/clock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <functional>

TEST(Clock, WaitsAsLongAsItIsTold) {
  signal(SIGALRM, [](int) {});
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_condattr_t monotonic;
  pthread_condattr_init(&monotonic);
  pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
  pthread_cond_t never;
  pthread_cond_init(&never, &monotonic);
  fd_set none;
  FD_ZERO(&none);
  const auto wait_until = [&](timespec deadline) {
    deadline.tv_sec++;
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(brio::clock_wait_until(&never, &mutex, &deadline), ETIMEDOUT);
    pthread_mutex_unlock(&mutex);
  };
  const struct {
    std::function<void(const timespec&)> wait;
    bool is_interrupted;
  } cases[] = {{[](auto&) { brio::sleep_milliseconds(1000); }, true},
               {[](auto&) { EXPECT_EQ(brio::clock_poll(nullptr, 0, 1), 0); }, false},
               {[&](auto&) { EXPECT_EQ(brio::clock_select(0, &none, &none, 1), 0); }, false},
               {wait_until, false}};
  for (const auto& each : cases) {
    const itimerval soon = {{0, 0}, {0, each.is_interrupted ? 100000 : 0}};
    timespec begin = {}, end = {};
    ASSERT_TRUE(brio::clock_monotonic(&begin));
    const time_t wall = brio::clock_wall();
    setitimer(ITIMER_REAL, &soon, nullptr);
    each.wait(begin);
    ASSERT_TRUE(brio::clock_monotonic(&end));
    const double took = static_cast<double>(end.tv_sec - begin.tv_sec) + (end.tv_nsec - begin.tv_nsec) / 1e9;
    EXPECT_GE(took, 1) << &each - cases;
    EXPECT_LT(took, 20) << &each - cases;
    EXPECT_GE(brio::clock_wall(), wall + 1) << &each - cases;
  }
}
