// A host with its module open on the simulated modem.
#ifndef TESTS_HOST_HOST_FIXTURE_H
#define TESTS_HOST_HOST_FIXTURE_H

#include <string>

#include "brio/brio.h"
#include "brio/wabs.h"
#include "nipc/nipc_standin.h"
#include "support/sim_fixture.h"

constexpr char kSensorFolder[] = "/sys/devices/virtual/proximity/proximity0/";
constexpr const char* kSensorEntries[] = {"prox_ctrl0", "sensor_sel",  "prox_diff",
                                          "prox_avg",   "prox_offset", "prox_use"};

class HostFixture : public SimFixture {
 protected:
  void SetUp() override {
    NipcStandinReset();
    wabs_set_log_mask(0xFFFFFFFFu);
    SimFixture::SetUp();
  }
  void close_library() override { wabs_close(); }

  // wabs_open, then forgets commands and lines.
  void open_module() {
    ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
    modem().clear_commands();
    log_capture::clear();
  }
  size_t asked(const std::string& command) {
    size_t found = 0;
    for (const std::string& each : modem().commands()) found += each == command;
    return found;
  }
  // The sensor's entries, with readings that pass the calibration check.
  void plug_sensor() {
    for (const char* entry : kSensorEntries) root().write(kSensorFolder + std::string(entry), "0");
  }
};

#endif
