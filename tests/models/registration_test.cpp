// Random registration and reject reports against what the system is to keep of them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/random.h"

namespace {

struct Model {
  unsigned cs = 0, ps = 0, lac = 0xFFFF, cell = 0xFFFFFFFF, rat = 255, cs_cause = 0, ps_cause = 0, band = 0;
  bool attached = false;
  unsigned events = 0;

  // State of one domain: 1 home, 5 roaming, 3 denied. A denied PS registration shows in the CS field.
  void registered(bool circuit, unsigned stat) {
    const unsigned state = stat == 1 ? 1 : stat == 5 ? 2 : stat == 3 ? 3 : 0;
    (circuit || state == 3 ? cs : ps) = state;
    if (state == 0 && cs == 0 && ps == 0) lac = 0xFFFF, cell = 0xFFFFFFFF, rat = 255, band = 0;
    if (circuit) return;
    const bool now = state == 1 || state == 2;
    events += now != attached ? 1 : 0;
    attached = now;
  }
};

unsigned s_events;

uint32_t count_event(uint32_t, uint32_t size, const void* data) {
  EXPECT_EQ(8u, size);
  EXPECT_EQ(static_cast<const uint32_t*>(data)[0], static_cast<const uint32_t*>(data)[1]);
  s_events++;
  return 0;
}

TEST(RegistrationModel, RandomReports) {
  at_parse_init();
  brio_set_callback_for_event_id(BRIO_EVENT_PDP_ACTIVATION_ALLOWED, count_event);
  Random random(7);
  {
    brio::UrcDataLock lock;
    briolib_init_atcmd_data(0);
  }
  const std::set<unsigned> bands = {1,   2,   5,   6,   8,   101, 102, 103,  104, 105,
                                    108, 109, 112, 119, 120, 850, 900, 1800, 1900};
  Model model;
  for (int step = 0; step < 3000; step++) {
    const bool circuit = random.chance(50), query = random.chance(30), with_band = random.chance(50);
    const unsigned stat = random.below(8), lac = random.below(0x10000), cell = random.below(0xFFFFFFFF),
                   cause = random.below(256);
    const unsigned rat = random.one_of({0u, 2u, 7u, 254u}),
                   band = random.chance(70) ? random.below(125)
                                            : random.one_of({850u, 900u, 1800u, 1900u}) + random.below(3) - 1;
    const unsigned fields = 1 + random.below(6);
    char text[128], *end = text + std::snprintf(text, sizeof text, "+%s:%s%u", circuit ? "CREG" : "CGREG",
                                                query ? " 2," : "", stat);
    const bool has_lac = fields > 1 && random.chance(80), has_cell = fields > 2 && random.chance(80),
               has_rat = fields > 3 && random.chance(80);
    if (fields > 1) end += std::snprintf(end, 16, has_lac ? ",\"%04X\"" : ",", lac);
    if (fields > 2) end += std::snprintf(end, 16, has_cell ? ",\"%08X\"" : ",", cell);
    if (fields > 3) end += std::snprintf(end, 16, has_rat ? ",%u" : ",", rat);
    if (fields > 3 && with_band) end += std::snprintf(end, 16, ",%u", band);
    if (fields > 5) std::snprintf(end, 16, ",\"0\",\"%u\"", cause);

    g_brio_lib_atcmd_data.wan_type = with_band ? BRIO_WAN_TYPE_OSPREY : BRIO_WAN_TYPE_KESTREL;
    model.registered(circuit, stat);
    if (has_lac) model.lac = lac;
    if (has_cell) model.cell = cell;
    if (has_rat) model.rat = rat;
    if (fields > 3 && with_band && bands.count(band) != 0) model.band = band;
    if (fields > 5) (circuit ? model.cs_cause : model.ps_cause) = cause;

    const std::string line = text;
    int is_query = 1;
    ASSERT_EQ(0u, at_parse(text, nullptr, query ? &is_query : nullptr));
    const brio_atcmd_data& data = g_brio_lib_atcmd_data;
    const auto numbers = [](auto... each) { return std::vector<unsigned>{static_cast<unsigned>(each)...}; };
    ASSERT_EQ(numbers(model.cs, model.ps, model.lac, model.cell, model.rat, model.cs_cause, model.ps_cause,
                      model.band, model.events),
              numbers(data.cs_reg_status, data.ps_reg_status, data.lac, data.cell_id, data.rat,
                      data.reject_bytes[1], data.reject_bytes[2], data.band, s_events))
        << "step " << step << ": " << line;
    ASSERT_TRUE(data.rat_valid == 1 || data.rat == 255);
  }
}

}  // namespace
