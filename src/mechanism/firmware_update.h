// Firmware update of a motor controller from an S-record file.
#pragma once

// addr 0x28 pan or 0x29 tilt; returns 0 on success, -1 on failure.
int McuUpdate(int addr, const char* path);
