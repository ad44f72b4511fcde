// Functions that work on cursors, records, objects and bytes: arguments from words, results as one line.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>

#include "base/paths.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "channel/brio_queue.h"
#include "kit/clock.h"
#include "kit/exact_text.h"
#include "lab/functions.h"
#include "parse/scan_list.h"

namespace lab {

namespace {

std::string shown(const char* text) {
  return text != nullptr ? quoted(text) : "null";
}
std::string shown(int32_t number) {
  return std::to_string(number);
}

// ---- Tokenizer

using Step = std::function<std::string(char**)>;

// Status and value of a function that fills one.
template <typename T, typename F>
Step filling(F function, T preset) {
  return [function, preset](char** cursor) {
    T value = preset;
    const int32_t status = function(cursor, &value);
    return " " + shown(status) + ":" + shown(value);
  };
}

template <typename F>
Step moving(F function) {
  return [function](char** cursor) {
    if constexpr (std::is_invocable_v<F, char*>) {
      function(*cursor);
    } else {
      function(cursor);
    }
    return "";
  };
}

std::string bytes(char** text) {
  const std::unique_ptr<uint8_t, void (*)(void*)> made(hex_string_to_bytes(*text), free);
  if (made == nullptr) return " null";
  return " " + quoted(std::string(reinterpret_cast<char*>(made.get()), strlen(*text) / 2 + 1));
}

// at_tok TEXT STEP...: their results, and what the cursor or the text then holds.
std::string at_tok(Arguments& a) {
  static char s_preset[] = "preset";
  static const std::map<std::string, Step> steps = {
      {"start", [](char** cursor) { return " " + shown(at_tok_start(cursor)); }},
      {"more", [](char** cursor) { return " " + shown(at_tok_hasmore(cursor)); }},
      {"int", filling(at_tok_nextint, 99)},
      {"hex", filling(at_tok_nexthexint, 99)},
      {"bool", filling(at_tok_nextbool, uint8_t{9})},
      {"no_bool", [](char** cursor) { return " " + shown(at_tok_nextbool(cursor, nullptr)); }},
      {"str", filling(at_tok_nextstr, &s_preset[0])},
      {"null_str", filling(at_tok_nextstr, static_cast<char*>(nullptr))},
      {"unquote", moving(at_tok_remove_quot)},
      {"spaces", moving(skip_white_space)},
      {"both", moving(skip_white_space_quotes)},
      {"trim", moving(skip_trailing_white_space)},
      {"no_blanks", moving(remove_blank_space)},
      {"no_quotes", moving(remove_double_quotes)},
      {"bytes", bytes}};
  const bool null = a.take_null();
  ExactText text(null ? "" : a.text());
  char* cursor = null ? nullptr : text.get();
  std::string line;
  for (const auto& name : a.words()) {
    const auto step = steps.find(name);
    if (step == steps.end()) throw UsageError("no such step: " + name);
    line += step->second(&cursor);
  }
  return (line + " " + shown(cursor)).substr(1);
}

// ---- Line processor

// process_line TYPE PREFIX LINE...: each result, then the record.
std::string process_lines(Arguments& a) {
  const auto type = static_cast<uint32_t>(a.number());
  const bool no_prefix = a.take_null();
  const std::string prefix = no_prefix ? "" : a.text();
  const std::unique_ptr<ATResponse, void (*)(ATResponse*)> response(at_response_new(), at_response_free);
  std::string text;
  for (const auto& line : a.words()) {
    text +=
        shown(process_line(line.c_str(), response.get(), type, no_prefix ? nullptr : prefix.c_str())) + " ";
  }
  text += "status=" + shown(response->status) + " final=" + shown(response->final_response);
  for (const ATLine* line = response->intermediates; line != nullptr; line = line->next) {
    text += " " + shown(line->line);
  }
  return text;
}

// ---- Queue: the functions work on the one that was created last

std::unique_ptr<queue, void (*)(queue*)> s_queue(nullptr, q_destroy);

std::string create_queue(Arguments& a) {
  const auto element_size = static_cast<uint32_t>(a.number());
  s_queue.reset();
  s_queue.reset(q_create(element_size, static_cast<int32_t>(a.number())));
  const auto number = [](uint32_t value) { return shown(static_cast<int32_t>(value)); };
  return number(q_num_elements(s_queue.get())) + " x " + number(q_element_size(s_queue.get()));
}

void upper_case(void* destination, const void* source, uint32_t size, uint32_t element_size) {
  char* text = static_cast<char*>(destination);
  memcpy(text, source, std::min(size, element_size));
  for (char* c = text; c < text + element_size; c++) *c = static_cast<char>(toupper(*c));
}

// A word tells how: `plain`, `copy` with a copy function, `no_copy`.
q_copy copy_function(const std::string& kind) {
  return kind == "copy" ? upper_case : nullptr;
}

std::string add(Arguments& a) {
  const std::string kind = a.text();
  const bool null = a.take_null();
  std::string text = null ? "" : a.text();
  const auto size = static_cast<uint32_t>(a.more() ? a.number() : 0);
  text.resize(64);
  const char* source = null ? nullptr : text.c_str();
  return shown(static_cast<int32_t>(
      kind == "plain" ? q_add(s_queue.get(), source, size)
                      : q_add_with_copy_callback(s_queue.get(), source, copy_function(kind), size)));
}

std::string get(Arguments& a) {
  const std::string kind = a.text();
  const auto timeout = static_cast<int32_t>(a.number());
  const auto size = static_cast<uint32_t>(a.more() ? a.number() : 0);
  char target[] = "................";
  char* place = kind == "null" ? nullptr : target;
  const uint32_t status =
      kind == "copy" || kind == "no_copy"
          ? q_get_with_copy_callback(s_queue.get(), place, copy_function(kind), size, timeout)
          : q_get(s_queue.get(), place, size, timeout);
  return std::to_string(status) + (status == Q_OK ? " " + shown(target) : "");
}

// What the last dump left.
std::string dump_queue(Arguments&) {
  queue_dump_all(s_queue.get());
  return quoted(brio::g_queue_dump);
}

// ---- Pool: blocks have names

std::unique_ptr<mempool, void (*)(mempool*)> s_pool(nullptr, mempool_destroy);
char s_elsewhere[64];
std::map<std::string, void*> s_blocks;

// mempool_create SAFE SIZExCOUNT...
std::string create_pool(Arguments& a) {
  const auto safe = static_cast<uint32_t>(a.number());
  std::vector<mempool_def> groups;
  for (const auto& word : a.words()) {
    groups.push_back({std::stoi(word), std::stoi(word.substr(word.find('x') + 1))});
  }
  groups.push_back({0, 0});
  s_pool.reset();
  s_blocks = {{"stranger", &s_elsewhere[32]}};
  s_pool.reset(mempool_create(groups.data(), safe));
  return s_pool != nullptr ? "made" : "null";
}

// mempool_alloc NAME SIZE [USED]: fills this many bytes of it; tells the name that the block had before.
std::string allocate(Arguments& a) {
  const std::string name = a.text();
  const auto size = static_cast<uint32_t>(a.number());
  void* block = mempool_alloc(s_pool.get(), size);
  if (block == nullptr) return "null";
  memset(block, name[0], a.more() ? static_cast<size_t>(a.number()) : size);
  std::string before = "new";
  for (const auto& [other, place] : s_blocks) before = place == block ? other : before;
  s_blocks[name] = block;
  return before;
}

// KIND null|empty: a packet as the read thread passes it on; empty: an answer without a text.
std::string handle_packet(Arguments& a) {
  const auto kind = static_cast<uint32_t>(a.number());
  ATResponse empty = {1, nullptr, nullptr};
  blpkt_handle_packet(kind, a.text() == "empty" ? &empty : nullptr, nullptr);
  return "";
}

std::string mark(Arguments& a) {
  ExactText list(a.text());
  const std::string mcc = a.text(), mnc = a.text(), rat = a.text();
  brio::parse::mark_current_network(list.get(), mcc.c_str(), mnc.c_str(), rat.c_str());
  return quoted(list.get());
}

// ---- Encodings

// CODE TEXT CAPACITY [SIZE]: its result and the bytes that it wrote.
template <int32_t (*code)(const void*, void*, int32_t, int32_t)>
std::string base64(Arguments& a) {
  const bool null = a.take_null();
  const std::string text = null ? "" : a.text();
  const auto capacity = static_cast<int32_t>(a.number());
  const auto size = a.more() ? static_cast<int32_t>(a.number()) : static_cast<int32_t>(text.size());
  const auto room =
      static_cast<size_t>(std::clamp(code == briolib_base64_decode ? size / 4 * 3 : capacity, 0, 9999));
  const std::unique_ptr<char[]> output(new char[room]());
  const int32_t length = code(null ? nullptr : text.data(), output.get(), size, capacity);
  return shown(length) + " " + quoted(std::string(output.get(), std::min<size_t>(room, std::max(length, 0))));
}

std::string hex(uint32_t length, const uint8_t* digest) {
  std::string text = std::to_string(length) + (length > 0 ? " " : "");
  for (uint32_t i = 0; i < length; i++) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += {kDigits[digest[i] >> 4U], kDigits[digest[i] & 15U]};
  }
  return text;
}

// TEXT... (null: a null pointer); [of TEXT...]
std::string md5(Arguments& a) {
  uint8_t digest[16] = {};
  std::deque<std::string> texts;  // whose elements stay in their places
  std::vector<const char*> pointers;
  while (a.more()) {
    const bool null = a.take_null();
    pointers.push_back(null ? nullptr : texts.emplace_back(a.text()).c_str());
  }
  return hex(briolib_get_md5_hash(pointers.data(), static_cast<int32_t>(pointers.size()), digest), digest);
}

// PATH [null]: of a file of the device; null: no room for the digest.
std::string md5_file(Arguments& a) {
  uint8_t digest[16] = {};
  const bool null = a.take_null();
  const brio::DevicePath path(null ? "" : a.text().c_str());
  return hex(briolib_get_file_md5_hash(null ? nullptr : path.c_str(), a.take_null() ? nullptr : digest),
             digest);
}

// ---- Shared record

struct RecordField {
  const char* name;
  size_t offset, size, alignment;
  const char* opened;
  const char* unregistered;  // kKept: as it was
};
constexpr const char* kKept = nullptr;
constexpr RecordField kRecord[] = {
#define FIELD(name, offset, opened, unregistered, ...)                                           \
  {#name,  offset,      sizeof(brio_atcmd_data::name), alignof(decltype(brio_atcmd_data::name)), \
   opened, unregistered},
#include "record.def"
    {"end", sizeof(brio_atcmd_data), 0, alignof(brio_atcmd_data), nullptr, nullptr}};

// KEEP: the fields that a reset of a used record leaves otherwise than their rows say, and what has no row.
std::string reset_record(Arguments& a) {
  const bool opens = a.number() == 0;
  memset(&g_brio_lib_atcmd_data, 'R', sizeof g_brio_lib_atcmd_data);
  const Fields before = shared_fields();
  briolib_init_atcmd_data(opens ? 0 : 1);
  const Fields after = shared_fields();
  std::string wrong;
  size_t end = 0;
  for (size_t i = 0; i < std::size(kRecord); i++) {
    const RecordField& row = kRecord[i];
    if (row.offset - end >= row.alignment) wrong += std::string("no row before ") + row.name + " ";
    end = row.offset + row.size;
    if (row.size == 0) break;
    const char* expected = opens ? row.opened : row.unregistered;
    const bool right = after[i].second == (expected != kKept ? expected : before[i].second);
    if (!right || after[i].first != row.name) wrong += row.name + ("=" + after[i].second + " ");
  }
  return wrong.empty() ? "as its rows say" : wrong;
}

}  // namespace

