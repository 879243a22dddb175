// The parent side of slewsim: one child process and one fresh sandbox per
// scenario, a real-time limit against hangs, and the PASS/FAIL report.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "runner/run.h"

namespace sim {

namespace {

// What a child reported, and how it ended.
struct ChildResult {
  std::string report;     // "PASS" or "FAIL ..." from the pipe
  bool timed_out = false;
  int wait_status = 0;
};

// Reads the child's report until it closes the pipe or time runs out.
ChildResult collect(pid_t pid, int fd, int timeout_s) {
  ChildResult r;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout_s);
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      r.timed_out = true;
      kill(pid, SIGKILL);
      break;
    }
    pollfd p{fd, POLLIN, 0};
    int n = poll(&p, 1, static_cast<int>(left.count()));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) continue;
    char chunk[1024];
    ssize_t got = read(fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    r.report.append(chunk, static_cast<size_t>(got));
  }
  while (waitpid(pid, &r.wait_status, 0) < 0 && errno == EINTR) {
  }
  return r;
}

// The line printed for one scenario, from what its child did.
std::string verdict(const Scenario& s, const ChildResult& r, int timeout_s) {
  if (r.timed_out) return "FAIL " + s.name + ": " + s.path + ": no end after " + std::to_string(timeout_s) + " s of real time";
  if (r.report == "PASS") return "PASS " + s.name;
  if (r.report.rfind("PASS ", 0) == 0) return "PASS " + s.name + ": " + r.report.substr(5);
  if (r.report.rfind("FAIL ", 0) == 0) return "FAIL " + s.name + ": " + r.report.substr(5);
  if (WIFSIGNALED(r.wait_status))
    return "FAIL " + s.name + ": " + s.path + ": the run crashed with signal " + std::to_string(WTERMSIG(r.wait_status));
  return "FAIL " + s.name + ": " + s.path + ": the run ended without a result (status " +
         std::to_string(WEXITSTATUS(r.wait_status)) + ")";
}

// A fresh empty folder for the camera's files.
std::string make_sandbox() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/slewsim.XXXXXX";
  if (!mkdtemp(pattern.data())) return "";
  return pattern;
}

// Runs one scenario in a child; the verdict line.
std::string run_one(const Scenario& s, const RunOptions& options, DaemonMain daemon_main,
                    const std::string& keep_dir, FILE* out) {
  std::string sandbox = make_sandbox();
  if (sandbox.empty()) return "FAIL " + s.name + ": " + s.path + ": cannot make a sandbox: " + strerror(errno);
  int fds[2];
  if (pipe(fds) != 0) return "FAIL " + s.name + ": " + s.path + ": cannot make a pipe: " + strerror(errno);
  fflush(out);
  fflush(stdout);
  fflush(stderr);
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    run_scenario(s, options, daemon_main, sandbox, keep_dir, fds[1]);
  }
  close(fds[1]);
  std::string line;
  if (pid < 0) {
    line = "FAIL " + s.name + ": " + s.path + ": cannot start a process: " + strerror(errno);
  } else {
    line = verdict(s, collect(pid, fds[0], options.timeout_s), options.timeout_s);
  }
  close(fds[0]);
  std::error_code ignored;
  std::filesystem::remove_all(sandbox, ignored);
  return line;
}

}  // namespace

int run_scenarios(const std::vector<Scenario>& scenarios, const RunOptions& options,
                  DaemonMain daemon_main, FILE* out) {
  int passed = 0, failed = 0;
  for (const Scenario& s : scenarios) {
    // One scenario keeps its sandbox in the folder itself, several in sub-folders.
    std::string keep_dir = options.keep;
    if (!keep_dir.empty() && scenarios.size() > 1) keep_dir += "/" + s.name;
    std::string line = run_one(s, options, daemon_main, keep_dir, out);
    (line.rfind("PASS", 0) == 0 ? passed : failed) += 1;
    fprintf(out, "%s\n", line.c_str());
    fflush(out);
  }
  fprintf(out, "%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}

}  // namespace sim
