// Random files of a SIM, as the modem answers them, against what the system is to keep.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "brio/brio_types.h"
#include "brio/briolib.h"
#include "support/random.h"

namespace {

std::string swapped(std::string digits) {
  for (size_t i = 1; i < digits.size(); i += 2) std::swap(digits[i - 1], digits[i]);
  return digits;
}

// A network as TS 31.102 writes it: digits swapped in pairs, F for a third MNC digit that is not there, and
// 16 bits of access technologies.
std::string network(Random& random, bool technologies, plmn_entry* entry) {
  *entry = {};
  const std::string mcc = random.digits(3), mnc = random.digits(random.one_of({2u, 3u}));
  mcc.copy(entry->mcc, 3);
  mnc.copy(entry->mnc, 3);
  std::string text = swapped(mcc + (mnc.size() == 3 ? mnc.substr(2) : "F") + mnc.substr(0, 2));
  unsigned bits = random.below(8);
  const char* const hex = random.one_of({"0123456789ABCDEF", "0123456789abcdef"});
  text += {hex[random.below(4) + (bits & 4) + ((bits & 2) << 2)], hex[random.below(16)],
           hex[random.below(8) + ((bits & 1) << 3)], hex[random.below(16)]};
  if (random.chance(5)) {  // no digit: all of them
    text[6] = random.one_of({'/', ':', '@', 'G', '`', 'g'}), bits |= 6;
  }
  if (technologies) entry->access_tech = static_cast<uint8_t>(bits != 0 ? bits : 255);
  return text;
}

// A list of networks: those behind a free place, and a last one that is not whole, do not count.
template <size_t N>
std::string list(Random& random, bool technologies, plmn_entry (&entries)[N], uint16_t* count) {
  std::string text;
  std::memset(static_cast<void*>(entries), 0, sizeof entries);
  const unsigned all = random.below(random.chance(80) ? 8 : N + 5);
  plmn_entry entry;
  for (*count = 0; *count < all; ++*count) {
    text += network(random, technologies, &entry);
    if (*count < N) entries[*count] = entry;
  }
  if (random.chance(50)) return text + "FFFFFF0000" + network(random, technologies, &entry);
  const size_t rest = random.below(10);
  text += network(random, technologies, &entry).substr(0, rest);
  if (!technologies && rest > 5) {  // such a list's networks need six characters
    if (*count < N) entries[*count] = entry;
    ++*count;
  }
  return text;
}

std::vector<std::string> texts(const sim_info_data& info) {
  return {info.psloci, info.loci, info.epsloci, info.iccid};
}

TEST(SimModel, RandomFiles) {
  at_parse_init();
  Random random(5);
  static sim_plmn_data lists, kept_lists;
  sim_info_data info = {}, kept_info;
  for (int step = 0; step < 4000; step++) {
    const unsigned file =
        random.one_of({28512u, 28513u, 28514u, 28539u, 28633u, 28643u, 28531u, 28542u, 12258u, 28540u});
    kept_lists = lists, kept_info = info;
    std::string hex = random.digits(random.below(60));
    const auto text = [&](auto& field) {
      std::memset(field, 0, sizeof field);
      hex.copy(field, sizeof field - 1);
      return hex;
    };
    std::string data = "00";
    if (file == 28512) data = list(random, true, kept_lists.uplmn, &kept_lists.uplmn_count);
    if (file == 28513) data = list(random, true, kept_lists.oplmn, &kept_lists.oplmn_count);
    if (file == 28514) data = list(random, true, kept_lists.hplmn, &kept_lists.hplmn_count);
    if (file == 28539) data = list(random, false, kept_lists.fplmn, &kept_lists.fplmn_count);
    if (file == 28633) data = list(random, true, kept_lists.ehplmn, &kept_lists.ehplmn_count);
    if (file == 28643) data = text(kept_info.epsloci);
    if (file == 28531) data = text(kept_info.psloci);
    if (file == 28542) data = text(kept_info.loci);
    if (file == 12258) {  // digits in pairs; of 19 the last one's partner is a filler
      const std::string iccid = random.digits(random.one_of({19u, 20u}));
      std::memset(kept_info.iccid, 0, sizeof kept_info.iccid);
      iccid.copy(kept_info.iccid, 20);
      data = swapped(iccid + (iccid.size() < 20 ? "F" : "")) + random.one_of({"", "FF", "12"});
    }
    // Done, done with a proactive command pending, or a warning that still has the data; else it is none.
    const unsigned sw1 = random.one_of({144u, 144u, 144u, 145u, 146u, 106u, 103u}),
                   sw2 = random.one_of({0u, 64u, 130u});
    const bool whole = !random.chance(5), good = sw1 == 144 || sw1 == 145 || (sw1 == 146 && sw2 == 64);
    if (good && whole && !data.empty()) lists = kept_lists, info = kept_info;
    const std::string blank = random.one_of({"", " "});
    std::string command = "AT+CRSM=176,", line;
    for (const auto& part : {blank, std::to_string(file), std::string(",0,0,0")}) command += part;
    for (const auto& part : {std::string("+CRSM:"), blank, std::to_string(sw1), "," + blank,
                             std::to_string(sw2), "," + blank, '"' + data, std::string(whole ? "\"" : "")}) {
      line += part;
    }
    const std::string shown = line;
    ASSERT_EQ(0u, at_parse(line.data(), command.data(), nullptr));
    static sim_plmn_data stored_lists;
    sim_info_data stored_info;
    briolib_get_sim_plmn_data(&stored_lists);
    briolib_get_sim_info_data(&stored_info);
    ASSERT_EQ(0, std::memcmp(&lists, &stored_lists, sizeof lists)) << command << " " << shown;
    ASSERT_EQ(texts(info), texts(stored_info)) << command << " " << shown;
  }
}

}  // namespace
