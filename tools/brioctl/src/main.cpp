// brioctl: the command-line host of the modem module.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>
#include <utility>

#include "command_line.h"
#include "commands.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "recorder.h"
#include "watch_model.h"

using namespace brioctl;

namespace {

std::string trace_prefix(const std::string& prefix) {
  const std::filesystem::path folder = std::filesystem::path(prefix).parent_path();
  return !prefix.empty() && prefix[0] == '/' && prefix.find("..") == std::string::npos && folder != "/" &&
                 *++folder.begin() != "dev"
             ? ""
             : "it must begin a path of the device in a folder of its own, for example /mnt/us/trace_log";
}

// "" or that two ports are one.
std::string ports_clash(const Options& options) {
  const PortPaths ports = device_ports(options, options.root);
  std::error_code absent;
  const bool one = ports.query == ports.urc || std::filesystem::equivalent(ports.query, ports.urc, absent);
  return one ? ports.query + " cannot be the query and the URC port" : "";
}

// The options and what the verbs take.
struct Program {
  CLI::App app{
      "Drives a modem through libbrio_module.so.1 as the WAN manager does.\n"
      "Without --sim or --root the device's own ports are used; --sim starts a simulated modem.",
      "brioctl"};
  Options options;
  CLI::Option* json = nullptr;
  std::function<int()> run;   // of the verb that was given
  bool until_signal = false;  // a signal is its regular end

  double demo_seconds = 4, watch_seconds = -1, trace_seconds = -1, record_seconds = -1;
  double every = 1;
  WatchFormat format = WatchFormat::kScreen;
  AtOptions at;
  bool full = false, follow = false, tap = false, in_place = false;
  std::string select, filter = kTraceFilter, prefix = "/mnt/us/trace_log", choice;
  std::string folder, recording, beside, report_file;
};

CLI::App* add_verb(Program& program, const char* name, const std::string& what, const char* examples,
                   const std::function<int()>& run) {
  CLI::App* verb = program.app.add_subcommand(name, what);
  verb->footer(std::string("Examples:\n") + examples);
  verb->callback([&program, run] { program.run = run; });
  return verb;
}

void add_options(Program& program) {
  CLI::App& app = program.app;
  Options& options = program.options;
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Examples:\n"
      "  brioctl demo                       the whole tour on a simulated modem\n"
      "  brioctl --sim status               one table of what the host reads\n"
      "  brioctl --root ~/desk at ATI       a modem whose ttys are linked below ~/desk/dev\n"
      "  brioctl -v status                  the same on the device, with what passes the ports\n\n"
      "Exit status:\n"
      "  0      done; every value was read; doctor: nothing is wrong\n"
      "  1      the modem, the library or the system refused; a value could not be read; the output could "
      "not be\n"
      "         written; doctor: something is wrong\n"
      "  2      wrong arguments\n"
      "  128+N  signal N ended it (130: Ctrl-C), where that is not the verb's regular end");

  app.add_option("--library", options.library,
                 "Library to load instead of the one that belongs to this program")
      ->type_name("FILE");
  auto* root = app.add_option("--root", options.root, "Directory prepended to every device path")
                   ->type_name("DIR")
                   ->check(command_line::not_empty);
  auto* sim = app.add_flag("--sim", options.simulate, "Use a simulated modem")->excludes(root);
  auto* scenario =
      app.add_option("--scenario", options.scenario,
                     "Scenario of the simulated modem, a file or an installed name; implies --sim")
          ->type_name("SCENARIO")
          ->check(command_line::not_empty)
          ->excludes(root);
  app.add_option("--speed", options.speed, "Play the scenario this many times as fast")
      ->check(command_line::above_zero);
  app.add_flag("-v,--verbose", options.verbose,
               "Show commands, answers and reports, warnings and errors on standard error; twice: the "
               "library's whole log");
  app.add_flag("--identities", options.identities,
               "Show IMSI, ICCID and IMEI whole, in logs and recordings, too");
  app.add_option("--at-log", options.at_log, "Write each line of the query and URC port into this file")
      ->type_name("FILE")
      ->check(command_line::not_empty);
  app.add_flag(
      "--force", options.force,
      "Go on when another program drives the modem; replace files (--at-log, record, import, report)");
  const std::tuple<const char*, std::string*, const char*> port_options[] = {
      {"--query-port", &options.ports.query, "Use this tty instead of /dev/ttyACM2"},
      {"--urc-port", &options.ports.urc, "Use this tty instead of /dev/ttyACM3"},
      {"--trace-port", &options.ports.trace, "Use this tty instead of /dev/ttyACM1"}};
  for (const auto& [name, place, what] : port_options) {
    app.add_option(name, *place, what)->type_name("TTY")->excludes(sim)->excludes(scenario);
  }
  program.json = app.add_flag("--json", options.json, "Print objects for scripts, one a line");
}

