// The S-record loader of the firmware update: what loads, in what order, and
// every faulty file refused with its trace line and nothing loaded.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/core.h"
#include "mechanism/firmware_update.h"
#include "srecord_text.h"

namespace {

class FirmwareLoad : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::clock_init(sim::ClockMode::Virtual);
    mark_ = sim::transcript_size();
    memset(gFwImage, 0xff, sizeof gFwImage);
  }
  // Loads text as a file's content; the bytes loaded.
  static int Load(const std::string& text) {
    std::string copy = text;
    FILE* fp = fmemopen(copy.data(), copy.size(), "r");
    if (copy.empty()) fp = fopen("/dev/null", "r");
    int n = LoadFWRecords(fp, gFwImage);
    fclose(fp);
    return n;
  }
  // The trace lines since the test began, one per line.
  std::string Trace() const {
    std::string out;
    for (size_t i = mark_; i < sim::transcript_size(); i++) out += std::string(sim::transcript_line(i)) + "\n";
    return out;
  }
  size_t mark_ = 0;
};

TEST_F(FirmwareLoad, DataOfS3RecordsInFileOrderWhateverTheCase) {
  std::string text =
      "S0030000FC\n"
      "some text that is not a record\n"
      "S308080000101122334A\n"       // 3 bytes, at a high address
      "S30808000000aabbcc00\n"       // lower case, a lower address: still after
      "S5030002FA\r\n"
      "S3060800000055FF\r\n"         // length 6: one data byte, CRLF line end
      "S3050800000000\n"             // length 5: no data
      "S70508000000F2";              // no line feed at the end
  EXPECT_EQ(Load(text), 7);
  const uint8_t want[] = {0x11, 0x22, 0x33, 0xaa, 0xbb, 0xcc, 0x55, 0xff};
  EXPECT_EQ(memcmp(gFwImage, want, sizeof want), 0);
  EXPECT_EQ(Trace(), "");
}

TEST_F(FirmwareLoad, FaultyRecordsFailWithTheirLine) {
  struct Case {
    const char* what;
    std::string text;
    const char* trace;
  } cases[] = {
      {"truncated mid-record", "S3080800000011\n", "Bad record at line 2"},
      {"odd digit count", "S0030000FC\nS30808000000112233445\n", "Bad record at line 3"},
      {"length longer than its digits", "S30A0800000011223344\n", "Bad record at line 2"},
      {"length shorter than its digits", "S306080000001122334455\n", "Bad record at line 2"},
      {"length below five", "S3040800000011\n", "Bad record at line 2"},
      {"no length at all", "S3\n", "Bad record at line 2"},
      {"a zero byte inside", std::string("S30808000000AA\0BCC00\n", 21), "Bad record at line 2"},
      {"binary after S3", "S3\x01\xff\xfe garbage \x7f\n", "Bad record at line 2"},
      {"10,000 characters", "S3" + std::string(9998, 'A') + "\nS3060800000055FF\n", "Line 2 too long"},
  };
  for (const Case& c : cases) {
    mark_ = sim::transcript_size();
    EXPECT_EQ(Load("S3060800000055FF\n" + c.text), 0) << c.what;
    std::string trace = Trace();
    EXPECT_NE(trace.find(c.trace), std::string::npos) << c.what << ": " << trace;
  }
}

TEST_F(FirmwareLoad, LinesUpToTheBufferFitAndLongerOtherLinesAreSkipped) {
  // Length 125: 120 data bytes, 254 characters and a line feed.
  std::vector<uint8_t> data = srec::Pattern(120);
  std::string longest = srec::Records(data, 120);
  EXPECT_EQ(Load(longest), 120);
  EXPECT_EQ(memcmp(gFwImage, data.data(), data.size()), 0);
  // A 10,000-character line that is not a record is skipped, rest and all.
  EXPECT_EQ(Load("S0" + std::string(9998, '3') + "\nS3060800000055FF\n"), 1);
  EXPECT_EQ(gFwImage[0], 0x55);
  // A 255-character S3 line has an odd digit count: refused as a record.
  EXPECT_EQ(Load("S3" + std::string(253, '7') + "\n"), 0);
  EXPECT_NE(Trace().find("Bad record at line 1"), std::string::npos);
}

TEST_F(FirmwareLoad, NothingToLoad) {
  EXPECT_EQ(Load(""), 0);
  EXPECT_EQ(Load(std::string("\x7f" "ELF\x02\x01\x01\0\0\0\n\xff\xfe\n", 14)), 0);
  EXPECT_EQ(Load("S00F000068656C6C6F202020202000003C\nS70508000000F2\n"), 0);
  EXPECT_EQ(Trace(), "");
  EXPECT_EQ(LoadFWFile("/no/such/firmware.s19", gFwImage), 0);
}

TEST_F(FirmwareLoad, LargestImageLoadsAndOneByteMoreIsTooBig) {
  std::vector<uint8_t> data = srec::Pattern(kFwImageMax - 1);
  EXPECT_EQ(Load(srec::Records(data)), kFwImageMax - 1);
  EXPECT_EQ(memcmp(gFwImage, data.data(), data.size()), 0);
  EXPECT_EQ(gFwImage[kFwImageMax - 1], 0xff);
  EXPECT_EQ(Trace(), "");
  for (size_t size : {size_t{kFwImageMax}, size_t{kFwImageMax} + 20000}) {
    mark_ = sim::transcript_size();
    EXPECT_EQ(Load(srec::Records(srec::Pattern(size))), 0) << size;
    EXPECT_EQ(Trace(), "out Load fail:File to big\n") << size;
  }
}

}  // namespace