void add_parts(std::map<std::string, Call>& table) {
  const auto done = [](auto act) {
    return [act](Arguments& a) {
      act(a);
      return std::string();
    };
  };
  table.insert({
      {"at_tok", {at_tok, "TEXT STEP..."}},
      {"process_line", {process_lines, "TYPE PREFIX LINE..."}},
      {"q_create", {create_queue, "SIZE COUNT"}},
      {"q_add", {add, "plain|copy|no_copy TEXT [SIZE]"}},
      {"q_get", {get, "plain|copy|no_copy|null TIMEOUT [SIZE]"}},
      {"q_cancel", {done([](Arguments&) { q_cancel(s_queue.get()); }), ""}},
      {"queue_dump_all", {dump_queue, ""}},
      {"mempool_create", {create_pool, "SAFE SIZExCOUNT..."}},
      {"mempool_alloc", {allocate, "NAME SIZE [USED]"}},
      {"mempool_free", {done([](Arguments& a) { mempool_free(s_pool.get(), s_blocks[a.text()]); }), "NAME"}},
      {"mempool_dump", {done([](Arguments&) { mempool_dump(s_pool.get()); }), ""}},
      {"blpkt_handle_packet", {handle_packet, "KIND null|empty"}},
      {"mark_current_network", {mark, "LIST MCC MNC RAT"}},
      {"base64_encode", {base64<briolib_base64_encode>, "TEXT CAPACITY [SIZE]"}},
      {"base64_decode", {base64<briolib_base64_decode>, "TEXT CAPACITY [SIZE]"}},
      {"md5", {md5, "TEXT..."}},
      {"md5_file", {md5_file, "PATH [null]"}},
      {"reset_record", {reset_record, "KEEP"}},
      {"tick", {[](Arguments&) { return std::string(test_clock::tick() ? "done" : "gone"); }, ""}},
  });
}

}  // namespace lab
