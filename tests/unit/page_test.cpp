// Names and texts of the diagnostic page. The page itself: tests/sessions/page.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "brio/wabs.h"
#include "page/log_611_names.h"
#include "page/log_611_sections.h"
#include "sar_names.h"

namespace {

using namespace brio::names;
using brio::TextWriter;

// Other programs read the names: none may change unnoticed.
TEST(Page, NamesStay) {
  const Table tables[] = {kSimStatus,    kWanType,        kRegistrationStatus, kSelectionMode,
                          kRat,          brio::kSarNames, kEmmState,           kEmmSubstate,
                          kMmState,      kMmSubstate,     kGmmState,           kGmmSubstate,
                          kPdpState,     kEmmRejectCause, kEsmRejectCause,     kMmRejectCause,
                          kSmRejectCause};
  const uint32_t checks[] = {4048968285, 1994741544, 741463708,  544663537,  912120237,  2951589576,
                             4084612288, 3590981906, 2883234619, 3563696442, 1503104826, 674878054,
                             3790464219, 2186927211, 1127758594, 2361020125, 1944252095};
  for (size_t i = 0; i < std::size(checks); i++) {
    std::string text;
    uint32_t sum = 2166136261u;  // FNV-1a
    for (uint32_t value = 0; value < 256; value++) {
      const std::string each = name_of(tables[i], value);
      if (each != "N/A") text += std::to_string(value) + " " + each + "\n";
    }
    for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 16777619u;
    EXPECT_EQ(checks[i], sum) << "these names have changed:\n" << text;
  }
}

// Line by line, whatever the file holds; without room nothing is read.
TEST(Page, CopiesStaticInfo) {
  const std::string text =
      std::string(148, 'a') + "\n" + std::string(149, 'b') + "\n%s%n%d\n" + std::string(999, 'c');
  for (const bool room : {true, false}) {
    const int memory = memfd_create("static_info", 0);
    EXPECT_EQ(pwrite(memory, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    brio::InputFile file(memory);
    char buffer[4096] = "";
    TextWriter page(buffer, room ? sizeof buffer : 0);
    brio::page::write_static_info(page, &file);
    EXPECT_EQ(room ? text : "", buffer);
    EXPECT_TRUE(room || lseek(memory, 0, SEEK_CUR) == 0);
  }
}

}  // namespace
