// A file's lines are commands: "COMMAND ; COMMAND => EXPECTED". The expected text is what the commands put
// out, joined by " | ", and clauses after " ; ": sent, changed, event (all of them, "-" for none; ".." among
// those sent: any), log and nolog (a part of a line). "for COMMANDS" plays the indented lines below it, with
// their words in the place of $1 to $9 and $*.
#include "session_file.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <vector>

namespace lab {

namespace {

using Lines = Seen::Lines;

constexpr char kArrow[] = " =>";
constexpr char kNext[] = " ; ";
constexpr char kNothing[] = "-";
constexpr char kGap[] = "..";

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(' ');
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// Where `mark` is outside of quotes, or npos.
size_t find_unquoted(const std::string& text, const std::string& mark, size_t from = 0) {
  char quote = '\0';
  for (size_t i = from; i < text.size(); i++) {
    if (quote == '\0' && text.compare(i, mark.size(), mark) == 0) return i;
    if (text[i] == '\\' && quote == '"') {
      i++;
    } else if (quote != '\0') {
      quote = text[i] == quote ? '\0' : quote;
    } else if (text[i] == '"' || (text[i] == '\'' && (i == 0 || text[i - 1] == ' '))) {
      quote = text[i];  // an apostrophe within a word is none
    }
  }
  return std::string::npos;
}

// The parts of a log clause: a log line may hold torn quotes.
Lines parts_of(const std::string& text) {
  constexpr char kBetween[] = " | ";
  Lines parts;
  for (size_t from = 0, at = 0; at != std::string::npos; from = at + std::strlen(kBetween)) {
    at = text.find(kBetween, from);
    parts.push_back(trimmed(text.substr(from, at - from)));
  }
  return parts;
}

Lines split(const std::string& text, const std::string& mark) {
  Lines parts;
  for (size_t from = 0, at = 0; at != std::string::npos; from = at + mark.size()) {
    at = find_unquoted(text, mark, from);
    parts.push_back(trimmed(text.substr(from, at - from)));
  }
  return parts;
}

std::string joined(const Lines& parts, const char* between) {
  std::string text;
  for (const auto& part : parts) text += (text.empty() ? "" : between) + part;
  return text;
}

// The clauses of an expectation by kind; the output's kind is "".
struct Clause {
  std::string kind, text;
};
using Clauses = std::vector<Clause>;

constexpr const char* kKinds[] = {"sent", "changed", "event", "log", "nolog"};

// The kind that a text begins with, or "".
std::string kind_of(const std::string& text) {
  const std::string word = text.substr(0, text.find(' '));
  return std::find(std::begin(kKinds), std::end(kKinds), word) != std::end(kKinds) ? word : "";
}

// A clause ends only where the next one begins: a log line may hold anything.
Clauses parse_expected(const std::string& text) {
  Clauses clauses;
  for (size_t from = 0, at = 0; at != std::string::npos; from = at + std::strlen(kNext)) {
    for (at = text.find(kNext, from); at != std::string::npos; at = text.find(kNext, at + 1)) {
      if (!kind_of(text.substr(at + std::strlen(kNext))).empty()) break;
    }
    const std::string part = trimmed(text.substr(from, at == std::string::npos ? at : at - from));
    const std::string kind = kind_of(part);
    const std::string its = trimmed(part.substr(kind.size()));
    clauses.push_back({kind, kind == "log" ? joined(parts_of(its), " | ") : its});
  }
  // In the order in which they are shown; log and nolog stay as they are written.
  const auto place = [](const Clause& each) {
    return each.kind.empty() ? -1
                             : std::min<long>(std::find(kKinds, std::end(kKinds), each.kind) - kKinds, 3);
  };
  std::stable_sort(clauses.begin(), clauses.end(),
                   [&](const Clause& a, const Clause& b) { return place(a) < place(b); });
  return clauses;
}

std::string text_of(const Clauses& clauses) {
  Lines parts;
  for (const auto& each : clauses) parts.push_back(each.kind + (each.kind.empty() ? "" : " ") + each.text);
  return joined(parts, kNext);
}

// Plays one file, or prints its commands.
class Player {
 public:
  Player(const std::string& path, bool update, bool plays = true) : path_(path), update_(update) {
    if (plays) session_.emplace();
  }