void add_demo(Program& program) {
  CLI::App* demo =
      add_verb(program, "demo", "Open a simulated modem, show what it says and reports, scan, close",
               "  brioctl demo --seconds 10          follow reports for ten seconds\n"
               "  brioctl --root ~/desk demo         on another modem",
               [&program] {
                 Options& options = program.options;
                 if (options.root.empty()) options.simulate = true;
                 if (options.scenario.empty()) options.scenario = "demo";
                 // A minute of the scenario in the few seconds of the tour.
                 if (program.app.count("--speed") == 0) options.speed = 10;
                 program.until_signal = true;
                 return run_demo(options, program.demo_seconds);
               });
  demo->add_option("--seconds", program.demo_seconds, "How long to follow reports")
      ->check(command_line::above_zero)
      ->capture_default_str();
}

void add_watch(Program& program) {
  CLI::App* watch = add_verb(
      program, "watch", "Follow network, signal and reports until Ctrl-C: a screen at a terminal, else lines",
      "  brioctl watch                      a screen, until Ctrl-C\n"
      "  brioctl watch --every 10 --csv >signal.csv",
      [&program] {
        Options& options = program.options;
        options.until_signal = program.until_signal = true;
        options.progress = false;  // it may have the screen
        if (options.json) program.format = WatchFormat::kJson;
        return run_watch(options, program.every, program.watch_seconds, program.format);
      });
  watch
      ->add_option("--every", program.every,
                   "Seconds between questions for the signal; at 1 that takes " + watch::cost(1) +
                       ", at 10 " + watch::cost(10) + ", and some more when the network changes")
      ->check(command_line::between(0.1, 3600))
      ->capture_default_str();
  auto* lines = watch->add_flag_callback(
      "--lines", [&program] { program.format = WatchFormat::kLines; },
      "Lines with their time, at a terminal too");
  watch
      ->add_flag_callback(
          "--csv", [&program] { program.format = WatchFormat::kCsv; }, "CSV with a heading (RFC 4180)")
      ->excludes(lines->excludes(program.json))
      ->excludes(program.json);
  watch->add_option("--seconds", program.watch_seconds, "End after this time")
      ->check(command_line::above_zero);
}

void add_at(Program& program) {
  CLI::App* at =
      add_verb(program, "at", "Send AT commands and nothing else: COMMAND, those from a pipe, or a shell",
               "  brioctl at ATI                     one command\n"
               "  brioctl at                         a shell\n"
               "  printf 'AT+CSQ\\nAT+COPS?\\n' | brioctl at\n"
               "  brioctl --query-port /dev/ttyUSB2 at AT+CSQ",
               [&program] { return run_at(program.options, program.at); });
  auto* at_command = at->add_option("command", program.at.command, "For example \"AT+COPS?\"")
                         ->check(command_line::not_empty);
  at->add_option("--timeout", program.at.timeout, "Seconds to wait for each answer")
      ->check(CLI::Range(1, 600))
      ->capture_default_str();
  at->add_flag("--open", program.at.open, "Open the modem through the library first, and ask through it")
      ->needs(at_command);
}

void add_scan(Program& program) {
  CLI::App* scan = add_verb(program, "scan",
                            "Scan for networks (up to 300 s; Ctrl-C aborts), then select automatically again",
                            "  brioctl scan                       list the networks\n"
                            "  brioctl scan --select 310260       and use this one, until \"brioctl auto\"",
                            [&program] { return run_scan(program.options, program.select); });
  scan->add_option("--select", program.select, "Select this one of them instead, until \"brioctl auto\"")
      ->type_name("NUMBER|PLMN")
      ->check(command_line::number_or_plmn);
}

void add_page(Program& program) {
  CLI::App* page = add_verb(program, "page", "Print the 611 diagnostic page",
                            "  brioctl page --full                with identities\n"
                            "  brioctl page --follow              again and again",
                            [&program] {
                              program.until_signal = program.follow;
                              return run_page(program.options, program.full, program.follow);
                            });
  page->add_flag("--full", program.full, "The full view, with identities, instead of the masked one");
  page->add_flag("--follow", program.follow, "Refresh every three seconds until Ctrl-C");
}

void add_trace(Program& program) {
  CLI::App* trace =
      add_verb(program, "trace", "Capture the modem's trace into a file",
               "  brioctl trace --seconds 60         one minute, below /mnt/us", [&program] {
                 program.until_signal = true;
                 return run_trace(program.options, program.filter, program.prefix, program.trace_seconds);
               });
  trace->add_option("--filter", program.filter, "Filter file, a device path")->capture_default_str();
  trace->add_option("--prefix", program.prefix, "Start of the trace file's path, a device path")
      ->check(trace_prefix)
      ->capture_default_str();
  trace->add_option("--seconds", program.trace_seconds, "End after this time instead of at Ctrl-C")
      ->check(command_line::above_zero);
}

