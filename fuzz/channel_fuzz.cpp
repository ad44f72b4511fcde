// The line reader, the line processor and the tokenizer from any bytes.
//
// Input: what is fuzzed (1 byte), then for lines (even): command type, response prefix, number of piece
// sizes, the sizes, and what a port gives, in which 0x1F and a byte n repeat the character before it 16 * n
// times; for the tokenizer (odd): number of steps, the steps, and the text behind a result name.
#include <fcntl.h>
#include <unistd.h>

#include <vector>

#include "fuzz.h"

namespace fuzz {

constexpr const char* kPrefixes[] = {nullptr, "", "+X", "+", "+BAS", "+COPS", "OK", " "};
constexpr size_t kStreamMax = 8192;  // the pipe takes that at once
constexpr size_t kPiecesMax = 48;    // what is left then comes in one piece

// The complete lines of a stream that arrives in pieces of the sizes in turn, each with a "\n" behind it.
std::string read_in_pieces(Bytes stream, const std::vector<size_t>& sizes) {
  static int ends[2];  // of a pipe, empty between two calls
  static const bool opened = pipe2(ends, O_CLOEXEC) == 0;
  require(opened);
  static std::unique_ptr<char[]> buffer(new char[BRIO_LINE_DATA_MAX + 1]());
  std::string lines;
  char* leftover = nullptr;
  for (size_t turn = 0; !stream.empty(); turn++) {
    const Bytes piece = stream.substr(0, turn < kPiecesMax ? sizes[turn % sizes.size()] : kStreamMax);
    stream.remove_prefix(piece.size());
    require(write(ends[1], piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()));
    for (size_t taken = 0; taken < piece.size();) {
      const size_t held = leftover != nullptr ? strlen(leftover) : 0;
      int32_t count = 0;
      char* text = read_line(ends[0], buffer.get(), &leftover, &count);
      require(count > 0 && leftover == nullptr);
      const size_t total = static_cast<size_t>(count);
      require(text >= buffer.get() && strlen(text) <= total && total > held);
      taken += total - held;
      char* const end = text + strlen(text);
      while (char* line_end = find_next_EOL(text)) {
        lines.append(text, line_end) += '\n';
        text = std::min(line_end + 1, end);
        while (*text == '\r' || *text == '\n') text++;
      }
      leftover = *text != '\0' ? text : nullptr;
    }
  }
  return lines;
}

std::string expand(Bytes bytes) {
  std::string stream;
  for (size_t i = 0; i < bytes.size() && stream.size() < kStreamMax; i++) {
    const bool repeats = bytes[i] == 0x1F && i + 1 < bytes.size() && !stream.empty();
    const char last = repeats ? stream.back() : bytes[i];
    stream.append(repeats ? static_cast<uint8_t>(bytes[++i]) * size_t{16} : 1, last);
  }
  stream.resize(std::min(stream.size(), kStreamMax));
  return stream;
}

// The answer holds the lines that were taken: in their order when a command for several of them succeeded,
// else the newest first.
void check_answer(const ATResponse& answer, uint32_t type, const std::vector<Bytes>& taken) {
  require(answer.final_response != nullptr && (answer.status == 0 || answer.status == 1));
  std::vector<Bytes> held;
  for (const ATLine* line = answer.intermediates; line != nullptr; line = line->next)
    held.push_back(line->line);
  if (answer.status != 0 || type < MULTILINE) std::reverse(held.begin(), held.end());
  require(held == taken);
}

void fuzz_lines(Input in) {
  const uint32_t type = in.byte() % 7;
  const char* const prefix = kPrefixes[in.byte() % std::size(kPrefixes)];
  std::vector<size_t> sizes(1 + in.byte() % 8);
  for (size_t& size : sizes) {
    const size_t byte = in.byte();
    size = byte < 200 ? byte + 1 : (byte - 199) * 48;
  }
  // Whatever came before, the answer behind it is a line of its own.
  std::string stream = expand(in.rest()) + "\r\nOK\r\n";
  const std::string lines = read_in_pieces(stream, sizes);
  require(("\n" + lines).rfind("\nOK\n") == lines.size() - 3);
  // The same lines at any piece size, but for lines too long and for prompts, which end where a piece ends.
  const bool fits = stream.size() < BRIO_LINE_DATA_MAX;
  stream.erase(std::remove(stream.begin(), stream.end(), '\0'), stream.end());
  if (fits && stream.find("> ") == std::string::npos) require(read_in_pieces(stream, {kStreamMax}) == lines);

  Answer answer(at_response_new(), at_response_free);
  std::vector<Bytes> taken;
  Input left(lines);
  while (!left.empty()) {
    const Bytes line = left.field('\n');
    const int32_t result = process_line(Text(line).get(), answer.get(), type, prefix);
    require(result >= 0 && result <= 3);
    if (result == 1 && type >= NUMERIC && type <= MULTILINE_NO_PREFIX) {
      taken.push_back(line);
      require(type > SINGLELINE || taken.size() == 1);
      const bool any_text = type == NUMERIC || type == MULTILINE_NO_PREFIX || prefix == nullptr;
      require(any_text || line.substr(0, strlen(prefix)) == prefix);
    }
    if (result != 0) continue;
    check_answer(*answer, type, taken);
    taken.clear();
    answer.reset(at_response_new());
  }
  require(answer->final_response == nullptr);
}

int32_t s_number;
uint8_t s_flag;
char s_empty[1];
char* s_field;
constexpr void (*kSteps[])(char** cursor) = {
    [](char** cursor) { at_tok_start(cursor); },
    [](char** cursor) { at_tok_nextint(cursor, &s_number); },
    [](char** cursor) { at_tok_nexthexint(cursor, &s_number); },
    [](char** cursor) { require(at_tok_nextbool(cursor, &s_flag) != 0 || s_flag <= 1); },
    [](char** cursor) { require(at_tok_nextstr(cursor, &(s_field = s_empty)) != 0 || s_field != nullptr); },
    at_tok_remove_quot,
    skip_white_space,
    skip_white_space_quotes,
};

void fuzz_tokenizer(Input in) {
  std::vector<uint8_t> steps(in.byte() % 32);
  for (uint8_t& step : steps) step = in.byte();
  const std::string text(in.rest());
  Text line(text);
  char* cursor = line.get();
  for (uint8_t step : steps) {
    kSteps[step % std::size(kSteps)](&cursor);
    require(line.holds(cursor));
    require(at_tok_hasmore(&cursor) == (cursor != nullptr && *cursor != '\0'));
  }
  for (auto clean : {skip_trailing_white_space, remove_blank_space, remove_double_quotes}) {
    Text copy(text);
    clean(copy.get());
    require(strlen(copy.get()) <= copy.length());
  }
  Text whole(text);
  is_string_digit(whole.get());
  is_hex_string_valid(whole.get());
  uint8_t* decoded = hex_string_to_bytes(whole.get());
  require(decoded != nullptr && decoded[whole.length() / 2] == 0);
  free(decoded);
}

void run(Input in) {
  in.byte() % 2 == 0 ? fuzz_lines(in) : fuzz_tokenizer(in);
}

}  // namespace fuzz