  void list() {
    for (std::string line : read()) {
      if (trimmed(line).empty()) std::cout << "\n";
      play_line(line);
    }
  }

  bool play() {
    Lines lines = read();
    size_t commands = 0;
    for (number_ = 1; number_ <= lines.size(); number_++) commands += play_line(lines[number_ - 1]) ? 1 : 0;
    if (commands == 0) throw UsageError("holds no command");
    const std::string left = session_->end();
    if (left != "none") {
      std::cout << path_ << ": left behind: " << left << "\n";
      holds_ = false;
    }
    if (update_) write(lines);
    return holds_;
  }

 private:
  // Whether it is a command.
  bool play_line(std::string& line) {
    const std::string whole = trimmed(line);
    if (whole.empty() || whole[0] == '#') return false;
    size_t arrow = find_unquoted(line, kArrow);
    if (arrow == std::string::npos) arrow = line.rfind(kArrow);  // after a torn quote
    const std::string left = trimmed(line.substr(0, arrow));
    const bool has_arrow = arrow != std::string::npos;
    const std::string right = has_arrow ? trimmed(line.substr(arrow + 3)) : "";
    try {
      if (line[0] == ' ') {
        if (template_.empty()) throw UsageError("a case without `for`");
        const std::string expected = has_arrow ? right : template_expected_;
        const bool expects = has_arrow || template_expects_;
        for (const auto& words : cases(left)) {
          const bool own = has_arrow && words == left;
          check_places(words);
          play(own ? &line : nullptr, arrow, filled(template_, words, true), expects,
               filled(expected, words, false));
        }
        return true;
      }
      template_.clear();
      if (begins(left, "for ")) {
        template_ = trimmed(left.substr(4));
        template_expected_ = right;
        template_expects_ = has_arrow;
      } else if (begins(left, "define ")) {
        const std::string rest = trimmed(left.substr(7));
        names_[rest.substr(0, rest.find(' '))] = trimmed(rest.substr(std::min(rest.find(' '), rest.size())));
      } else if (begins(left, "watch")) {
        watch(left.substr(5));
      } else {
        play(&line, arrow, left, has_arrow, right);
      }
    } catch (const std::exception& error) {
      if (session_) session_->end();
      throw UsageError("line " + std::to_string(number_) + ": " + whole + ": " + error.what());
    }
    return true;
  }

  static bool begins(const std::string& text, const std::string& part) {
    return text.compare(0, part.size(), part) == 0;
  }

  // watch [sent] [changed] [event] [log PART...]: what every line expects wholly from now on.
  void watch(const std::string& text) {
    Arguments words(text);
    watched_.clear();
    parts_.clear();
    while (words.more()) {
      const std::string kind = words.text();
      if (std::find(std::begin(kKinds), std::end(kKinds), kind) == std::end(kKinds)) {
        throw UsageError("cannot be watched: " + kind);
      }
      watched_.push_back(kind);
      if (kind == "log") parts_ = words.words();
    }
  }

  bool watches(const std::string& kind) const {
    return std::find(watched_.begin(), watched_.end(), kind) != watched_.end();
  }

  // The cases of a line.
  static Lines cases(const std::string& text) {
    if (!begins(text, "each ")) return {text};
    Lines all;
    for (const auto& word : split_words(text.substr(5))) {
      const size_t dots = word.find("..");
      const bool range =
          dots != std::string::npos && word.find_first_not_of("0123456789.") == std::string::npos;
      if (!range) all.push_back(word);
      for (long long i = range ? to_number(word.substr(0, dots)) : 1;
           range && i <= to_number(word.substr(dots + 2)); i++) {
        all.push_back(std::to_string(i));
      }
    }
    return all;
  }

