// The whole library on the simulated modem: an input is a session, one command a line, in the notation of
// docs/briolab.md. What cannot be run is left out. An input that begins with "# threads" has the library's
// threads and the modem's ports; below any other one the packet layer is replaced: a request is answered at
// once and on the caller's thread.
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "functions.h"
#include "fuzz.h"
#include "kit/calls.h"
#include "kit/clock.h"
#include "kit/process.h"
#include "kit_commands.h"
#include "session.h"

namespace fuzz {

using lab::Session;

constexpr size_t kCommandsMax = 64;

// ---- What the shared modem-data record, the SIM blocks and the events may look like, whatever a modem sent

// A text ends inside its field.
template <size_t N>
bool ends(const char (&text)[N]) {
  return memchr(text, '\0', N) != nullptr;
}

// Size of each event's data; the network time is announced with 4 bytes and has 16.
uint32_t check_event(uint32_t id, uint32_t size, const void* data) {
  static constexpr uint32_t kSizes[BRIO_EVENT_COUNT] = {4, 8, 4, 4, 0, 0, 2, 0, 0, 4};
  require(id < BRIO_EVENT_COUNT && size == kSizes[id] && (size != 0) == (data != nullptr));
  if (id == BRIO_EVENT_BARS_CHANGED) {
    const int32_t bars = g_brio_lib_atcmd_data.bars;
    require(memcmp(data, &bars, sizeof(bars)) == 0);
  } else if (id == BRIO_EVENT_PDP_ACTIVATION_ALLOWED) {
    require(memcmp(data, s_pdp_event, size) == 0);
  } else if (id == BRIO_EVENT_TIME_INFO) {
    require(memcmp(data, g_brio_lib_atcmd_data.time_info, sizeof(network_time)) == 0);
  }
  return 0;
}

void watch_events() {
  for (uint32_t id = 0; id < BRIO_EVENT_COUNT; id++) brio_set_callback_for_event_id(id, check_event);
}

// Also that no data mutex is held.
void check_record() {
  require(briolib_lock_urc_data_mutex() == 0);
  const brio_atcmd_data& d = g_brio_lib_atcmd_data;
#define FIELD(name, offset, opened, unregistered, holds) \
  {                                                      \
    [[maybe_unused]] const auto& v = d.name;             \
    require(holds, #name);                               \
  }
#include "record.def"
  require(s_pdp_event[0] == s_pdp_event[1] && s_pdp_event[0] <= 1);
  require(briolib_unlock_urc_data_mutex() == 0);
}

void check_sim_blocks() {
  static sim_plmn_data plmn;
  sim_info_data info;
  require(briolib_lock_static_data_mutex() == 0);
  require(briolib_get_sim_plmn_data(&plmn) == 0 && briolib_get_sim_info_data(&info) == 0);
  require(briolib_update_sim_plmn_data(&plmn) == 0 && briolib_update_sim_info_data(&info) == 0);
  require(briolib_unlock_static_data_mutex() == 0);
  require(ends(info.psloci) && ends(info.loci) && ends(info.epsloci) && ends(info.iccid));
  const auto check_list = [](const auto& list) {
    for (const plmn_entry& entry : list) require(entry.mcc[3] == '\0' && entry.mnc[3] == '\0');
  };
  const auto check_lists = [&](const auto&... lists) { (check_list(lists), ...); };
  check_lists(plmn.uplmn, plmn.oplmn, plmn.fplmn, plmn.hplmn, plmn.ehplmn);
  require(plmn.home_mcc[0] == '\0' && plmn.home_mnc[0] == '\0');  // derived in callers' copies only
}

// ---- The packet layer, replaced

modemsim::Modem* s_modem;  // null: the real one works
std::mutex s_request;      // the sensor's monitor sends as well
std::string s_answer;
std::vector<std::string> s_reports;
void (*s_lost)(void*);

void observe(const modemsim::Traffic& traffic) {
  if (traffic.to_modem) return;
  if (traffic.port == modemsim::Port::kQuery) s_answer += traffic.bytes;
  if (traffic.port == modemsim::Port::kUrc) s_reports.push_back(traffic.bytes);
}

// The lines of a piece, until `handle` says that it was the last.
template <typename F>
bool lines_of(Bytes bytes, F handle) {
  while (!bytes.empty()) {
    const Bytes line = bytes.substr(0, bytes.find_first_of("\r\n"));
    bytes.remove_prefix(std::min(line.size() + 1, bytes.size()));
    if (!line.empty() && handle(line.substr(0, BRIO_LINE_DATA_MAX))) return true;
  }
  return false;
}

void handle_reports() {
  std::vector<std::string> reports;
  s_modem->with_state([&](modemsim::State&) { reports.swap(s_reports); });
  for (const auto& report : reports)
    lines_of(report, [](Bytes line) { return at_parse(Text(line).get(), nullptr, nullptr), false; });
}

extern "C" {

uint32_t __wrap_blpkt_atcmd_request_with_callback_timeout(const char* command, uint32_t type,
                                                          const char* prefix, recv_func callback, void* data,
                                                          uint16_t value, int32_t seconds) {
  require(command != nullptr && strlen(command) < 512 && !strchr(command, '\n') && type <= NO_COMMAND);
  // A stored selection that waits without limit would never end its input.
  if (s_modem == nullptr) {
    return blpkt_atcmd_request_with_callback_timeout(command, type, prefix, callback, data, value,
                                                     seconds < 0 ? 1 : seconds);
  }
  const std::lock_guard<std::mutex> guard(s_request);
  s_answer.clear();
  s_modem->tell(command);
  const std::unique_ptr<ATResponse, void (*)(ATResponse*)> answer(at_response_new(), at_response_free);
  const bool ended = lines_of(
      s_answer, [&](Bytes line) { return process_line(Text(line).get(), answer.get(), type, prefix) == 0; });
  if (!ended) return BLPKT_STATUS_TIMEOUT;
  if (answer->status != 0) return BLPKT_STATUS_ERROR;
  return callback != nullptr ? callback(answer.get(), data, value) : uint32_t{BLPKT_STATUS_SUCCESS};
}
uint32_t __wrap_blpkt_atcmd_request_with_callback(const char* command, uint32_t type, const char* prefix,
                                                  recv_func callback, void* data, uint16_t value) {
  return __wrap_blpkt_atcmd_request_with_callback_timeout(command, type, prefix, callback, data, value, 20);
}
uint32_t __wrap_blpkt_init() {
  return s_modem != nullptr ? 0 : blpkt_init();
}
uint32_t __wrap_pktio_init(const char* port, pktio_packet_cb callback, void* data) {
  return s_modem != nullptr ? 0 : pktio_init(port, callback, data);
}
void __wrap_pktio_set_shutdown_callback(void (*callback)(void*), void* data) {
  s_lost = callback;
  pktio_set_shutdown_callback(callback, data);
}
}

// ---- An input

// Commands that can be repeated freely: none waits long, none leaves the root.
constexpr char kCommands[] =
    "(report|sim|sim_file|operators|answer|silent|fault|no_faults|urc|raw|unplug|plug|open|join|line|page|"
    "nipc"
    "|chunk|wait_command|rm|file|call)( .*)?|clock (advance|stopped|wall|broken)=[0-9]{1,9}"
    "|set( fresh| (lib_mask|module_mask)=[0-9A-Fa-fx]{1,10}| (mcc|mnc)=[0-9]{1,3}| bas_query_flag=[01])+"
    "|async (wabs_do_manual_nw_scan|brio_atcmd_scan_network) .*|(dir|link|fifo) /(var|mnt)/.*";

// Files that the session wrote, with what they hold.
using Files = std::map<std::filesystem::path, std::string>;

void run_command(Session& session, std::string line, Files& files) {
  std::string name = line.substr(0, line.find(' '));
  if (lab::calls().count(name) != 0) line = "call " + line;
  if (!matches(kCommands, line)) return;
  if (s_modem != nullptr) {
    if (name == "unplug" && s_lost != nullptr) s_lost(nullptr);
    if (name == "plug" || name == "unplug") return;
    if (name == "urc") line.replace(0, 3, "line");
    if (name == "async") line.replace(0, 5, "call");
  }
  // One thread calls the library; another one may only abort its scan.
  const bool aborts = line.find("abort") != std::string::npos;
  if (line.rfind("call ", 0) == 0 && !aborts && !session.running.empty()) session.command("join");
  std::filesystem::path file;
  if (name == "file") {
    Arguments words(line.substr(4));
    file = session.root.path(words.text());
    if (words.more()) words.text();
    words.finish();  // else the file would be written and the command refused
    if (exists(file) && !is_regular_file(file)) return;
  }
  session.command(line);
  if (!file.empty())
    files[canonical(file)] = *session.root.read(file.string().substr(session.root.dir().size()));
  if (s_modem != nullptr) handle_reports();
}

// Only files that the library writes differ from what the session wrote.
void check_files(const Session& session, const Files& files) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(session.root.dir())) {
    if (!entry.is_regular_file() || entry.is_symlink()) continue;
    const std::string path = entry.path().string().substr(session.root.dir().size());
    if (matches("/var/local/wan/(mcc|static_info)|/var/run/fatal_reject|.*[.]istp|/sys/.*", path)) continue;
    const auto written = files.find(canonical(entry.path()));
    require(written != files.end() && session.root.read(path) == written->second, path.c_str());
  }
}

