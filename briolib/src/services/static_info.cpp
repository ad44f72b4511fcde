#include "services/static_info.h"

#include <errno.h>
#include <openssl/evp.h>
#include <string.h>

#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"

constexpr char kLogTag[] = "briolib/src/brio_log";

namespace brio {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr uint16_t kEntriesPerLine = 5;

// By the bits of plmn_entry's access_tech.
constexpr const char* kAccessTechnologies[] = {"Null", "G", "W", "WG", "L", "LG", "LW", "LWG"};

const char* access_technology(uint8_t mask) {
  return kAccessTechnologies[mask < 8 ? mask : 0];
}

void print_list(TextWriter* writer, const char* heading, const plmn_entry* entries, uint16_t count,
                uint16_t capacity) {
  if (count == 0) return;
  // The count tells what the SIM held, which may be more than was kept.
  if (count > capacity) count = capacity;
  writer->add("%s", heading);
  for (uint16_t i = 0; i < count; i++) {
    const plmn_entry& entry = entries[i];
    if (i > 0) writer->add("%s", i % kEntriesPerLine == 0 ? "\n      " : " ");
    writer->add("%3.3s%3.3s%-3s", entry.mcc, entry.mnc, access_technology(entry.access_tech));
  }
  writer->add("\n");
}

constexpr size_t kFileBlock = 512;

// MD5 tells changed texts apart; it is not for security.
class Md5 : NoCopy {
 public:
  Md5() : context_(EVP_MD_CTX_new()) {
    ok_ = context_ != nullptr && EVP_DigestInit(context_, EVP_md5()) == 1;
  }
  ~Md5() { EVP_MD_CTX_free(context_); }

  void update(const void* data, size_t length) { ok_ = ok_ && EVP_DigestUpdate(context_, data, length) == 1; }

  // The digest's length, or 0 when any step failed.
  uint32_t finish(uint8_t digest[16]) {
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (!ok_ || EVP_DigestFinal(context_, value, &length) != 1 || length != 16) return 0;
    memcpy(digest, value, length);
    return length;
  }

 private:
  EVP_MD_CTX* context_;
  bool ok_;
};

}  // namespace

uint8_t g_sim_info_hash[16];

void static_info_text(const sim_plmn_data& plmn, const sim_info_data& info, char text[kStaticInfoSize]) {
  TextWriter writer(text, kStaticInfoSize);
  print_list(&writer, "UPLMN: ", plmn.uplmn, plmn.uplmn_count, BRIO_UPLMN_MAX);
  print_list(&writer, "OPLMN: ", plmn.oplmn, plmn.oplmn_count, BRIO_OPLMN_MAX);
  print_list(&writer, "FPLMN: ", plmn.fplmn, plmn.fplmn_count, BRIO_FPLMN_MAX);
  print_list(&writer, "HPLMN: ", plmn.hplmn, plmn.hplmn_count, BRIO_HPLMN_MAX);
  print_list(&writer, "EHPLMN: ", plmn.ehplmn, plmn.ehplmn_count, BRIO_EHPLMN_MAX);
  writer.add("PSLOCI: %.*s\n", static_cast<int>(sizeof(info.psloci) - 1), info.psloci);
  writer.add("LOCI: %.*s\n", static_cast<int>(sizeof(info.loci) - 1), info.loci);
  writer.add("EPSLOCI: %.*s\n", static_cast<int>(sizeof(info.epsloci) - 1), info.epsloci);
}

}  // namespace brio

using namespace brio;

uint32_t briolib_get_md5_hash(const char* const* strings, int32_t count, uint8_t digest[16]) {
  if (strings == nullptr || count <= 0 || digest == nullptr) return 0;
  Md5 md5;
  for (int32_t i = 0; i < count && strings[i] != nullptr; i++) md5.update(strings[i], strlen(strings[i]));
  return md5.finish(digest);
}

uint32_t briolib_get_file_md5_hash(const char* path, uint8_t digest[16]) {
  if (path == nullptr || digest == nullptr) {
    BLIB_E("briolib_get_file_md5_hash::Error in input params.\n");
    return 0;
  }
  Md5 md5;
  InputFile file(open_input(path));
  if (!file) {
    BLIB_E("briolib_get_file_md5_hash::Error in fopen\n");
    return 0;
  }
  HeapText block(static_cast<char*>(malloc(kFileBlock)));
  if (!block) {
    BLIB_E("briolib_get_file_md5_hash::Error in malloc\n");
    return 0;
  }
  size_t length;
  do {
    length = file.read(block.get(), kFileBlock);
    md5.update(block.get(), length);
  } while (length == kFileBlock);
  if (file.failed()) {
    BLIB_E("briolib_get_file_md5_hash::Error in fread\n");
    return 0;
  }
  return md5.finish(digest);
}

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
  const size_t length = strlen(text);
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
  if (write_all(file.get(), text, length) != length) {
    BLIB_E("briolib_log_dump_static_info:file_path=%s,errno=%d:cant write static info\n", kStaticInfoFile,
           errno);
    // The file holds neither the old nor the new text: with an unknown digest the next dump writes again.
    memset(g_sim_info_hash, 0, sizeof(g_sim_info_hash));
  }
}