  // A case's words beyond the last place of the `for` would be lost, and with them what a forgotten "=>"
  // asks.
  void check_places(const std::string& words) const {
    const std::string names = template_ + template_expected_;
    if (names.find("$*") != std::string::npos) return;
    char last = '9';
    while (last > '0' && names.find(std::string("$") + last) == std::string::npos) last--;
    const Lines each = split_words(words);
    const auto places = static_cast<size_t>(last - '0');
    if (template_.find('$') != std::string::npos && each.size() > places) {
      throw UsageError("no place for " + each[places]);
    }
  }

  // A text with the words of a case in their places, or appended when it names none.
  static std::string filled(const std::string& pattern, const std::string& words, bool append) {
    const Lines each = split_words(words);
    std::string text;
    bool used = false;
    for (size_t i = 0; i < pattern.size(); i++) {
      const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
      if (pattern[i] != '$' || (next != '*' && (next < '1' || next > '9'))) {
        text += pattern[i];
        continue;
      }
      const size_t place = static_cast<size_t>(next - '1');
      if (next != '*' && place >= each.size()) throw UsageError(std::string("no word for $") + next);
      text += next == '*' ? words : each[place];
      used = true;
      i++;
    }
    return used || !append ? text : text + " " + words;
  }

  // The words as they are written, quotes included.
  static Lines split_words(const std::string& text) {
    Lines words;
    for (const auto& word : split(text, " ")) {
      if (!word.empty()) words.push_back(word);
    }
    return words;
  }

  void run(const std::string& commands, Seen* all) {
    const bool whole = begins(commands, "bits ");
    for (std::string command : whole ? Lines{commands} : split(commands, kNext)) {
      if (command.empty()) continue;
      const bool quiet = command[0] == '!';
      if (quiet) command = trimmed(command.substr(1));
      const std::string name = command.substr(0, command.find(' '));
      if (const auto named = names_.find(name); named != names_.end()) {
        std::string text = named->second;
        const std::string words = trimmed(command.substr(name.size()));
        for (size_t at; (at = text.find("$*")) != std::string::npos;) text.replace(at, 2, words);
        Seen unseen;
        run(text, quiet ? &unseen : all);
        continue;
      }
      const bool is_command = lab::commands().count(name) != 0;
      if (!is_command && calls().count(name) != 0) command.insert(0, "call ");
      if (!session_) {
        std::cout << command << "\n";
        continue;
      }
      Seen seen = session_->run(command);
      if (quiet) continue;
      const auto add = [](auto& to, const auto& from) { to.insert(to.end(), from.begin(), from.end()); };
      add(all->output, seen.output);
      add(all->sent, seen.sent);
      add(all->events, seen.events);
      add(all->changed, seen.changed);
      add(all->lines, seen.lines);
    }
  }

  // `line`: what --update changes, if it may.
  void play(std::string* line, size_t arrow, const std::string& commands, bool has_arrow,
            const std::string& right) {
    Seen seen;
    run(commands, &seen);
    if (!session_) return;
    const Clauses expected = has_arrow ? parse_expected(right) : Clauses();
    const Clauses shown = what_was_shown(seen, expected, has_arrow);
    const std::string is = text_of(shown), was = text_of(expected);
    if (is == was) return;
    // What a case asks of the log is its point: that is left to a person.
    const bool updates = update_ && line != nullptr,
               log_holds = watches("log") || text_of(log_of(shown)) == text_of(log_of(expected));
    holds_ = holds_ && updates && log_holds;
    if (updates) {
      const std::string written = text_of(log_holds ? shown : with_log(shown, expected));
      *line = line->substr(0, arrow) + (written.empty() ? "" : std::string(kArrow) + " " + written);
    }
    std::cout << path_ << ":" << number_ << ": " << commands
              << (updates ? "\n  - before, + written\n" : "\n  - expected, + shown\n");
    const Lines want = lines_of(expected), got = lines_of(shown);
    print_difference(want, got);
    if (std::is_permutation(want.begin(), want.end(), got.begin(), got.end())) {
      std::cout << "  the same in another order\n";
    }
    if (updates && log_holds) return;
    if (updates) std::cout << "  its log and nolog clauses stay as they were: edit them by hand\n";
    const auto not_logged = [&](const std::string& each) {
      return begins(each, "log ") && std::find(got.begin(), got.end(), each) == got.end();
    };
    if (std::none_of(want.begin(), want.end(), not_logged)) return;
    for (const auto& each : session_->readable(seen.lines, {})) std::cout << "    (logged) " << each << "\n";
  }