// Whatever the previous input left, the module opens on a healthy modem and answers.
void open_healthy() {
  uint32_t bars = 0;
  require(wabs_open() == 0 && wabs_get_bars(&bars) == 0 && bars == 4 && wabs_close() == 0);
}

void play(Session& session, Bytes input) {
  // Keeps those commands that could be run: a session that a person can play.
  static FILE* const s_kept =
      getenv("FUZZ_SESSION") != nullptr ? fopen(getenv("FUZZ_SESSION"), "we") : nullptr;
  Files files;
  for (size_t count = 0; count < kCommandsMax && !input.empty(); count++) {
    const std::string line(take(input, '\n'));
    const long place = s_kept != nullptr ? ftell(s_kept) : 0;
    if (s_kept != nullptr) fprintf(s_kept, "%s\n", line.c_str()), fflush(s_kept);
    try {
      run_command(session, line, files);
    } catch (const std::exception&) {
      if (s_kept != nullptr) fseek(s_kept, place, SEEK_SET), ftruncate(fileno(s_kept), place);
    }
  }
  check_record();
  check_sim_blocks();
  process::g_patience = std::chrono::seconds(10);
  const std::string left = session.end();
  require(left == "none", left.c_str());
  check_files(session, files);
}

// Functions that are not checked are no part of an input.
void leave_checked() {
  const auto known = check_functions();
  auto& table = lab::calls();
  for (auto each = table.begin(); each != table.end();)
    each = known.count(each->first) != 0 ? std::next(each) : table.erase(each);
}

