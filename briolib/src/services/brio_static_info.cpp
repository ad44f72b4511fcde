// Writes the static information file.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/paths.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "services/static_info.h"

constexpr char kLogTag[] = "briolib/src/brio_log";

using namespace brio;

namespace brio {

uint8_t g_sim_info_hash[16];

}  // namespace brio

namespace {

constexpr mode_t kFileMode = 0644;

bool prv_write_all(int fd, const char* text, size_t length) {
  while (length > 0) {
    ssize_t written = write(fd, text, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text += written;
    length -= static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

void briolib_log_dump_static_info(void) {
  BLIB_D(BRIO_LOG_DEBUG, "briolib_log_dump_static_info \n\n");
  sim_plmn_data plmn = {};
  sim_info_data info = {};
  {
    StaticDataLock lock;
    briolib_get_sim_plmn_data(&plmn);
    briolib_get_sim_info_data(&info);
  }
  char text[kStaticInfoSize];
  static_info_text(plmn, info, text);

  const char* const strings[] = {text};
  uint8_t digest[sizeof(g_sim_info_hash)];
  if (briolib_get_md5_hash(strings, 1, digest) == 0) {
    BLIB_E("briolib_log_dump_static_info::ERR:get_md5_hash failed\n");
    return;
  }
  if (memcmp(digest, g_sim_info_hash, sizeof(digest)) == 0) return;

  Descriptor file(open_output(kStaticInfoFile, O_WRONLY | O_TRUNC, kFileMode));
  if (!file.valid()) {
    BLIB_E("briolib_log_dump_static_info::ERR:log_file_handle NULL file_path=%s\n", kStaticInfoFile);
    return;
  }
  memcpy(g_sim_info_hash, digest, sizeof(digest));
  briolib_set_sim_info_md5_status(1);
  if (!prv_write_all(file.get(), text, strlen(text))) {
    BLIB_E("briolib_log_dump_static_info:file_path=%s,errno=%d:cant write static info\n", kStaticInfoFile,
           errno);
    // The file holds neither the old nor the new text: with an unknown digest the next dump writes again.
    memset(g_sim_info_hash, 0, sizeof(g_sim_info_hash));
  }
}
