// How the layers above send a command: the packet layer's call (brio/brio_at.h) without what is mostly left
// out. Both return BLPKT_STATUS_* or the callback's status.
#pragma once

#include "brio/brio_at.h"

namespace brio {

// The answer to a command with this prefix carries lines that must not be judged by it.
inline constexpr char kBasPrefix[] = "+BAS";

// A command of which only the final result counts. NO_RESULT reports any other line as an error, NUMERIC
// takes one.
inline uint32_t send_command(const char* command, uint32_t shape = NUMERIC) {
  return blpkt_atcmd_request_with_callback(command, shape, nullptr, nullptr, nullptr, 0);
}

inline uint32_t send_command(const char* command, uint32_t shape, int32_t timeout_seconds) {
  return blpkt_atcmd_request_with_callback_timeout(command, shape, nullptr, nullptr, nullptr, 0,
                                                   timeout_seconds);
}

// A command whose answer the callback takes apart (read thread); `data` and `value` are handed to it.
inline uint32_t query(const char* command, uint32_t shape, const char* prefix, recv_func callback,
                      void* data = nullptr, uint16_t value = 0) {
  return blpkt_atcmd_request_with_callback(command, shape, prefix, callback, data, value);
}

// Takes the modem off the network, which may last 80 s.
inline uint32_t deregister() {
  return send_command("AT+COPS=2", NUMERIC, 80);
}

// Given a second, like any command that only clears the way.
inline uint32_t switch_echo_off() {
  return send_command("ATE0", NUMERIC, 1);
}

// In a callback: the answer's first intermediate line, or null when there is none.
inline char* answer_line(const ATResponse* response) {
  if (response == nullptr || response->intermediates == nullptr) return nullptr;
  return response->intermediates->line;
}

}  // namespace brio
