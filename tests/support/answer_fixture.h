// A simulated modem that can be told what to answer.
#ifndef TESTS_SUPPORT_ANSWER_FIXTURE_H
#define TESTS_SUPPORT_ANSWER_FIXTURE_H

#include <string>
#include <vector>

#include "support/sim_fixture.h"

using Commands = std::vector<std::string>;

inline constexpr char kBareOk[] = "\r\nOK\r\n";
inline constexpr char kError[] = "\r\nERROR\r\n";

class AnswerFixture : public SimFixture {
 protected:
  // From now on the modem answers `command` (a prefix) with these bytes.
  void answer(const std::string& command, const std::string& reply) {
    modemsim::Fault fault;
    fault.command = command;
    fault.reply = reply;
    fault.replace = true;
    modem().fault(fault);
  }
};

#endif
