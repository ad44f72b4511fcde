// brioctl at: one command, commands from a pipe, or a shell at a terminal.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "at_client.h"
#include "at_words.h"
#include "commands.h"
#include "errors.h"
#include "line_editor.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "progress.h"
#include "recorder.h"
#include "watch_model.h"

namespace brioctl {
namespace {

using Json = nlohmann::ordered_json;

void print_json(const Json& object) {
  output::result() = object;
  output::line();
}

Json stamped(const char* type) {
  return {{"time", at_log::time_stamp(wall_clock_ms())}, {"type", type}};
}

void print_json(const AtAnswer& answer) {
  const auto or_null = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
  Json object = stamped("answer");
  object["command"] = answer.command;
  object["lines"] = answer.lines;
  object["result"] = or_null(answer.result);
  object["meaning"] = or_null(meaning_of(answer.result));
  object["ok"] = answer.ok();
  object["seconds"] = std::round(answer.seconds * 1e6) / 1e6;
  print_json(object);
}

void tell_refused(const AtAnswer& answer) {
  output::error("The modem refused " + answer.command + ": " + with_meaning(answer.result));
}

std::string no_answer(int timeout) {
  return "The modem did not answer within " + std::to_string(timeout) +
         " s. Give it more time with --timeout, or see with -v what it sent.";
}

// --- Without the library

class Talk {
 public:
  Talk(Session& session, const AtOptions& options);
  int run();

 private:
  enum class Mode { kOne, kPipe, kShell };

  void begin_line();
  void send(const std::string& command);
  void take_line();
  void wait();
  void look_at_time();
  void on_interrupt();
  void tell_answer();
  void tell_report(bool urc, const std::string& line);
  void tell_late(const std::string& sentence);
  bool at_work() const { return client_.state() != AtClient::State::kIdle; }

