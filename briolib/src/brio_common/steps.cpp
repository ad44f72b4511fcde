#include "brio_common/steps.h"

#include "base/log.h"
#include "brio/briolib.h"
#include "channel/request.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

namespace brio {
namespace {

constexpr int32_t kDeregisterTimeoutSeconds = 80;
constexpr int32_t kEchoTimeoutSeconds = 1;

}  // namespace

uint32_t gate(const char* operation) {
  const uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) BLIB_E("%s::improper brio library status", operation);
  return status;
}

uint32_t deregister() {
  return send_command("AT+COPS=2", NUMERIC, kDeregisterTimeoutSeconds);
}

uint32_t switch_echo_off() {
  return send_command("ATE0", NUMERIC, kEchoTimeoutSeconds);
}

char* answer_line_for(const char* callback, const ATResponse* response) {
  char* line = answer_line(response);
  if (line == nullptr) BLIB_E("%s::response is invalid", callback);
  return line;
}

}  // namespace brio
