// The transcript: one line "TIME KIND TEXT" per event of the daemon, kept in
// memory for the scenario runner (virtual mode) and written to a sink file.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>

#include "core.h"

namespace sim {

namespace {

// Word of each kind in the line, in the order of enum Kind.
const char* const kKindWords[] = {"out", "set", "ext", "call", "sh", "sim", "log", "exit", "bus", "file", "reg"};

constexpr size_t kRotateBytes = 16 * 1024 * 1024;
constexpr int kOldFiles = 3;  // path.1 .. path.3

struct Transcript {
  std::mutex lock;                 // guards everything below
  std::deque<std::string> lines;   // whole lines; a deque keeps c_str() stable
  std::deque<size_t> kind_at;      // offset of the kind in each line
  std::deque<bool> verbose_only;   // the line is there only because of -v
  std::string partial;             // console text after the last line feed
  FILE* sink = nullptr;            // where lines are also written, or none
  std::string path;                // file of transcript_open_file, else ""
  size_t written = 0;              // bytes written to that file
  size_t rotate_at = kRotateBytes; // size at which it rotates
};

// The one transcript of the process.
Transcript& transcript() {
  static Transcript t;
  return t;
}

std::atomic<bool> g_verbose{false};
std::atomic<bool> g_keep{true};
std::atomic<LineHook> g_line_hook{nullptr};

// Formats printf arguments into a string of any length.
std::string format_text(const char* fmt, va_list args) {
  char small[512];
  va_list again;
  va_copy(again, args);
  int n = vsnprintf(small, sizeof small, fmt, args);
  if (n < 0) {
    va_end(again);
    return std::string();
  }
  if (static_cast<size_t>(n) < sizeof small) {
    va_end(again);
    return std::string(small, n);
  }
  std::string text(n, '\0');
  vsnprintf(text.data(), n + 1, fmt, again);
  va_end(again);
  return text;
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

// Stamps and stores one line (t.lock held); returns the line without its time.
const char* add_locked(Transcript& t, Kind kind, const std::string& text, bool verbose_only = false) {
  char stamp[32];
  int n = snprintf(stamp, sizeof stamp, "%.3f ", daemon_seconds());
  std::string line = std::string(stamp, n) + kKindWords[static_cast<int>(kind)] + ' ' + text;
  if (t.sink) {
    fwrite(line.data(), 1, line.size(), t.sink);
    fputc('\n', t.sink);
    t.written += line.size() + 1;
    if (!t.path.empty() && t.written >= t.rotate_at) {
      fclose(t.sink);
      open_fresh(t);
    }
  }
  // Real-time runs last for weeks: only the scenario runner needs the lines.
  if (!virtual_mode() || !g_keep.load()) return nullptr;
  t.lines.push_back(std::move(line));
  t.kind_at.push_back(n);
  t.verbose_only.push_back(verbose_only);
  return t.lines.back().c_str() + n;
}

// Adds one line and tells the line hook. Getter calls and the camera's
// own bus writes are verbose-only lines.
void add(Kind kind, const std::string& text, bool verbose_only = false) {
  const char* stored;
  {
    Transcript& t = transcript();
    std::lock_guard<std::mutex> guard(t.lock);
    stored = add_locked(t, kind, text, verbose_only || kind == Kind::Sim);
  }
  LineHook hook = g_line_hook.load();
  if (hook && stored) hook(stored);
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

void set_verbose(bool verbose) { g_verbose.store(verbose); }

void transcript_keep(bool keep) { g_keep.store(keep); }

bool verbose() { return g_verbose.load(); }

void trace(Kind kind, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string text = format_text(fmt, args);
  va_end(args);
  add(kind, text);
}

void trace_call(bool getter, const char* fmt, ...) {
  if (getter && !g_verbose.load()) return;
  va_list args;
  va_start(args, fmt);
  std::string text = format_text(fmt, args);
  va_end(args);
  add(Kind::Call, text, getter);
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
      added.push_back(add_locked(t, Kind::Out, t.partial));
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
  add(Kind::Out, rest);
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
  return t.lines[i].c_str() + t.kind_at[i];
}

bool transcript_verbose_only(size_t i) {
  Transcript& t = transcript();
  std::lock_guard<std::mutex> guard(t.lock);
  return i < t.verbose_only.size() && t.verbose_only[i];
}

void set_line_hook(LineHook hook) { g_line_hook.store(hook); }

}  // namespace sim
