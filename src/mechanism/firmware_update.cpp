// Controller firmware update: S-record loading, the frame transfer with its
// log, the commit and the version read.
#include "mechanism/firmware_update.h"

#include <cstring>

#include "platform/gimbal.h"
#include "platform/os.h"

uint8_t gFwImage[kFwImageBuffer];

namespace {

constexpr const char* kLogPath = "/tmp/mcuupate.log";
constexpr int kLineBuffer = 256;
constexpr int kFrameTail = 2 + kFwFrameData + 1;  // number, data, checksum: behind the command
constexpr int kFrameAttempts = 6;                 // attempts of one frame whose status fails

// Update protocol commands.
constexpr int kCmdPrepare = 0x22;
constexpr int kCmdAnnounce = 0x91;
constexpr int kCmdEndOfData = 0x92;
constexpr int kCmdFrame = 0x93;
constexpr int kCmdUpdateMode = 0x9a;
constexpr int kCmdFrameStatus = 0x9b;
constexpr int kCmdImageState = 0x9c;
constexpr int kCmdCommit = 0x9d;
constexpr int kCmdVersion = 0x30;

// Value of one digit: 0-9, then letters count on from 10; anything else 0.
int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  return 0;
}

// The byte written by two digits, high digit first.
uint8_t HexByte(const char* text) {
  return static_cast<uint8_t>(HexDigit(text[0]) << 4 | HexDigit(text[1]));
}

// Length of a line without its end of line and trailing blanks.
size_t RecordLength(const char* line) {
  size_t len = strlen(line);
  while (len > 0 && strchr("\r\n \t", line[len - 1]) != nullptr) len--;
  return len;
}

// Data bytes of an S3 record whose length field matches its digits; -1 for a
// record that is truncated, has an odd digit count or a length that lies.
int S3DataCount(const char* line) {
  size_t len = RecordLength(line);
  if (len < 4) return -1;
  int length = HexByte(line + 2);
  if (length < 5 || len != 4 + 2 * static_cast<size_t>(length)) return -1;
  return length - 5;
}

// Reads one line into a zeroed buffer. False at the end of the file; *whole
// is false when the line did not fit (its rest has then been read past).
bool ReadLine(FILE* fp, char (&line)[kLineBuffer], bool* whole) {
  memset(line, 0, sizeof line);
  if (fgets(line, sizeof line, fp) == nullptr) return false;
  *whole = true;
  if (memchr(line, '\n', sizeof line) != nullptr) return true;
  int c = fgetc(fp);
  *whole = c == EOF || c == '\n';  // 255 characters still fit
  while (c != EOF && c != '\n') c = fgetc(fp);
  return true;
}

// Writes one text to the log, when there is one.
void LogText(FILE* log, const char* text) {
  if (log != nullptr) fputs(text, log);
}

// Logs a frame as it goes out: "0x93->" and every byte behind the command.
void LogFrame(FILE* log, const uint8_t* frame) {
  if (log == nullptr) return;
  fputs("0x93->", log);
  for (int i = 0; i < kFrameTail; i++) fprintf(log, "%02x ", frame[i]);
}

// Fills frame with the number, 240 bytes of data and their checksum.
void BuildFrame(uint8_t* frame, int number, const uint8_t* data) {
  frame[0] = static_cast<uint8_t>(number >> 8);
  frame[1] = static_cast<uint8_t>(number);
  memcpy(frame + 2, data, kFwFrameData);
  uint8_t sum = 0;
  for (int i = 0; i < 2 + kFwFrameData; i++) sum ^= frame[i];
  frame[2 + kFwFrameData] = sum;
}

