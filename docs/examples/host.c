/* A WAN manager in small: opens the module, polls it, closes it. One thread calls every wabs_ operation.
 *
 *   cc host.c $(pkg-config --cflags --libs brio_module) -o host
 *   ./host                    on the device
 *   ./host DIR [SECONDS]      with ports and files below DIR; `modemsim --root DIR` brings a modem there
 */
#include <brio/brio.h>
#include <brio/wabs.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

int main(int argc, char** argv) {
  const int seconds = argc > 2 ? atoi(argv[2]) : 10;
  uint32_t status, bars, mcc, mnc;
  int second;

  if (argc > 1) brio_set_root_dir(argv[1]);
  openlog("host", LOG_PERROR, LOG_USER); /* the library's log lines, on standard error as well */
  setlogmask(LOG_UPTO(LOG_ERR));

  status = wabs_open();
  if (status != WABS_STATUS_OK) {
    fprintf(stderr, "host: wabs_open failed: %" PRIu32 "\n", status);
    return 1;
  }
  for (second = 0; second < seconds; second++) {
    if (brio_log_startup_status() != BRIO_STATUS_OK) { /* the modem is gone: only a new opening helps */
      fprintf(stderr, "host: lost the modem\n");
      do {
        wabs_close();
        sleep(1);
        second++;
      } while (second < seconds && wabs_open() != WABS_STATUS_OK);
      continue;
    }
    bars = mcc = mnc = 0;
    status = wabs_get_bars(&bars);
    if (status != WABS_STATUS_OK) {
      fprintf(stderr, "host: wabs_get_bars failed: %" PRIu32 "\n", status);
    } else if (bars == WABS_BARS_NOT_ATTACHED) {
      printf("no network\n");
    } else if (wabs_get_mcc_mnc(&mcc, &mnc) == WABS_STATUS_OK) {
      printf("%" PRIu32 " bars, network %" PRIu32 "-%" PRIu32 "\n", bars, mcc, mnc);
    }
    fflush(stdout);
    sleep(1);
  }
  wabs_close();
  return 0;
}
