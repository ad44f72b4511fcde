// What modem text does not reach in full: the page of any snapshot, the static information of any lists, the
// shell's word of any path, and functions that take texts. The input's first line is a name, the rest what it
// gets.
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "brio/brio_module.h"
#include "fuzz.h"
#include "lab/functions.h"
#include "page/log_611_sections.h"
#include "parse/modem_config.h"
#include "services/static_info.h"

namespace fuzz {

using namespace brio::page;

// The 611 page of any snapshot into a buffer of any size: view, size, snapshot and network values as
// they are in memory, then the static information text

struct Page {
  uint8_t view;
  uint16_t capacity;
  atcmd_snapshot snapshot;
  NetInfo net;
  char iccid[24];
  int32_t sar_mode;
};

uint32_t build(char* buffer, uint32_t capacity, const Page& v, const std::string& info) {
  brio::TextWriter page(buffer, capacity);
  require(write_sections(
      page, {&v.snapshot, v.iccid, &v.net, v.sar_mode, v.view % 2 != 0 ? View::kFull : View::kMasked}));
  const int memory = memfd_create("static_info", 0);
  require(pwrite(memory, info.data(), info.size(), 0) == static_cast<ssize_t>(info.size()));
  brio::InputFile file(memory);
  write_static_info(page, &file);
  return page.written();
}

void fuzz_page(Bytes input) {
  Page v = {};
  const size_t head = std::min(input.size(), sizeof(v));
  memcpy(&v, input.data(), head);
  const std::string info(input.substr(head, 16384));
  auto& s = v.snapshot;
  for (char* end : {&s.mcc[3], &s.mnc[3], std::end(s.plmn_text) - 1, std::end(s.band_text) - 1,
                    std::end(s.fw_ver) - 1, std::end(s.lib_ver) - 1, std::end(s.imei) - 1,
                    std::end(v.net.address) - 1, std::end(v.net.destination) - 1, std::end(v.iccid) - 1})
    *end = '\0';
  static char whole[65536];
  const uint32_t length = build(whole, sizeof(whole), v, info), size = v.capacity % 8192;
  const std::unique_ptr<char[]> part(new char[size]);
  require(length == strlen(whole) && build(part.get(), size, v, info) == std::min(length, size));
  require(size == 0 || part.get() == Bytes(whole, std::min(length, size - 1)));
}

void fuzz_static_info(Bytes data) {
  static sim_plmn_data plmn;
  sim_info_data info = {};
  plmn = {};
  memcpy(&plmn, data.data(), std::min(data.size(), sizeof(plmn)));
  // The counts follow long lists, and the texts follow the counts: let short inputs reach all of them.
  uint16_t* const counts[] = {&plmn.uplmn_count, &plmn.oplmn_count, &plmn.fplmn_count, &plmn.hplmn_count,
                              &plmn.ehplmn_count};
  for (size_t i = 0; i < std::size(counts) && 2 * i + 2 <= data.size(); i++)
    memcpy(counts[i], data.data() + 2 * i, 2);
  memcpy(&info, data.data(), std::min(data.size(), sizeof(info)));
  using Whole = char[brio::kStaticInfoSize];
  const std::unique_ptr<char[]> text(new char[sizeof(Whole)]);
  brio::static_info_text(plmn, info, reinterpret_cast<Whole&>(*text.get()));
  require(memchr(text.get(), '\0', sizeof(Whole)) != nullptr);
}

// Only the path's quotes could end the shell's word.
void fuzz_remove_command(Text line) {
  std::vector<char> command(line.length + 16);
  if (!brio::parse::build_remove_command(line.get(), "/var/local/wan/info", command.data(), command.size()))
    return;
  std::string word(command.data() + 9);
  for (size_t at; (at = word.find("'\\''")) != std::string::npos;) word.erase(at, 4);
  require(std::count(word.begin(), word.end(), '\'') == 2 && word.back() == '\'');
}

// Functions of sessions that keep each text in its own block: their words are the rest of the input.
constexpr Bytes kWords =
    " at_tok process_line base64_encode base64_decode mark_current_network md5 is_string_digit"
    " is_hex_string_valid briolib_obfuscate_alphabet briolib_obfuscate_numeral ";

void run(Bytes input) {
  static const bool added = (lab::add_parts(lab::calls()), true);
  require(added);
  const std::string name(take(input, '\n'));
  if (name == "page") return fuzz_page(input);
  if (name == "static_info") return fuzz_static_info(input);
  if (name == "remove") return fuzz_remove_command(Text(input));
  if (name.empty() || kWords.find(" " + name + " ") == Bytes::npos) return;
  lab::Arguments words{std::string(input)};
  try {
    lab::calls()[name](words);
  } catch (const std::exception&) {  // words that are missing or too many
  }
}

}  // namespace fuzz
