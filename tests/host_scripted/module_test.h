// One host and its module in front of the scripted library.
#ifndef TESTS_HOST_SCRIPTED_MODULE_TEST_H
#define TESTS_HOST_SCRIPTED_MODULE_TEST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "brio/wabs.h"
#include "nipc/nipc_standin.h"
#include "scripted_library.h"
#include "support/log_capture.h"
#include "support/test_clock.h"

class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_library = ScriptedLibrary();
    NipcStandinReset();
    test_clock::reset();
    log_capture::clear();
    wabs_set_log_mask(0xFFFFFFFFu);
  }
  void TearDown() override { wabs_close(); }

  // Opens with a library that answers well, then forgets calls and lines.
  void open() {
    ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
    forget();
  }
  static void forget() {
    g_library.calls.clear();
    log_capture::clear();
  }
  static std::string get_error(const std::string& parameter, uint32_t status) {
    return "E brio:get:param=" + parameter + ",error=" + std::to_string(status) + ":can't get parameter";
  }
};

#endif
