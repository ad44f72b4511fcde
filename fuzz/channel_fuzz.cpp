// The line reader, the line processor and the tokenizer from any bytes.
//
// Input: what is fuzzed (1 byte: even the lines, odd the tokenizer), size of the pieces (1 byte), command
// type (1 byte), then the bytes that a port gives or the text behind a result name.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "brio/brio_at.h"

// Error lines would go to the system's log.
extern "C" __attribute__((weak)) void syslog(int, const char*, ...) {}

namespace {

using Lines = std::vector<std::string>;

void require(bool holds) {
  if (!holds) abort();
}

// The complete lines of a stream that arrives in pieces.
Lines read_in_pieces(const std::string& stream, size_t piece) {
  Lines lines;
  int ends[2];
  require(pipe2(ends, O_CLOEXEC) == 0);
  std::unique_ptr<char[]> buffer(new char[BRIO_LINE_DATA_MAX + 1]());
  char* leftover = nullptr;
  for (size_t at = 0; at < stream.size(); at += piece) {
    const size_t size = std::min(piece, stream.size() - at);
    require(write(ends[1], stream.data() + at, size) == static_cast<ssize_t>(size));
    for (size_t taken = 0; taken < size;) {
      const size_t held = leftover != nullptr ? strlen(leftover) : 0;
      int32_t count = 0;
      char* text = read_line(ends[0], buffer.get(), &leftover, &count);
      require(count > 0 && leftover == nullptr);
      require(text >= buffer.get() && strlen(text) <= static_cast<size_t>(count));
      taken +=
          static_cast<size_t>(count) > held ? static_cast<size_t>(count) - held : static_cast<size_t>(count);
      char* const end = text + strlen(text);
      while (char* line_end = find_next_EOL(text)) {
        lines.emplace_back(text, line_end);
        text = std::min(line_end + 1, end);
        while (*text == '\r' || *text == '\n') text++;
      }
      leftover = *text != '\0' ? text : nullptr;
    }
  }
  close(ends[0]);
  close(ends[1]);
  return lines;
}

void fuzz_lines(std::string stream, size_t piece, uint32_t type) {
  const Lines lines = read_in_pieces(stream, piece);
  // The same lines at any piece size, but for lines too long and for prompts, which end where a piece ends.
  const bool fits = stream.size() < BRIO_LINE_DATA_MAX;
  stream.erase(std::remove(stream.begin(), stream.end(), '\0'), stream.end());
  if (fits && stream.find("> ") == std::string::npos) {
    require(read_in_pieces(stream, std::max<size_t>(stream.size(), 1)) == lines);
  }

  ATResponse* response = at_response_new();
  for (const auto& line : lines) {
    const int32_t result = process_line(line.c_str(), response, type, "+X");
    require(result >= 0 && result <= 3);
    require((result == 0) == (response->final_response != nullptr));
    if (result == 0) {
      at_response_free(response);
      response = at_response_new();
    }
    if (type == NUMERIC || type == SINGLELINE) {
      require(response->intermediates == nullptr || response->intermediates->next == nullptr);
    }
  }
  at_response_free(response);
}

// A writable text in a heap block of its own.
std::unique_ptr<char[]> copy_of(const std::string& text) {
  std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

void fuzz_tokenizer(const std::string& bytes, const uint8_t* steps, size_t count) {
  const std::string text = bytes.c_str();
  std::unique_ptr<char[]> line = copy_of(text);
  char* cursor = line.get();
  for (size_t i = 0; i < count; i++) {
    char preset[] = "";
    char* field = preset;
    int32_t number = 0;
    uint8_t flag = 0;
    switch (steps[i] % 8) {
      case 0:
        at_tok_start(&cursor);
        break;
      case 1:
        at_tok_nextint(&cursor, &number);
        break;
      case 2:
        at_tok_nexthexint(&cursor, &number);
        break;
      case 3:
        require(at_tok_nextbool(&cursor, &flag) != 0 || flag <= 1);
        break;
      case 4:
        require(at_tok_nextstr(&cursor, &field) != 0 || field != nullptr);
        break;
      case 5:
        at_tok_remove_quot(&cursor);
        break;
      case 6:
        skip_white_space(&cursor);
        break;
      default:
        skip_white_space_quotes(&cursor);
        break;
    }
    require(cursor == nullptr || (cursor >= line.get() && cursor <= line.get() + text.size()));
    require(at_tok_hasmore(&cursor) == (cursor != nullptr && *cursor != '\0'));
  }
  for (auto clean : {skip_trailing_white_space, remove_blank_space, remove_double_quotes}) {
    line = copy_of(text);
    clean(line.get());
    require(strlen(line.get()) <= text.size());
  }
  is_string_digit(text.c_str());
  is_hex_string_valid(text.c_str());
  uint8_t* decoded = hex_string_to_bytes(text.c_str());
  require(decoded != nullptr && decoded[text.size() / 2] == 0);
  free(decoded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3 || size > 16384) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 3, size - 3);
  if (data[0] % 2 == 0) {
    fuzz_lines(bytes, data[1] == 0 ? 4096 : data[1], data[2] % 7);
  } else {
    fuzz_tokenizer(bytes, data, std::min<size_t>(size, 64));
  }
  return 0;
}
