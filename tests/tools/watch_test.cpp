// What `brioctl watch` shows, on a screen and in lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <tuple>
#include <utility>

#include "at_log.h"
#include "modemsim/device_root.h"
#include "run.h"
#include "watch_layout.h"

namespace {

// At any size each row is as wide as the screen, and a month of lines takes no more room than an hour.
TEST(Watch, FitsTheScreen) {
  brioctl::watch::Model model;
  for (int i = 0; i < 100000; i++) {
    for (const auto& [port, to_modem, text] : {std::tuple(at_log::Port::kQuery, true, "AT+GTBARS?"),
                                               {at_log::Port::kQuery, false, "+GTBARS: 0,2,3,60,30"},
                                               {at_log::Port::kUrc, false, "+X: caf\xc3\xa9 \x1b[2J"}}) {
      model.line({i, i, port, to_modem, text, false}, i);
    }
  }
  model.waits("no port", 0);
  EXPECT_EQ("not open", as_json(model.news.back())["text"]);
  model.gone(1000);
  model.opened(2000);
  EXPECT_GT(30000U, model.lines.size() + model.reports.size() + model.news.size() + model.samples.size() +
                        model.commands.size());
  std::string whole;
  for (const auto& [width, height] : {std::pair(1, 1), {20, 5}, {200, 50}, {80, 24}}) {
    const auto rows = layout(model, width, height, 102000, 0, false);
    EXPECT_EQ(height, static_cast<int>(rows.size()));
    whole.clear();
    for (const auto& row : rows) {
      EXPECT_EQ(width,
                std::count_if(row.text.begin(), row.text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
      EXPECT_EQ(std::string::npos, row.text.find('\x1b'));
      whole += row.text + "\n";
    }
  }
  EXPECT_TRUE(
      std::regex_search(whole, std::regex("RSCP -61 dBm, Ec/Io -9.5 dB, 3 bars, 2.0 s old[^]*gone .*, back "
                                          "[^]* -70 \xe2\x94\xa4 +\xe2\x96\x88"
                                          "[^]*caf\xc3\xa9 \\\\x1b[^]*--> AT.GTBARS.  <-- .GTBARS: 0,2")))
      << whole;
}

TEST(Watch, ComesBackWithTheModem) {
  modemsim::DeviceRoot root;
  std::string scenario = "[[fault]]\ncommand = 'AT+GTBARS?'\nskip = 3\ntimes = 1\nunplug = true\n";
  for (const char* t : {"2", "4", "10", "30", "90"}) {
    scenario += std::string("[[at]]\nt = ") + t + "\nplug = true\nurc = '+CREG: 1,\"1A2B\",\"01C2D3E4\",7'\n";
  }
  root.write("/gone.toml", scenario);
  const std::string watch = "--force --scenario " + root.path("/gone.toml") + " --at-log " +
                            root.path("/at.log") + " watch --every 0.2 --seconds 120 ";
  check(BRIOCTL,
        {{(watch + "| sed '/modem   back/q'").c_str(),
          0,
          {" modem   gone ([0-9:]{8})\n.* modem   back [0-9:]+, gone"}},
         {(watch + "--csv | awk '{print} /,back/{b=1} b && /,report/{exit}'").c_str(),
          0,
          {"^time,type,registration,",
           "Z,state,home,home,LTE,310-410,01C2D3E4,2F01,,LTE_BAND_4,5780,4,RSRP,-81,,,", "Z,modem,,+gone\n",
           "Z,modem,,+back\n", "Z,report,,+\"\\+CREG: 1,\"\"1A2B\"\",\"\"01C2"}}});
  const std::string log = root.read("/at.log").value_or("");
  EXPECT_LT(log.find("--> ATE0"), log.rfind("--> ATE0")) << log;
  const auto state = nlohmann::json::parse(
      run(BRIOCTL " --sim watch --json --seconds 120 2>/dev/null | sed -n '/state/{p;q}'").text);
  EXPECT_TRUE(state["dbm"] == -81 && state["lac"].is_null() && state["sar"] == "off") << state;
}

#if SCREEN
// Whatever it did to the terminal is undone, also when a signal ends it.
TEST(Watch, TakesTheTerminalAndGivesItBack) {
  const modemsim::DeviceRoot root;
  const Outcome outcome =
      run("cd " + root.dir() +
          "; (until grep -q Registration screen; do sleep 0.1; done; kill $(cat id)) 2>/dev/null & "
          "TERM=xterm script -qfec 'stty cols 80 rows 24; sh -c \"echo \\$\\$ >id; exec " BRIOCTL
          " --sim watch\"; echo status $?; stty -a' screen; kill $! 2>/dev/null");
  std::size_t at = 0;
  for (const char* word : {"\x1b[?1049h", "Registration", "\x1b[?1049l", "status 0", " icanon ", " echo "}) {
    at = outcome.text.find(word, at);
    ASSERT_NE(std::string::npos, at) << word << "\n" << outcome.text;
  }
}
#endif

}  // namespace
