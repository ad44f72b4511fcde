// Random scan answers against the list that the host is to get.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/random.h"
#include "support/sim_fixture.h"

namespace {

using Texts = std::vector<std::string>;

class ScanModel : public SimFixture {
 protected:
  void close_library() override { brio_close(); }
};

// Operators with a fault, and its number in the log.
const std::pair<const char*, const char*> kFaulty[] = {{R"((x,"A","a","310410",7))", "11"},
                                                       {R"((-1,"A","a","310410",7))", "11"},
                                                       {R"((,"A","a","310410",7))", "11"},
                                                       {R"((1))", "9"},
                                                       {R"((1,"A"))", "10"},
                                                       {R"((1,"A","a"))", "8"},
                                                       {R"((1,"A","a","3104100",7))", "7"},
                                                       {R"((1,"A","a","3104",7))", "7"},
                                                       {R"((1,"A","a","31O410",7))", "7"},
                                                       {R"((1,"A","a","",7))", "7"},
                                                       {R"((1,"A","a","310410"))", "6"},
                                                       {R"((1,"A","a","310410",8))", "5"},
                                                       {R"((1,"A","a","310410",))", "5"},
                                                       {R"((1,"A","a","310410",7,1))", "5"},
                                                       {R"(())", "11"}};

TEST_F(ScanModel, RandomAnswers) {
  ASSERT_EQ(brio_open("/dev/ttyACM2"), 0u);
  Random random(11);
  const auto blank = [&] { return random.chance(10) ? " " : ""; };
  const auto name = [&] {
    std::string text;
    for (unsigned left = random.below(6); left > 0; left--) text += "aBz .,&()"[random.below(9)];
    return '"' + text + '"';
  };
  for (int step = 0; step < 400; step++) {
    std::string line = "+COPS:", whole;
    Texts errors, entries;
    std::set<std::string> listed;
    for (unsigned left = random.below(random.chance(20) ? 60 : 12); left > 0 && entries.size() < 32; left--) {
      const auto& [text, number] = kFaulty[random.below(std::size(kFaulty))];
      if (random.chance(15)) line += text + std::string(","), errors.push_back(number);
      const std::string stat = std::to_string(random.below(4)), rat = std::to_string(random.below(8)),
                        mcc = random.one_of({"310", "262"}), mnc = random.one_of({"410", "260", "01", "41"}),
                        long_name = name(), short_name = name();
      line += "(" + stat + blank() + "," + blank() + long_name + blank() + "," + short_name + ", \"" + mcc +
              mnc + "\"" + blank() + "," + rat + ")" + blank() + ",";
      // Forbidden ones and those of a network that is there are left out.
      const std::string network = mcc + "," + mnc + "," + rat;
      if (stat == "3" || !listed.insert(network).second) continue;
      const bool short_only = long_name == "\"\"";
      entries.push_back(stat + "," + network + ",\"\"," + long_name + "," +
                        (short_only ? short_name : "\"\"") + ";");
    }
    const bool none = entries.empty();
    if (entries.size() == 32) entries.pop_back(), errors.push_back("13");  // the last one is never listed
    modemsim::Fault answer;
    answer.command = "AT+COPS=?", answer.replace = true, answer.times = 1;
    answer.reply = line + ",,(0-4),(0-2)\r\nOK\r\n";
    modem().fault(answer);

    // What fits, with the network in use marked.
    for (const auto& entry : entries) whole += entry;
    const unsigned size = random.chance(50) ? 4000 : random.below(static_cast<unsigned>(whole.size()) + 3);
    std::string expected;
    for (size_t i = 0; i < entries.size() && expected.size() + entries[i].size() < size; i++)
      expected += entries[i];
    const unsigned rat = random.one_of({0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 255u});
    const std::string mnc = random.one_of({"410", "01"}),
                      family = rat < 8 ? Texts{"0", "", "2", "0", "2", "2", "2", "7"}[rat] : "";
    const size_t current = expected.find("1,310," + mnc + "," + family);
    if (!family.empty() && current != std::string::npos) expected[current] = '2';
    if (!expected.empty()) expected += '\0';
    expected.resize(4000, '#');
    {
      brio::UrcDataLock lock;
      g_brio_lib_atcmd_data.rat = static_cast<uint8_t>(rat);
      std::snprintf(g_brio_lib_atcmd_data.mcc, sizeof g_brio_lib_atcmd_data.mcc, "%s", "310");
      std::snprintf(g_brio_lib_atcmd_data.mnc, sizeof g_brio_lib_atcmd_data.mnc, "%s", mnc.c_str());
    }
    ASSERT_EQ(brio_get_current_network(), 0u);

    log_capture::clear();
    std::string buffer(4000, '#');
    ASSERT_EQ(brio_atcmd_scan_network(buffer.data(), static_cast<uint16_t>(size)), none ? 4u : 0u) << line;
    ASSERT_EQ(buffer, expected) << line << " into " << size << ", on 310," << mnc << "," << rat;
    Texts codes;
    for (const auto& each : log_capture::lines()) {
      const size_t at = each.text.rfind(" ERR[");
      if (at != std::string::npos) codes.push_back(each.text.substr(at + 5, each.text.rfind(']') - at - 5));
    }
    ASSERT_EQ(codes, errors) << line;
  }
}

}  // namespace
