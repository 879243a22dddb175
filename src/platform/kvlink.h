// The parameter bus: a store of text values under dotted keys, shared with
// the firmware's other processes. Values are at most 127 characters.
#pragma once

extern "C" {

// Listener shape: key and value of the change. The value buffer is writable
// for the duration of the call.
typedef void (*KvlinkCallback)(char* key, char* value);

int kvlink_initial(void);
// Copies the terminated value of key into buf (at most len bytes with the NUL).
// 0 when a value was delivered, -1 when the key holds none.
int kvlink_get(const char* key, char* buf, int len);
// Stores the value, then notifies the listeners of the key, ours included.
int kvlink_set(const char* key, const char* value);
// Binds a callback to every key that begins with the given text.
int kvlink_listen(const char* key, KvlinkCallback callback);
// Full key of entry `index` (from 0) of a list key; -1 past the last entry.
int kvlink_get_name(const char* key, int index, char* buf, int len);
// A list key loses every entry that writes added.
int kvlink_restore_default(const char* key);
// One line in the system log.
int kvlink_log(int facility, int level, const char* host, const char* message);

}
