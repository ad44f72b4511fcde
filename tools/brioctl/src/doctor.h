// What brioctl doctor examines, from the ports to the files: a finding a line, and how to fix what is wrong.
#ifndef BRIOCTL_DOCTOR_H
#define BRIOCTL_DOCTOR_H

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "session.h"

namespace brioctl {

struct Check {
  enum State { kOk, kNote, kWrong, kNotJudged } state = kOk;
  std::string name, finding, fix;  // `fix` is "" where there is nothing to do
};

// Where checks are collected.
class Checkup {
 public:
  void add(Check::State state, const std::string& name, const std::string& finding,
           const std::string& fix = "");
  void add(const Checkup& part);
  // A sentence that says what is wrong, and those after it how to fix it.
  void wrong(const std::string& name, const std::string& sentences);

  int wrongs() const;
  const std::vector<Check>& checks() const { return checks_; }
  std::string text() const;
  nlohmann::ordered_json json() const;

 private:
  std::vector<Check> checks_;
};

// Examines everything that can be judged. Where the host module can be opened, `with_module` is called with
// it afterwards. Throws Failure only when a signal came.
Checkup examine(const Options& options, const std::function<void(Session&)>& with_module = {});
// The state files and the folders of the library below `root`, and their rights.
void examine_files(Checkup& checkup, const std::string& root);
// What the open modem says.
bool examine_sim(Checkup& checkup, const Library& lib, bool identities);
void examine_registration(Checkup& checkup, const Library& lib);
void examine_carrier(Checkup& checkup, const Library& lib, bool sim);
void examine_apn(Checkup& checkup, const Session& session);
void examine_clock(Checkup& checkup, const Session* open);

}  // namespace brioctl

#endif
