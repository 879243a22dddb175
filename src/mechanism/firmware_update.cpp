// Controller firmware update. Until the update protocol lands, nothing is
// sent and the update reports failure.
#include "mechanism/firmware_update.h"

int McuUpdate(int, const char*) { return -1; }
