// The APNs that the library writes into the modem's PDP context 1. They are set when the build is configured:
//   cmake -DBRIO_APN_GROUP_A=apn.of.group.a -DBRIO_APN_GROUP_B=apn.of.group.b ...
// An APN holds no quotes; its command (AT+CGDCONT=1,"IP","<APN>","",0,0) is cut to 127 characters.
#pragma once

#if !defined(BRIO_APN_GROUP_A) || !defined(BRIO_APN_GROUP_B)
#error "BRIO_APN_GROUP_A and BRIO_APN_GROUP_B come from the CMake cache"
#endif

namespace brio {

inline constexpr char kApnGroupA[] = BRIO_APN_GROUP_A;  // SIMs of the network below
inline constexpr char kApnGroupB[] = BRIO_APN_GROUP_B;  // every other SIM
inline constexpr char kApnGroupANetwork[] = "310410";   // sought in the IMSI's first six characters

static_assert(sizeof(kApnGroupA) > 1 && sizeof(kApnGroupB) > 1, "an APN is not empty");

}  // namespace brio
