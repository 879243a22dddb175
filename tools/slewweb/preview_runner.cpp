// The page's timeline: slewsim --preview in a child process, its table from
// its standard output and its plot from a scratch file.
#include "preview_runner.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "bus_link.h"

extern char** environ;

namespace slewweb {

namespace {

constexpr auto kQuiet = std::chrono::seconds(2);  // settings unchanged this long before a run
constexpr size_t kMaxOutput = 64 * 1024;          // of slewsim's table
constexpr size_t kMaxPlot = 8 * 1024 * 1024;      // of the plot

const char* const kPrefixes[] = {"ptz.schedule", "ptz.system.recover_", "ptz.system.power_up", "ptz.preset.position.",
                                 "ptz.patrol.", "ptz.scan.", "ptz.pattern."};

// The contents of a file up to max bytes, or "".
std::string read_file(const std::string& path, size_t max) {
  std::ifstream in(path, std::ios::binary);
  std::string text(max, '\0');
  in.read(text.data(), static_cast<std::streamsize>(max));
  text.resize(static_cast<size_t>(in.gcount()));
  return text;
}

// Runs argv with its standard output into out (bounded); its exit status,
// or -1 when it could not start.
int run_capture(const std::vector<std::string>& args, std::string* out) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (rc != 0) {
    close(fds[0]);
    return -1;
  }
  char buffer[4096];
  ssize_t n = 0;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
    if (n > 0 && out->size() < kMaxOutput) out->append(buffer, static_cast<size_t>(n));
  }
  close(fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

bool preview_depends_on(const std::string& key) {
  for (const char* prefix : kPrefixes) {
    if (key.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

PreviewRunner::PreviewRunner(std::string state, std::function<void(int)> on_done)
    : state_(std::move(state)), on_done_(std::move(on_done)), due_(std::chrono::steady_clock::now()),
      thread_([this] { loop(); }) {}

PreviewRunner::~PreviewRunner() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void PreviewRunner::changed(const std::string& key) {
  if (preview_depends_on(key)) refresh();
}

void PreviewRunner::refresh() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    wanted_ = true;
    due_ = std::chrono::steady_clock::now() + kQuiet;
  }
  wake_.notify_all();
}

PreviewResult PreviewRunner::result() {
  std::lock_guard<std::mutex> lock(mutex_);
  return result_;
}

void PreviewRunner::loop() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    if (!wanted_) {
      wake_.wait(lock);
      continue;
    }
    if (std::chrono::steady_clock::now() < due_) {
      wake_.wait_until(lock, due_);
      continue;
    }
    wanted_ = false;
    int generation = result_.generation + 1;
    lock.unlock();
    PreviewResult next = run_once(generation);
    lock.lock();
    result_ = std::move(next);
    lock.unlock();
    on_done_(generation);
    lock.lock();
  }
}

PreviewResult PreviewRunner::run_once(int generation) {
  PreviewResult r;
  r.generation = generation;
  std::string scratch = (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + std::string("/slewweb-preview.XXXXXX");
  if (mkdtemp(scratch.data()) == nullptr) {
    r.table = std::string("cannot make a scratch folder: ") + strerror(errno);
    return r;
  }
  std::string plot = scratch + "/next24h.svg";
  // At a lower priority than the picture and the head's tools it shares the machine with.
  int status = run_capture({"nice", "-n", "10", buslink::sibling_program("slewsim"), "--preview", state_, "--hours",
                            "24", "--plot", plot},
                           &r.table);
  if (status == 0) r.svg = read_file(plot, kMaxPlot);
  size_t where = r.table.rfind("plot: ");  // the scratch file's name is of no use to the page
  if (where != std::string::npos) r.table.erase(where);
  if (status != 0) r.table += "(the preview did not run: slewsim ended with status " + std::to_string(status) + ")\n";
  std::error_code ignored;
  std::filesystem::remove_all(scratch, ignored);
  return r;
}

}  // namespace slewweb
