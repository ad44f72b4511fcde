#include "at_errors.h"

#include <cstddef>
#include <cstdio>

namespace at_log {
namespace {

struct Meaning {
  int code;
  const char* text;
};

// 3GPP TS 27.007, 9.2.
constexpr Meaning kCme[] = {
    {0, "phone failure"},
    {1, "no connection to phone"},
    {2, "phone adaptor link reserved"},
    {3, "operation not allowed"},
    {4, "operation not supported"},
    {5, "PH-SIM PIN required"},
    {6, "PH-FSIM PIN required"},
    {7, "PH-FSIM PUK required"},
    {10, "SIM not inserted"},
    {11, "SIM PIN required"},
    {12, "SIM PUK required"},
    {13, "SIM failure"},
    {14, "SIM busy"},
    {15, "SIM wrong"},
    {16, "incorrect password"},
    {17, "SIM PIN2 required"},
    {18, "SIM PUK2 required"},
    {20, "memory full"},
    {21, "invalid index"},
    {22, "not found"},
    {23, "memory failure"},
    {24, "text string too long"},
    {25, "invalid characters in text string"},
    {26, "dial string too long"},
    {27, "invalid characters in dial string"},
    {30, "no network service"},
    {31, "network timeout"},
    {32, "network not allowed, emergency calls only"},
    {40, "network personalization PIN required"},
    {41, "network personalization PUK required"},
    {42, "network subset personalization PIN required"},
    {43, "network subset personalization PUK required"},
    {44, "service provider personalization PIN required"},
    {45, "service provider personalization PUK required"},
    {46, "corporate personalization PIN required"},
    {47, "corporate personalization PUK required"},
    {48, "hidden key required"},
    {49, "EAP method not supported"},
    {50, "incorrect parameters"},
    {51, "command implemented but currently disabled"},
    {52, "command aborted by user"},
    {53, "not attached to network due to MT functionality restrictions"},
    {54, "modem not allowed, emergency calls only"},
    {55, "operation not allowed because of MT functionality restrictions"},
    {56, "fixed dial number only allowed"},
    {57, "temporarily out of service due to other MT usage"},
    {58, "language or alphabet not supported"},
    {59, "unexpected data value"},
    {60, "system failure"},
    {61, "data missing"},
    {62, "call barred"},
    {63, "message waiting indication subscription failure"},
    {100, "unknown"},
    {103, "illegal MS"},
    {106, "illegal ME"},
    {107, "GPRS services not allowed"},
    {111, "PLMN not allowed"},
    {112, "location area not allowed"},
    {113, "roaming not allowed in this location area"},
    {126, "operation temporarily not allowed"},
    {132, "service option not supported"},
    {133, "requested service option not subscribed"},
    {134, "service option temporarily out of order"},
    {148, "unspecified GPRS error"},
    {149, "PDP authentication failure"},
    {150, "invalid mobile class"},
};

// 3GPP TS 27.005, 3.2.5.
constexpr Meaning kCms[] = {
    {300, "ME failure"},
    {301, "SMS service of ME reserved"},
    {302, "operation not allowed"},
    {303, "operation not supported"},
    {304, "invalid PDU mode parameter"},
    {305, "invalid text mode parameter"},
    {310, "SIM not inserted"},
    {311, "SIM PIN required"},
    {312, "PH-SIM PIN required"},
    {313, "SIM failure"},
    {314, "SIM busy"},
    {315, "SIM wrong"},
    {316, "SIM PUK required"},
    {317, "SIM PIN2 required"},
    {318, "SIM PUK2 required"},
    {320, "memory failure"},
    {321, "invalid memory index"},
    {322, "memory full"},
    {330, "SMSC address unknown"},
    {331, "no network service"},
    {332, "network timeout"},
    {340, "no +CNMA acknowledgement expected"},
    {500, "unknown error"},
};

template <std::size_t N>
std::string find(const Meaning (&table)[N], int code) {
  for (const Meaning& row : table) {
    if (row.code == code) return row.text;
  }
  return "";
}

}  // namespace

std::string meaning_of_cme(int code) {
  return find(kCme, code);
}

std::string meaning_of(const std::string& final_line) {
  int code = 0;
  if (std::sscanf(final_line.c_str(), "+CME ERROR: %d", &code) == 1) return meaning_of_cme(code);
  if (std::sscanf(final_line.c_str(), "+CMS ERROR: %d", &code) == 1) return find(kCms, code);
  return "";
}

}  // namespace at_log
