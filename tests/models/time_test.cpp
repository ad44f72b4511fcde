// Random time reports: stored and raised as one record when date, clock and what belongs to them are whole.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/random.h"

namespace {

std::vector<int> numbers(const network_time& t) {
  return {t.year, t.month, t.day, t.hour, t.minute, t.second, t.spare, t.time_zone, t.dst};
}

std::vector<std::vector<int>> s_raised;

uint32_t keep_event(uint32_t, uint32_t, const void* data) {
  s_raised.push_back(numbers(*static_cast<const network_time*>(data)));
  return 0;
}

TEST(TimeModel, RandomReports) {
  at_parse_init();
  brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, keep_event);
  Random random(11);
  for (int step = 0; step < 8000; step++) {
    bool whole = true;
    const unsigned torn = random.chance(5) ? random.below(6) : 6;  // parts that are there
    std::vector<int> expected;
    std::string time = random.chance(95) ? "\"" : "";
    const bool indicator = !time.empty() && random.chance(50);  // has the zone behind the time
    for (unsigned i = 0; i < torn; i++) {
      const char* const before[] = {"", "/", "/", ",", ":", ":"};
      const unsigned least[] = {0, 1, 1, 0, 0, 0}, count[] = {100, 12, 31, 24, 60, 60};
      const unsigned value = least[i] + random.below(count[i]) + (i == 0 && random.chance(20) ? 2000 : 0);
      const bool there = !random.chance(2);
      whole = whole && there;
      expected.push_back(static_cast<int>(value));
      const size_t zeros = random.chance(1) ? 10 : value < 10 && random.chance(97) ? 1 : 0;
      time += before[i] + (there ? std::string(zeros, '0') + std::to_string(value) : "");
    }
    time += torn < 6 ? std::string(20, 'x') : random.chance(95) ? "\"" : "";
    const int zone = static_cast<int>(random.below(113)) - 56, dst = static_cast<int>(random.below(3)) - 1;
    const std::string plus = zone >= 0 && random.chance(50) ? "+" : "",
                      zone_text = zone == -1 ? "" : plus + std::to_string(zone),
                      blank = random.one_of({"", " "});
    std::string line, rest = time;
    if (indicator) {
      const unsigned kind = random.chance(90) ? random.one_of({9u, 9u, 91u}) : random.below(9);
      const bool has_dst = !random.chance(5);
      rest += "," + zone_text + (has_dst ? "," : "") + (has_dst && dst >= 0 ? std::to_string(dst) : "");
      whole = whole && kind >= 9 && has_dst && rest.size() >= 23 && rest.size() <= 25;
      line = "+CIEV:" + blank + std::to_string(kind);
    } else {
      rest += random.one_of({"", "", ",1"});
      whole = whole && rest.size() >= 19 && rest[0] == '"';
      line = "+CTZV:" + blank + zone_text;
    }
    line.append(",").append(rest);
    expected.insert(expected.end(), {255, zone, indicator ? dst : -1});

    network_time stored = {9, 9, 9, 9, 9, 9, 9, 9, 9};
    std::memcpy(g_brio_lib_atcmd_data.time_info, &stored, sizeof stored);
    s_raised.clear();
    ASSERT_EQ(0u, at_parse(std::string(line).data(), nullptr, nullptr));
    std::memcpy(&stored, g_brio_lib_atcmd_data.time_info, sizeof stored);
    ASSERT_EQ(s_raised, std::vector<std::vector<int>>(whole && torn == 6 ? 1 : 0, expected)) << line;
    ASSERT_EQ(numbers(stored), s_raised.empty() ? std::vector<int>(9, 9) : expected) << line;
  }
}

}  // namespace