// Sends every frame of the image until its status reads 1; the bytes sent
// and accepted (below n when a frame failed for good).
int SendFrames(int addr, const uint8_t* image, int n, FILE* log) {
  uint8_t frame[kFrameTail];
  uint8_t reply[3] = {0, 0, 0};
  int offset = 0, number = 0, retries = 0, unechoed = 0;
  while (offset < n) {
    BuildFrame(frame, number, image + offset);
    LogFrame(log, frame);
    SendI2C(addr, kCmdFrame, frame, kFrameTail + 1);
    os_usleep(150000);
    ReadI2C_M(addr, kCmdFrameStatus, frame, 3, reply, 3);
    if (reply[0] != frame[0] || reply[1] != frame[1]) {
      // The same frame again, at no retry; bounded so a mute controller can't hold us.
      if (++unechoed < kFwUnechoedMax) continue;
      os_printf("Frame 0x%02x%02x status not echoed %d times, give up\n", frame[0], frame[1], unechoed);
      break;
    }
    unechoed = 0;
    os_printf("Send Frame Number:0x%02x%02x 0x%02x", reply[0], reply[1], reply[2]);
    if (reply[2] == 1) {
      os_puts("ok");
      LogText(log, "ok\n");
      offset += kFwFrameData;
      number++;
      retries = 0;
      continue;
    }
    os_puts("Fail. Retry");
    LogText(log, "Fail. Retry\n");
    os_usleep(110000);
    if (++retries >= kFrameAttempts) break;
  }
  return offset;
}

}  // namespace

int LoadFWRecords(FILE* fp, uint8_t* image) {
  char line[kLineBuffer];
  bool whole = true;
  int n = 0;
  for (int lineNo = 1; ReadLine(fp, line, &whole); lineNo++) {
    if (line[0] != 'S' || line[1] != '3') continue;
    if (!whole) {
      os_printf("Load fail:Line %d too long\n", lineNo);
      return 0;
    }
    int count = S3DataCount(line);
    if (count < 0) {
      os_printf("Load fail:Bad record at line %d\n", lineNo);
      return 0;
    }
    for (int i = 0; i < count; i++) {
      image[n++] = HexByte(line + 12 + 2 * i);
      if (n == kFwImageMax) {
        os_puts("Load fail:File to big");
        return 0;
      }
    }
  }
  return n;
}

int LoadFWFile(const char* path, uint8_t* image) {
  FILE* fp = os_fopen(path, "r");
  if (fp == nullptr) return 0;
  int n = LoadFWRecords(fp, image);
  fclose(fp);
  return n;
}

int EnableUpdateMode(int addr, int count) {
  uint8_t buf[2] = {static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count)};
  SendI2C(addr, kCmdPrepare, buf, 1);
  os_sleep(2);
  SendI2C(addr, kCmdAnnounce, buf, 3);
  os_sleep(2);
  uint8_t mode = 0;
  ReadI2C(addr, kCmdUpdateMode, &mode, 1);
  os_printf("in update mode:%d\n", mode);
  return mode;
}

int UpdateMcu(int addr, const uint8_t* image, int n) {
  FILE* log = os_fopen(kLogPath, "w");
  if (log == nullptr) os_printf("Open %s fail, update goes on without log\n", kLogPath);
  int sent = SendFrames(addr, image, n, log);
  if (log != nullptr) fclose(log);
  if (sent < n) return -1;
  uint8_t one = 1;
  SendI2C(addr, kCmdEndOfData, &one, 2);
  os_usleep(500000);
  uint8_t reply = 0;
  ReadI2C(addr, kCmdImageState, &reply, 1);
  if (reply != 1) {
    os_puts("update fail 0x9c");
    return -1;
  }
  SendI2C(addr, kCmdCommit, &one, 2);
  os_puts("Start FW update ,wait 4sec");
  os_sleep(4);
  ReadI2C(addr, kCmdVersion, &reply, 1);
  os_printf("New FW Version:%d\n", reply);
  return 0;
}

int McuUpdate(int addr, const char* path) {
  memset(gFwImage, 0xff, sizeof gFwImage);
  int n = LoadFWFile(path, gFwImage);
  if (n < 1) {
    os_puts("LoadFWFile fail");
    return -1;
  }
  if (EnableUpdateMode(addr, n / 10) != 1) {
    os_puts("Enable update mode fail");
    return -1;
  }
  if (UpdateMcu(addr, gFwImage, n) < 0) {
    os_puts("UpdateMcu fail");
    return -1;
  }
  os_puts("MCU Update done");
  return 0;
}