void add_ant(Program& program) {
  CLI::App* ant = add_verb(program, "ant", "Show the LTE antennas, or choose one",
                           "  brioctl ant                        which antenna is in use\n"
                           "  brioctl ant auto                   let the modem choose",
                           [&program] { return run_ant(program.options, program.choice); });
  ant->add_option("choice", program.choice, "1, 2 or auto")->check(CLI::IsMember({"1", "2", "auto"}));
}

void add_record(Program& program) {
  CLI::App* record = add_verb(
      program, "record", "Open the modem and keep what is said on its ports in a folder, until Ctrl-C",
      "  brioctl record case                this host, until Ctrl-C\n"
      "  brioctl record --tap case          another host",
      [&program] {
        program.until_signal = true;
        return program.tap
                   ? run_tap(program.options, program.folder, program.record_seconds, program.in_place)
                   : run_record(program.options, program.folder, program.record_seconds);
      });
  record->add_option("folder", program.folder, "Where: at.log and library.log")
      ->required()
      ->check(command_line::not_empty);
  record->add_option("--seconds", program.record_seconds, "End after this time")
      ->check(command_line::above_zero);
  auto* tapping = record->add_flag("--tap", program.tap,
                                   "Record another host: pass what it and the modem say to each other");
  record
      ->add_flag("--in-place", program.in_place,
                 "The tap takes the place of the modem's ports, for a host that knows no others")
      ->needs(tapping);
}

void add_import(Program& program) {
  CLI::App* import = add_verb(program, "import", "Make a scenario and a briolab session of a recording",
                              "  brioctl import case                case.toml and case.txt", [&program] {
                                return run_import(program.recording, program.beside, program.options.force);
                              });
  import->add_option("recording", program.recording, "An AT log, or the folder of a recording")->required();
  import
      ->add_option("--to", program.beside, "Write PREFIX.toml and PREFIX.txt (default: beside the recording)")
      ->type_name("PREFIX");
}

void add_report(Program& program) {
  CLI::App* report =
      add_verb(program, "report", "Pack checks, page, status and logs into one file, identities masked",
               "  brioctl report case.tar.gz",
               [&program] { return run_report(program.options, program.report_file); });
  report->add_option("file", program.report_file, "Where, for example case.tar.gz")
      ->required()
      ->check(command_line::not_empty);
}

}  // namespace

int main(int argc, char** argv) {
  Program program;
  add_options(program);
  add_demo(program);
  add_verb(program, "status", "One table of everything that the host reads",
           "  brioctl status                     the device's modem\n"
           "  brioctl --sim --json status        a simulated one, for a script",
           [&program] { return run_status(program.options); });
  add_watch(program);
  add_at(program);
  add_verb(program, "ports", "List serial ports that may be a modem's, and who has them", "  brioctl ports",
           [&program] { return run_ports(program.options); });
  add_verb(program, "auto", "Let the modem select a network by itself again",
           "  brioctl auto                       after a scan that died, or a network chosen by hand",
           [&program] { return run_auto(program.options); });
  add_scan(program);
  add_page(program);
  add_trace(program);
  add_ant(program);
  add_record(program);
  add_import(program);
  add_verb(program, "doctor",
           "Examine ports, modem, SIM, network, clock, sensor, IPC and files: what is wrong, how to fix it",
           "  brioctl doctor --json              for a script",
           [&program] { return run_doctor(program.options); });
  add_report(program);

  int ended = 0;
  if (!command_line::parse(program.app, argc, argv, &ended)) return ended;
  Options& options = program.options;
  if (!options.scenario.empty()) options.simulate = true;
  if (const std::string clash = options.simulate ? "" : ports_clash(options); !clash.empty()) {
    fprintf(stderr, "%s\n", printable(clash).c_str());
    return command_line::kUsage;
  }
  install_signals();
  log_sink::echo(options.verbose);
  if (options.identities) log_sink::show_identities();
  output::begin(program.app.get_subcommands().front()->get_name(), options.json);

  int result = 1;
  std::string error;
  try {
    if (!options.at_log.empty()) Recorder::check_place(options.at_log, options.force);
    result = program.run();
  } catch (const std::exception& problem) {  // a Failure, or what the file system refused
    error = problem.what();
    fflush(stdout);
    fprintf(stderr, "brioctl: %s\n", printable(error, '\n').c_str());
  }
  // Where a signal is the regular end it is no failure.
  if (interrupted() > 0 && (result != 0 || !program.until_signal)) result = interrupted_status();
  return output::end(result, error);
}