  const AtOptions& options_;
  const bool show_progress_;
  LineEditor input_;
  Mode mode_;
  AtHistory history_;
  AtClient client_;
  bool told_ = true;  // the last answer
  bool all_ok_ = true;
  bool ended_ = false;  // no more input
  bool text_given_ = false;
  std::optional<Progress> progress_;  // until something is printed
};

Talk::Talk(Session& session, const AtOptions& options)
    : options_(options),
      show_progress_(session.options().progress && session.options().verbose == 0),
      mode_(!options.command.empty() ? Mode::kOne
            : input_.terminal()      ? Mode::kShell
                                     : Mode::kPipe),
      client_(session.relayed().query, session.relayed().urc) {
  client_.on_line = [this](const std::string& line) {
    progress_.reset();
    if (output::json()) return;
    printf("%s\n", printable(line).c_str());
    output::flush();
  };
  client_.on_report = [this](bool urc, const std::string& line) { tell_report(urc, line); };
  client_.on_late = [this](const std::string& sentence) { tell_late(sentence); };
  if (mode_ != Mode::kShell) return;
  input_.complete(known_at_commands());
  for (const std::string& line : history_.lines()) input_.remember(line);
  fprintf(stderr,
          "AT commands go to %s as they are typed. Tab completes, Ctrl-C stops waiting, Ctrl-D ends.\n",
          session.modem_name().c_str());
}

int Talk::run() {
  if (!client_.take_waiting()) throw Failure("The modem went away.");
  if (mode_ == Mode::kOne) send(options_.command);
  for (;;) {
    if (!at_work() && !told_) tell_answer();
    if (!at_work() && (ended_ || mode_ == Mode::kOne)) return all_ok_ || mode_ == Mode::kShell ? 0 : 1;
    if (client_.state() != AtClient::State::kWaiting && !input_.begun()) begin_line();
    if (input_.begun() && input_.ready()) {
      take_line();
    } else {
      wait();
    }
  }
}

void Talk::begin_line() {
  input_.begin(at_work() ? "> " : mode_ == Mode::kShell ? "at> " : "");
}

void Talk::send(const std::string& command) {
  text_given_ = told_ = false;
  client_.send(command);
  progress_.emplace("Waiting for the answer to " + printable(command), show_progress_);
}

// Of the text that the modem asks for, or a command.
void Talk::take_line() {
  constexpr char kSend = '\x1a', kDrop = '\x1b';  // Ctrl-Z and Escape end a text
  std::string line;
  const LineEditor::Got got = input_.feed(&line);
  if (got == LineEditor::Got::kNothing) return;
  const bool end = got == LineEditor::Got::kEnd;
  if (at_work()) {
    const std::size_t mark = line.find(kSend);
    if (end && !text_given_) all_ok_ = false;
    client_.send_text(end                         ? std::string(1, text_given_ ? kSend : kDrop)
                      : mark != std::string::npos ? line.substr(0, mark + 1)
                                                  : line + "\r");
    text_given_ = true;
    return;
  }
  if (end || (mode_ == Mode::kShell && (line == "quit" || line == "exit"))) {
    ended_ = true;
    if (end && mode_ == Mode::kShell) printf("\n");
  } else if (!line.empty()) {
    if (mode_ == Mode::kShell && history_.keep(line)) input_.remember(line);
    send(line);
  }
}

void Talk::wait() {
  const bool timed = client_.state() == AtClient::State::kWaiting;
  const double left = timed ? options_.timeout - client_.waited() : 3600;
  pollfd items[] = {{interrupt_event(), POLLIN, 0},
                    {client_.query_fd(), POLLIN, 0},
                    {client_.urc_fd(), POLLIN, 0},
                    {input_.begun() ? STDIN_FILENO : -1, POLLIN, 0}};
  const int ready = poll(items, std::size(items), left < 0 ? 0 : static_cast<int>(left * 1000) + 1);
  if (interrupted() > 0) {
    on_interrupt();
    return;
  }
  if (ready <= 0) {
    look_at_time();
    return;
  }
  for (const bool urc : {false, true}) {
    if (items[urc ? 2 : 1].revents == 0 || client_.take(urc)) continue;
    input_.stop();
    progress_.reset();
    throw Failure("The modem went away.");
  }
  if (items[3].revents != 0) take_line();
}

void Talk::look_at_time() {
  if (client_.state() != AtClient::State::kWaiting || client_.waited() < options_.timeout) return;
  client_.give_up(true);
  progress_.reset();
  if (mode_ == Mode::kShell) return;
  if (output::json()) print_json(client_.answer());
  throw Failure(no_answer(options_.timeout) +
                (mode_ == Mode::kPipe
                     ? "\nCommands after " + printable(client_.answer().command) + " were not sent."
                     : ""));
}

void Talk::on_interrupt() {
  progress_.reset();
  constexpr char kDrop = '\x1b';
  if (mode_ != Mode::kShell || interrupted_status() != 128 + SIGINT) {
    input_.stop();
    throw Failure("interrupted.");
  }
  forget_interrupt();
  printf("%s\n", input_.begun() ? "^C" : "");  // while nothing is edited the terminal shows it
  input_.stop();
  output::flush();
  if (client_.state() == AtClient::State::kPrompted) {
    client_.send_text(std::string(1, kDrop));
  } else if (at_work()) {
    client_.give_up(false);
  }
}

void Talk::tell_answer() {
  const AtAnswer& answer = client_.answer();
  told_ = true;
  progress_.reset();
  all_ok_ = all_ok_ && answer.ok();
  if (!answer.ok() && !answer.result.empty()) tell_refused(answer);
  if (output::json()) {
    print_json(answer);
    return;
  }
  const std::string result = printable(answer.result);
  if (mode_ == Mode::kShell) {
    printf("%s\n", answer.result.empty() ? "No answer; one that comes late is shown like a report."
                                         : with_meaning(result).c_str());
  } else {
    printf("%s\n", result.c_str());
    const std::string meaning = meaning_of(answer.result);
    if (!meaning.empty()) fprintf(stderr, "brioctl: %s.\n", meaning.c_str());
  }
  output::flush();
}

void Talk::tell_report(bool urc, const std::string& line) {
  if (mode_ == Mode::kOne && urc) return;
  progress_.reset();
  const char* port = urc ? "urc" : "query";
  if (output::json()) {
    Json object = stamped("report");
    object["port"] = port;
    object["text"] = line;
    print_json(object);
    return;
  }
  const std::string text = watch::clock_time(wall_clock_ms()) + " " + port + "  " + printable(line);
  if (mode_ == Mode::kShell) {
    input_.print_above(text);
  } else {
    fprintf(stderr, "%s\n", text.c_str());
  }
}

void Talk::tell_late(const std::string& sentence) {
  if (mode_ == Mode::kShell) {
    input_.print_above(printable(sentence));
  } else {
    fprintf(stderr, "brioctl: %s\n", printable(sentence).c_str());
  }
}

// --- With the library

// Runs on the library's read thread while the request waits.
uint32_t recv_func_collect(const ATResponse* response, void* user_data, uint16_t) {
  auto* answer = static_cast<AtAnswer*>(user_data);
  for (const ATLine* line = response->intermediates; line != nullptr; line = line->next) {
    if (line->line != nullptr) answer->lines.emplace_back(line->line);
  }
  answer->result = response->final_response != nullptr ? response->final_response : "OK";
  return 0;
}

int run_opened(Session& session, const AtOptions& options) {
  session.open_modem();
  log_sink::clear_errors();
  AtAnswer answer;
  answer.command = options.command;
  const auto begun = AtClient::Clock::now();
  const uint32_t status = session.lib.blpkt_atcmd_request_with_callback_timeout(
      options.command.c_str(), MULTILINE_NO_PREFIX, nullptr, recv_func_collect, &answer, 0, options.timeout);
  answer.seconds = std::chrono::duration<double>(AtClient::Clock::now() - begun).count();
  if (answer.result.empty()) answer.result = log_sink::last_failed().refusal;
  session.close();
  if (output::json()) {
    print_json(answer);
  } else {
    for (const std::string& line : answer.lines) printf("%s\n", printable(line).c_str());
    if (!answer.result.empty()) printf("%s\n", printable(answer.result).c_str());
    const std::string meaning = meaning_of(answer.result);
    if (!meaning.empty()) fprintf(stderr, "brioctl: %s.\n", meaning.c_str());
  }
  if (status == BLPKT_STATUS_SUCCESS) return 0;
  if (session.modem_gone()) throw Failure(session.explain(""));
  if (!answer.result.empty()) tell_refused(answer);
  if (status == BLPKT_STATUS_TIMEOUT) throw Failure(no_answer(options.timeout));
  if (!answer.result.empty()) return 1;
  throw Failure(session.explain("The command could not be sent"));
}

}  // namespace

int run_at(const Options& options, const AtOptions& at) {
  Session session(options);
  if (at.open) return run_opened(session, at);
  // Who names the query port alone has no URC port to name.
  session.open_ports(options.ports.query.empty() || !options.ports.urc.empty());
  const int status = Talk(session, at).run();
  session.close();
  return status;
}

}  // namespace brioctl
