// Rounds of a device's life: a simulated day of one host, then many threads at once. Exits 1 when an answer
// is not what the modem knew or not its request's own, an undisturbed request fails, an answer or a
// report is lost, or heap, descriptors or threads grow from one round to the next. Built with a sanitizer it
// finds races and leaks.
#include "endurance.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "kit/log.h"
#include "kit/process.h"

int main(int argc, char** argv) {
  using endurance::g_tally;
  CLI::App app{
      "Simulated days and many threads at once, in rounds.\nExits 1 when an answer is wrong or something "
      "grows."};
  int rounds = 4;
  long requests = 5000;
  unsigned seed = std::random_device{}() % 1000000;
  app.add_option("--rounds", rounds, "How many (4)")->check(CLI::Range(2, 1000000));
  app.add_option("--requests", requests, "Undisturbed ones among many threads, in each round (5000)");
  app.add_option("--seed", seed, "Where the chances begin (random)");
  CLI11_PARSE(app, argc, argv);
  process::count_heap_exactly(argv);
  printf("seed       %u\n", seed);
  fflush(stdout);

  endurance::call("wabs_is_blib_open");  // the table of calls is made before there are threads
  long heap = 0, descriptors = 0, threads = 1, asked_alone = 0;
  for (int round = 0; round < rounds; round++, seed++) {
    alarm(3600);  // some call does not return
    {
      endurance::Device device;
      endurance::t_random.seed(seed);
      const long before = g_tally.asked;
      endurance::day(device);
      asked_alone += g_tally.asked - before;
      endurance::crowd(device, requests, seed);
    }
    log_capture::take();
    if (round > 0) continue;  // the first one fills what is allocated once and the caches of the C library
    threads = process::settled_threads(1);
    heap = process::heap_in_use();
    descriptors = process::descriptors();
  }
  threads = process::settled_threads(threads) - threads;
  heap = process::heap_in_use() - heap;
  descriptors = process::descriptors() - descriptors;

  printf("asked      %ld times by one thread, %ld by many, %ld of these undisturbed\n", asked_alone,
         g_tally.asked - asked_alone, long(g_tally.undisturbed));
  printf("modem      %ld commands, %ld reports checked, %ld troubles, %ld unplugged, %ld opens\n",
         long(g_tally.commands), long(g_tally.reports), long(g_tally.troubles), long(g_tally.unplugged),
         long(g_tally.opens));
  printf("wrong      %ld\nleft over  %+ld bytes of heap, %+ld descriptors, %+ld threads\n",
         long(g_tally.wrong), heap, descriptors, threads);
  // Only undisturbed requests must succeed: a library that is hardly ever open proves nothing.
  const bool busy = g_tally.undisturbed >= requests * rounds && g_tally.troubles > rounds * 30;
  if (!busy) fprintf(stderr, "endurance: too little happened for a verdict\n");
  constexpr long kHeapSlack = 2 * 1024;
  return busy && g_tally.wrong == 0 && heap < kHeapSlack && descriptors <= 0 && threads <= 0 ? 0 : 1;
}
