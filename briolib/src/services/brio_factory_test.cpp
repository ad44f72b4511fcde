// One-shot commands of the production line, and the carrier selection that the check at open uses too. None
// of them asks the status gate.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>

#include "base/log.h"
#include "base/paths.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "channel/request.h"
#include "parse/modem_config.h"
#include "services/brio_sim.h"
#include "services/carriers.h"

constexpr char kLogTag[] = "briolib/src/brio_factory_test";

using namespace brio;

namespace {

constexpr size_t kCarrierCommandSize = 20;

// `aim` as the error line has it. BRIO_STATUS_*.
uint32_t prv_send(const char* command, const char* aim) {
  const uint32_t result = send_command(command);
  if (result != BLPKT_STATUS_SUCCESS) BLIB_E("factory_test:err_no=%d:can't %s\n", result, aim);
  return briolib_translate_status(result, 0);
}

// The WAN type is then decided afresh. The child inherits no descriptor: all of ours are close-on-exec.
void prv_remove_wan_info() {
  DevicePath path(kWanInfoFile);
  char command[PATH_MAX * 2];
  if (!parse::build_remove_command(path.c_str(), kWanInfoFile, command, sizeof(command)) ||
      system(command) != 0) {
    BLIB_E("factory_test::Failed to remove waninfo file\n");
  }
}

}  // namespace

uint32_t brio_set_fake_security_mode(uint32_t on) {
  // The same text for both directions.
  return prv_send(on != 0 ? "AT*FAKECFG=1" : "AT*FAKECFG=0", "turn off fake security");
}

uint32_t brio_clear_mru(void) {
  return prv_send("AT*MRUCLEAR", "clear MRU");
}

uint32_t brio_turn_off_rf(void) {
  return prv_send("AT+CFUN=0", "turn off RF mode");
}

uint32_t brio_carrier_selection(void) {
  char prefix[parse::kImsiPrefixSize];
  if (!read_imsi_prefix(prefix)) {
    BLIB_E("factory_test:invalid IMSI:can't read SIM\n");
    return BRIO_STATUS_INVALID;
  }
  const Carrier* carrier = carrier_of_sim(prefix);
  if (carrier == nullptr) {
    BLIB_E("factory_test:carrier selection:mccmnc not supported: %s\n", prefix);
    return BRIO_STATUS_INVALID;
  }
  BLIB_I("factory_test:carrier is %s:\n", carrier->name);
  char command[kCarrierCommandSize];
  snprintf(command, sizeof(command), "at+gtfdcar=%u", carrier->carrier_id);
  BLIB_I("factory_test:carrier selection cmd %s:\n", command);
  const uint32_t status = prv_send(command, "set SBP carrier mode");
  prv_remove_wan_info();
  return status;
}
