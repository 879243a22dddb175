// The transcript: one line "TIME KIND TEXT" per event of the daemon, kept in
// memory for the scenario runner (virtual mode) and written to a sink file.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/core.h"

namespace sim {

namespace {

// Word of each kind in the line, in the order of enum Kind.
const char* const kKindWords[] = {"out", "set", "ext", "call", "sh", "sim", "log", "exit", "bus", "file", "reg"};

constexpr size_t kChunkBytes = 1 << 20;  // lines are packed into chunks this big
constexpr size_t kSmallText = 512;       // texts up to this long are formatted on the stack
constexpr size_t kRotateBytes = 16 * 1024 * 1024;
constexpr int kOldFiles = 3;  // path.1 .. path.3

// One kept line: "TIME KIND TEXT" with its NUL, where KIND starts, and
// whether it is there only because of -v.
struct Line {
  const char* text;
  size_t kind_at;
  bool verbose_only;
};

struct Transcript {
  std::mutex lock;                                 // guards everything below
  std::vector<std::unique_ptr<char[]>> chunks;     // the kept lines' characters; never move
  char* chunk_next = nullptr;                      // free bytes at the end of the last chunk...
  size_t chunk_left = 0;                           // ...and how many
  std::deque<Line> lines;                          // in order; a deque grows without copying
  std::string partial;                             // console text after the last line feed
  FILE* sink = nullptr;                            // where lines are also written, or none
  double stamp_seconds = -1;                       // the moment of the last stamp...
  char stamp[32] = "";                             // ...formatted: "S.mmm "
  int stamp_len = 0;
  std::string path;                                // file of transcript_open_file, else ""
  size_t written = 0;                              // bytes written to that file
  size_t rotate_at = kRotateBytes;                 // size at which it rotates
};

// The one transcript of the process.
Transcript& transcript() {
  static Transcript t;
  return t;
}

std::atomic<bool> g_keep{true};
std::atomic<LineHook> g_line_hook{nullptr};

// Room for len bytes that stay where they are for good (t.lock held).
char* reserve_locked(Transcript& t, size_t len) {
  if (len > t.chunk_left) {
    size_t size = len > kChunkBytes ? len : kChunkBytes;
    t.chunks.emplace_back(new char[size]);
    t.chunk_next = t.chunks.back().get();
    t.chunk_left = size;
  }
  char* at = t.chunk_next;
  t.chunk_next += len;
  t.chunk_left -= len;
  return at;
}

// Shifts path.N to path.N+1 (the last is overwritten) and path to path.1.
void shift_files(const std::string& path) {
  for (int n = kOldFiles - 1; n >= 1; --n) {
    rename((path + "." + std::to_string(n)).c_str(), (path + "." + std::to_string(n + 1)).c_str());
  }
  rename(path.c_str(), (path + ".1").c_str());
}

// Shifts the old files and opens path afresh as the sink (t.lock held).
bool open_fresh(Transcript& t) {
  shift_files(t.path);
  t.written = 0;
  t.sink = fopen(t.path.c_str(), "we");
  if (t.sink == nullptr) return false;
  setvbuf(t.sink, nullptr, _IOLBF, 0);
  return true;
}

// The stamp of the present moment; formatted once per moment, as several
// lines usually share one (t.lock held).
void stamp_locked(Transcript& t) {
  double seconds = daemon_seconds();
  if (seconds == t.stamp_seconds) return;
  t.stamp_seconds = seconds;
  t.stamp_len = snprintf(t.stamp, sizeof t.stamp, "%.3f ", seconds);
}

// Stamps, writes and keeps one line (t.lock held); returns the kept line
// without its time, or nullptr when lines are not kept.
const char* add_locked(Transcript& t, Kind kind, const char* text, size_t len,
                       bool verbose_only = false) {
  stamp_locked(t);
  const char* word = kKindWords[static_cast<int>(kind)];
  size_t word_len = strlen(word);
  if (t.sink) {
    fwrite(t.stamp, 1, t.stamp_len, t.sink);
    fwrite(word, 1, word_len, t.sink);
    fputc(' ', t.sink);
    fwrite(text, 1, len, t.sink);
    fputc('\n', t.sink);
    t.written += t.stamp_len + word_len + 1 + len + 1;
    if (!t.path.empty() && t.written >= t.rotate_at) {
      fclose(t.sink);
      open_fresh(t);
    }
  }
  // Real-time runs last for weeks: only the scenario runner needs the lines.
  if (!virtual_mode() || !g_keep.load()) return nullptr;
  size_t n = t.stamp_len;
  char* line = reserve_locked(t, n + word_len + 1 + len + 1);
  memcpy(line, t.stamp, n);
  memcpy(line + n, word, word_len);
  line[n + word_len] = ' ';
  memcpy(line + n + word_len + 1, text, len);
  line[n + word_len + 1 + len] = '\0';
  t.lines.push_back({line, n, verbose_only});
  return line + n;
}

// Adds one line and tells the line hook. Getter calls and the camera's
// own bus writes are verbose-only lines.
void add(Kind kind, const char* text, size_t len, bool verbose_only = false) {
  const char* stored;
  {
    Transcript& t = transcript();
    std::lock_guard<std::mutex> guard(t.lock);
    stored = add_locked(t, kind, text, len, verbose_only || kind == Kind::Sim);
  }
  LineHook hook = g_line_hook.load();
  if (hook && stored) hook(stored);
}

// Formats printf arguments and adds them as one line.
void add_formatted(Kind kind, const char* fmt, va_list args, bool verbose_only = false) {
  char small[kSmallText];
  va_list again;
  va_copy(again, args);
  int n = vsnprintf(small, sizeof small, fmt, args);
  if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
    add(kind, small, n, verbose_only);
  } else if (n >= 0) {
    std::string text(n, '\0');
    vsnprintf(text.data(), n + 1, fmt, again);
    add(kind, text.data(), n, verbose_only);
  }
  va_end(again);
}

}  // namespace

