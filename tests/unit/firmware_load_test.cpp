// The S-record loader of the firmware update: what loads, in what order, and
// every faulty file refused with its trace line (the largest image and one
// byte more: FirmwareUpdate.EveryFailurePoint...).
#include <algorithm>

#include "mechanism/firmware_update.h"
#include "sim_test.h"
#include "srecord_text.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Loads text as a file's content; the bytes loaded.
int Load(const std::string& text) {
  std::string copy = text;
  FILE* fp = copy.empty() ? fopen("/dev/null", "r") : fmemopen(copy.data(), copy.size(), "r");
  int n = LoadFWRecords(fp, gFwImage);
  fclose(fp);
  return n;
}

TEST(FirmwareLoad, WhatLoadsAndWhatIsRefused) {
  const std::string good = "S3060800000055FF\n";  // one byte, 0x55
  Bytes longest = srec::Pattern(120);
  struct {
    const char* what;
    std::string text;
    int loaded;
    std::string trace;  // contained in the trace; ending in a line feed, the whole trace
    Bytes image;        // the image's start, 0xFF after it
  } cases[] = {
      {"S3 data in file order whatever the case",
       "S0030000FC\nsome text that is not a record\n"
       "S308080000101122334A\n"   // 3 bytes, at a high address
       "S30808000000aabbcc00\n"   // lower case, a lower address: still after
       "S5030002FA\r\nS3060800000055FF\r\n"  // CRLF line end
       "S3050800000000\n"         // length 5: no data
       "S70508000000F2",          // no line feed at the end
       7, "", {0x11, 0x22, 0x33, 0xaa, 0xbb, 0xcc, 0x55}},
      {"truncated mid-record", good + "S3080800000011\n", 0, "Bad record at line 2", {}},
      {"odd digit count", good + "S0030000FC\nS30808000000112233445\n", 0, "Bad record at line 3", {}},
      {"length longer than its digits", good + "S30A0800000011223344\n", 0, "Bad record at line 2", {}},
      {"length shorter than its digits", good + "S306080000001122334455\n", 0, "Bad record at line 2", {}},
      {"length below five", good + "S3040800000011\n", 0, "Bad record at line 2", {}},
      {"no length at all", good + "S3\n", 0, "Bad record at line 2", {}},
      {"a zero byte inside", good + std::string("S30808000000AA\0BCC00\n", 21), 0, "Bad record at line 2", {}},
      {"binary after S3", good + "S3\x01\xff\xfe garbage \x7f\n", 0, "Bad record at line 2", {}},
      {"10,000 characters", good + "S3" + std::string(9998, 'A') + "\n" + good, 0, "Line 2 too long", {}},
      {"the longest line: 254 characters", srec::Records(longest, 120), 120, "", longest},
      {"a long line not a record is skipped", "S0" + std::string(9998, '3') + "\n" + good, 1, "", {0x55}},
      {"255 characters: an odd digit count", "S3" + std::string(253, '7') + "\n", 0, "Bad record at line 1", {}},
      {"empty", "", 0, "", {}},
      {"binary", std::string("\x7f" "ELF\x02\x01\x01\0\0\0\n\xff\xfe\n", 14), 0, "", {}},
      {"no data records", "S00F000068656C6C6F202020202000003C\nS70508000000F2\n", 0, "", {}},
      {"far more", srec::Records(srec::Pattern(kFwImageMax + 20000)), 0, "out Load fail:File to big\n", {}},
  };
  sim::clock_init(sim::ClockMode::Virtual);
  for (auto& c : cases) {
    memset(gFwImage, 0xff, sizeof gFwImage);
    size_t mark = sim::transcript_size();
    EXPECT_EQ(Load(c.text), c.loaded) << c.what;
    std::string trace;
    for (const std::string& line : simtest::LinesSince(mark)) trace += line + "\n";
    if (c.trace.empty() || c.trace.back() == '\n')
      EXPECT_EQ(trace, c.trace) << c.what;
    else
      EXPECT_NE(trace.find(c.trace), std::string::npos) << c.what << ": " << trace;
    if (c.loaded == 0 && !c.trace.empty()) continue;  // refused: the image does not count
    EXPECT_TRUE(std::equal(c.image.begin(), c.image.end(), gFwImage)) << c.what;
    EXPECT_EQ(gFwImage[c.image.size()], 0xff) << c.what;
  }
  EXPECT_EQ(LoadFWFile("/no/such/firmware.s19", gFwImage), 0);
}

}  // namespace
