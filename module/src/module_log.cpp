#include "module_log.h"

uint32_t gBrioModuleLogMask;

void wabs_set_log_mask(uint32_t mask) {
  brio::relaxed_store(gBrioModuleLogMask, mask);
}