void run(Bytes input) {
  static bool s_prepared = false;
  const bool first = !std::exchange(s_prepared, true);
  if (first) lab::add_kit_commands();
  if (first) leave_checked();
  wabs_set_log_mask(0);
  briolib_log_set_log_mask(0);
  briolib_set_sim_info_md5_status(1);
  const bool threads = input.rfind("# threads", 0) == 0;
  Session session(threads);
  s_modem = threads ? nullptr : &session.modem;
  if (!threads) session.modem.observe(observe);
  if (first) session.root.write("/mnt/us/apn", "broadband\n");
  session.root.rest_sensor();
  open_healthy();
  // The library keeps the last one open. Not counted here: after a close the simulator opens a port briefly.
  if (first) session.root.remove("/mnt/us/apn"), session.descriptors++;
  watch_events();
  faults::fail("system", faults::kEnd, 0, LONG_MAX);  // no process for each input that removes a file
  const std::string held = faults::held();
  test_clock::set_wall(1772874300);
  test_clock::scale_waits(0.0005);
  test_clock::cap_waits(0.008);
  process::g_patience = std::chrono::milliseconds(100);
  play(session, input);
  require(faults::held() == held && faults::stray_closes() == 0, (faults::held() + " for " + held).c_str());
}

}  // namespace fuzz

// ---- Lines of an input changed as lines

extern "C" __attribute__((weak)) size_t LLVMFuzzerMutate(uint8_t*, size_t size, size_t) {
  return size;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::string> lines;
  fuzz::Bytes left(reinterpret_cast<const char*>(data), size);
  do lines.emplace_back(fuzz::take(left, '\n'));
  while (!left.empty());
  const auto place = lines.begin() + random() % lines.size(), other = lines.begin() + random() % lines.size();
  const unsigned how = random() % 8;
  if (how == 0) {
    auto function = lab::calls().begin();
    std::advance(function, random() % lab::calls().size());
    lines.insert(place, function->first + place->substr(std::min(place->find(' '), place->size())));
  } else if (how == 1) {
    lines.erase(place);
  } else if (how == 2) {
    lines.insert(place, std::string(*other));
  } else if (how == 3) {
    std::swap(*place, *other);
  } else {
    place->resize(place->size() + 64);
    place->resize(
        LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(&(*place)[0]), place->size() - 64, place->size()));
  }
  std::string text;
  for (const auto& line : lines) text += line + '\n';
  text.resize(std::min(text.size(), most));
  return static_cast<size_t>(std::copy(text.begin(), text.end(), data) - data);
}
