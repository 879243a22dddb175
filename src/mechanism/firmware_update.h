// Firmware update of a motor controller from a Motorola S-record file: the
// image is loaded whole, sent in numbered frames of 240 bytes with a status
// read per frame, then committed and the new version read back.
#pragma once

#include <cstdint>
#include <cstdio>

constexpr int kFwImageMax = 0x19000;  // 102400: a loaded image stays below this
constexpr int kFwFrameData = 240;     // data bytes of one frame
// The image buffer reaches to the end of the last frame of the largest image,
// so that frame goes out filled up with 0xFF.
constexpr int kFwImageBuffer = (kFwImageMax + kFwFrameData - 1) / kFwFrameData * kFwFrameData;
// Consecutive status reads of one frame that may fail to echo its number
// before the update gives up (docs/decisions.md).
constexpr int kFwUnechoedMax = 20;

extern uint8_t gFwImage[kFwImageBuffer];

// The whole update; addr 0x28 pan or 0x29 tilt. 0 on success, -1 on failure.
int McuUpdate(int addr, const char* path);
// Appends the S3 data of the file to image; the bytes loaded, or 0 when the
// file can't be opened, holds no S3 data, has a faulty record or is too big.
int LoadFWFile(const char* path, uint8_t* image);
// LoadFWFile on an open stream.
int LoadFWRecords(FILE* fp, uint8_t* image);
// Prepare, announce count, read back the update-mode byte (1: update mode).
int EnableUpdateMode(int addr, int count);
// Sends n bytes of image in frames, ends the data, commits. 0 or -1.
int UpdateMcu(int addr, const uint8_t* image, int n);
