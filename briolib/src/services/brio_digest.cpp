// MD5 digests, for telling changed texts apart (not for security).
#include <openssl/evp.h>
#include <string.h>

#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "brio/briolib.h"

constexpr char kLogTag[] = "briolib/src/brio_log";

using namespace brio;

namespace {

constexpr size_t kFileBlock = 512;

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