  static bool is_log(const Clause& clause) { return clause.kind == "log" || clause.kind == "nolog"; }

  static Clauses log_of(Clauses clauses) {
    clauses.erase(std::remove_if(clauses.begin(), clauses.end(), std::not_fn(is_log)), clauses.end());
    return clauses;
  }

  // `shown` with the log clauses of `expected`.
  static Clauses with_log(Clauses shown, const Clauses& expected) {
    shown.erase(std::remove_if(shown.begin(), shown.end(), is_log), shown.end());
    for (const auto& each : log_of(expected)) shown.push_back(each);
    return shown;
  }

  // Each part of each clause, with the clause's kind in front.
  static Lines lines_of(const Clauses& clauses) {
    Lines all;
    for (const auto& each : clauses) {
      const char* const between = each.kind == "sent" || each.kind == "event" ? ", "
                                  : each.kind == "changed"                    ? " "
                                                                              : " | ";
      for (const auto& part : is_log(each) ? parts_of(each.text) : split(each.text, between)) {
        all.push_back(each.kind + (each.kind.empty() ? "" : " ") + (part.empty() ? "(nothing)" : part));
      }
    }
    return all;
  }

  // Line by line, along the longest common subsequence.
  static void print_difference(const Lines& expected, const Lines& shown) {
    const size_t rows = expected.size(), columns = shown.size();
    std::vector<std::vector<size_t>> common(rows + 1, std::vector<size_t>(columns + 1));  // of what is left
    for (size_t e = rows; e-- > 0;) {
      for (size_t s = columns; s-- > 0;) {
        common[e][s] =
            expected[e] == shown[s] ? common[e + 1][s + 1] + 1 : std::max(common[e + 1][s], common[e][s + 1]);
      }
    }
    for (size_t e = 0, s = 0; e < rows || s < columns;) {
      const bool both = e < rows && s < columns;
      if (both && expected[e] == shown[s]) {
        std::cout << "    " << expected[e] << "\n";
        e++, s++;
      } else if (e < rows && (!both || common[e + 1][s] >= common[e][s + 1])) {
        std::cout << "  - " << expected[e++] << "\n";
      } else {
        std::cout << "  + " << shown[s++] << "\n";
      }
    }
  }

  // The same clauses as they should have been written.
  Clauses what_was_shown(const Seen& seen, const Clauses& expected, bool has_arrow) const {
    Clauses shown;
    const auto asked = [&](const std::string& kind) {
      return std::any_of(expected.begin(), expected.end(),
                         [&](const Clause& each) { return each.kind == kind; });
    };
    const bool output_asked = asked("") || (has_arrow && update_);
    if (output_asked && (!seen.output.empty() || asked(""))) {
      const std::string output = joined(seen.output, " | ");
      const auto begun = std::find_if(expected.begin(), expected.end(), [&](const Clause& each) {
        const size_t end = each.text.size() - std::min<size_t>(each.text.size(), 3);
        return each.kind.empty() && each.text.substr(end) == " .." &&
               begins(output + " ", each.text.substr(0, end + 1));
      });
      shown.push_back(begun != expected.end() ? *begun : Clause{"", output});
    }
    const auto add = [&](const char* kind, const Lines& lines, const char* between) {
      const auto gaps = std::find_if(expected.begin(), expected.end(), [&](const Clause& each) {
        return each.kind == kind && each.text.find(kGap) != std::string::npos;
      });
      if (gaps != expected.end() && matches(split(gaps->text, between), 0, lines, 0)) {
        shown.push_back(*gaps);
      } else if (asked(kind) || (watches(kind) && !lines.empty())) {
        shown.push_back({kind, lines.empty() ? kNothing : joined(lines, between)});
      }
    };
    add("sent", seen.sent, ", ");
    add("changed", seen.changed, " ");
    add("event", seen.events, ", ");
    add_log(seen, expected, &shown);
    return shown;
  }

