// Lines from a port in pieces of any sizes. Input: "TYPE PREFIX SIZE...", of the command and the pieces, and
// after the first line the port's bytes, in which 0x1F and a byte n repeat the character before 16 * n
// times. PREFIX "-" is none.
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <sstream>
#include <vector>

#include "brio/brio_at.h"
#include "fuzz.h"

namespace fuzz {

constexpr size_t kStreamMax = 8192;  // the pipe takes that at once
constexpr size_t kPiecesMax = 48;    // what is left then comes in one piece

// The complete lines of a stream that arrives in pieces of these sizes in turn, each followed by "\n".
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

void run(Bytes input) {
  std::istringstream head{std::string(take(input, '\n'))};
  uint32_t type = 0;
  std::string its_prefix;
  head >> type >> its_prefix;
  type %= 7;
  const char* const prefix = its_prefix == "-" ? nullptr : its_prefix.c_str();
  std::vector<size_t> sizes;
  for (size_t size; head >> size && sizes.size() < 8;) sizes.push_back(1 + size % kStreamMax);
  if (sizes.empty()) sizes = {1};
  // Whatever came before, the answer after it is a line of its own.
  std::string stream = expand(input) + "\r\nOK\r\n";
  const std::string lines = read_in_pieces(stream, sizes);
  require(("\n" + lines).rfind("\nOK\n") == lines.size() - 3);
  // The same lines at any piece size, but for lines too long and for prompts, which end where a piece ends.
  const bool fits = stream.size() < BRIO_LINE_DATA_MAX;
  stream.erase(std::remove(stream.begin(), stream.end(), '\0'), stream.end());
  if (fits && stream.find("> ") == std::string::npos) require(read_in_pieces(stream, {kStreamMax}) == lines);

  std::unique_ptr<ATResponse, void (*)(ATResponse*)> answer(at_response_new(), at_response_free);
  std::vector<Bytes> taken;
  for (Bytes left = lines; !left.empty();) {
    const Bytes line = take(left, '\n');
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

}  // namespace fuzz