void transcript_open(FILE* sink) {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  t.sink = sink;
}

bool transcript_open_file(const char* path, std::string* error) {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  t.path = path;
  if (open_fresh(t)) return true;
  *error = "cannot write " + t.path + ": " + strerror(errno);
  t.path.clear();
  return false;
}

void transcript_close_file() {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  if (t.path.empty()) return;
  if (t.sink != nullptr) fclose(t.sink);
  t.sink = nullptr;
  t.path.clear();
}

void transcript_rotate_at(size_t bytes) {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  t.rotate_at = bytes;
}

std::atomic<bool> g_verbose{false};

void set_verbose(bool verbose) { g_verbose.store(verbose); }

void transcript_keep(bool keep) { g_keep.store(keep); }


void trace(Kind kind, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  add_formatted(kind, fmt, args);
  va_end(args);
}

void trace_call(bool getter, const char* fmt, ...) {
  if (getter && !g_verbose.load()) return;
  va_list args;
  va_start(args, fmt);
  add_formatted(Kind::Call, fmt, args, getter);
  va_end(args);
}

void console_write(const char* text, size_t len) {
  std::deque<const char*> added;
  {
    Transcript& t = transcript();
    std::lock_guard<std::mutex> guard(t.lock);
    for (size_t i = 0; i < len; ++i) {
      if (text[i] != '\n') {
        t.partial += text[i];
        continue;
      }
      added.push_back(add_locked(t, Kind::Out, t.partial.data(), t.partial.size()));
      t.partial.clear();
    }
  }
  LineHook hook = g_line_hook.load();
  for (const char* stored : added)
    if (hook && stored) hook(stored);
}

void console_flush() {
  std::string rest;
  {
    Transcript& t = transcript();
    std::lock_guard<std::mutex> guard(t.lock);
    if (t.partial.empty()) return;
    rest.swap(t.partial);
  }
  add(Kind::Out, rest.data(), rest.size());
}

size_t transcript_size() {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  return t.lines.size();
}

const char* transcript_line(size_t i) {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  if (i >= t.lines.size()) return "";
  return t.lines[i].text + t.lines[i].kind_at;
}

bool transcript_verbose_only(size_t i) {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  return i < t.lines.size() && t.lines[i].verbose_only;
}

void set_line_hook(LineHook hook) { g_line_hook.store(hook); }

}  // namespace sim