  // Whether the lines from one place on are those of the pattern, where kGap matches any.
  static bool matches(const Lines& pattern, size_t p, const Lines& lines, size_t l) {
    if (p == pattern.size()) return l == lines.size();
    if (pattern[p] != kGap) {
      return l < lines.size() && lines[l] == pattern[p] && matches(pattern, p + 1, lines, l + 1);
    }
    return matches(pattern, p + 1, lines, l) || (l < lines.size() && matches(pattern, p, lines, l + 1));
  }

  // A watched log: each line of it. Else the parts that were found.
  void add_log(const Seen& seen, const Clauses& expected, Clauses* shown) const {
    if (!watches("log") && std::none_of(expected.begin(), expected.end(), is_log)) return;
    const Lines lines = session_->readable(seen.lines, {});
    const Lines followed = watches("log") ? session_->readable(seen.lines, parts_) : Lines();
    size_t at = 0, found = 0;
    for (const auto& clause : expected) {
      if (clause.kind == "nolog") {
        const auto holds = [&](const std::string& line) {
          return line.find(clause.text) != std::string::npos;
        };
        const auto one = std::find_if(lines.begin(), lines.end(), holds);
        shown->push_back(one == lines.end() ? clause : Clause{"log", *one});
      }
      if (clause.kind != "log") continue;
      Lines kept;
      for (const auto& part : parts_of(clause.text)) {
        const auto holds = [&](const std::string& line) { return line.find(part) != std::string::npos; };
        if (watches("log")) {
          if (at < followed.size()) kept.push_back(holds(followed[at]) ? part : followed[at]);
          at++;
          continue;
        }
        const auto one = std::find_if(lines.begin() + static_cast<std::ptrdiff_t>(found), lines.end(), holds);
        if (one == lines.end()) continue;
        found = static_cast<size_t>(one - lines.begin()) + 1;
        kept.push_back(part);
      }
      if (!kept.empty()) shown->push_back({"log", joined(kept, " | ")});
    }
    for (; at < followed.size(); at++) shown->push_back({"log", followed[at]});
  }

  Lines read() const {
    std::ifstream file(path_);
    if (!file) throw UsageError("cannot be read");
    Lines lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  void write(const Lines& lines) const {
    std::ofstream file(path_);
    for (const auto& line : lines) file << line << "\n";
    file.close();
    if (!file) throw UsageError("cannot be written");
  }

  const std::string path_;
  const bool update_;
  std::optional<Session> session_;
  bool holds_ = true;
  size_t number_ = 0;                         // of the line under way
  std::string template_, template_expected_;  // of `for`
  bool template_expects_ = false;
  std::map<std::string, std::string> names_;
  Lines watched_, parts_;
};

}  // namespace

bool play_session(const std::string& path, bool update) {
  return Player(path, update).play();
}

void list_session(const std::string& path) {
  Player(path, false, false).list();
}

std::string session_line(const std::string& command, const Seen& seen) {
  Clauses clauses;
  const auto add = [&](const char* kind, const Lines& lines, const char* between) {
    if (!lines.empty()) clauses.push_back({kind, joined(lines, between)});
  };
  add("", seen.output, " | ");
  add("sent", seen.sent, ", ");
  add("changed", seen.changed, " ");
  add("event", seen.events, ", ");
  add("log", seen.log, " | ");
  return command + (clauses.empty() ? "" : std::string(kArrow) + " " + text_of(clauses));
}

}  // namespace lab
