/*
 * A C99 host: has the interface declared once more as hosts were built with it (abi/operations.def) and the
 * records measured (abi/record.def), so that a header that departs from either does not compile, and loads
 * the library given as argument with every name bound at once, as the WAN manager does.
 */
#define _POSIX_C_SOURCE 200112L
#include <dlfcn.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"

#define OPERATION(result, name, arguments, ...) result name arguments;
#define DATA(type, name) extern type name;
#include "operations.def"

/* The numbers are the interface's, counted by hand: they hold on 32-bit and 64-bit ARM and x86. Sizes that
 * the header asserts are not here. */
#define SIZE(type, expected) extern char type##_size[sizeof(type) == (expected) ? 1 : -1]
#define AT(type, field, expected) extern char type##_##field[offsetof(type, field) == (expected) ? 1 : -1]
#define FIELD(name, offset, ...) AT(brio_atcmd_data, name, offset);
#include "record.def"
/* clang-format off */
AT(network_time, year, 6); AT(network_time, time_zone, 8); AT(network_time, dst, 12); AT(plmn_entry, access_tech, 8);
AT(sim_plmn_data, uplmn_count, 2600); AT(sim_plmn_data, oplmn_count, 5202); AT(sim_plmn_data, fplmn_count, 5604);
AT(sim_plmn_data, hplmn_count, 5706);
AT(sim_plmn_data, ehplmn_count, 5808); AT(sim_plmn_data, home_mcc, 5810); AT(sim_plmn_data, home_mnc, 5814);
AT(sim_info_data, loci, 29); AT(sim_info_data, epsloci, 52); AT(sim_info_data, iccid, 89); AT(sim_identity, imsi, 24);
SIZE(sim_card_status, 8); AT(sim_card_status, lock_status, 4);
AT(modem_info, serial, 33); AT(modem_info, imei, 46); AT(modem_info, hw_ver, 62); AT(modem_info, fault_ct, 76);
SIZE(bas_status, 6); AT(bas_status, antenna, 4);
AT(atcmd_snapshot, fw_ver, 132);
SIZE(mempool_def, 8);
/* clang-format on */

int main(int argc, char** argv) {
  void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  uint32_t (*get_firmware_version)(char*, uint32_t);
  char text[8] = "xxxxxxx";
  if (library == NULL) {
    printf("cannot load the library: %s\n", argc == 2 ? dlerror() : "which one?");
    return 2;
  }
  /* Through an object pointer, as POSIX means it: ISO C has no conversion to a function pointer. */
  *(void**)(&get_firmware_version) = dlsym(library, "wabs_get_firmware_version");
  if (get_firmware_version == NULL || get_firmware_version(text, sizeof(text)) != WABS_STATUS_NOT_OPEN ||
      strcmp(text, "norvik") != 0) {
    printf("wabs_get_firmware_version does not answer as it does while closed\n");
    return 1;
  }
  dlclose(library);
  return 0;
}
