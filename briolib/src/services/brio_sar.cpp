// The modem's body-SAR transmit-power back-off. The proximity monitor decides when.
#include "base/log.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "channel/request.h"

constexpr char kLogTag[] = "briolib/src/brio_misc";

// Written by the proximity monitor, read by the diagnostic page without a lock; accessed relaxed.
int32_t g_pre_sar_mode = BRIO_SAR_OFF;

uint32_t brio_set_sar_pwr(uint32_t on) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) {
    BLIB_E("brio_set_sar_power::improper brio library status\n");
    return status;
  }
  return briolib_set_sar_pwr(on);
}

uint32_t briolib_set_sar_pwr(uint32_t on) {
  const char* command = on != 0 ? "AT+BODYSARON=1" : "AT+BODYSARON=0";
  return brio::send_command(command, NO_RESULT);
}
