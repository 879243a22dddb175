// What the store's tests share: a real slewd on its own folder (SlewdProcess),
// what a restart would find in the store, and a start that is expected to be
// refused.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "slewd_process_fixture.h"

class StoreProcess : public SlewdProcess {
 protected:
  // Every key of the store at path, as a restart would load it.
  static std::map<std::string, std::string> StoredRows(const std::string& path) {
    std::map<std::string, std::string> rows;
    sim::clock_init(sim::ClockMode::Virtual);
    if (sim::bus_open(path.c_str()) != 0) return rows;
    sim::bus_visit("", [](const char* key, const char* value, void* ctx) {
      (*static_cast<std::map<std::string, std::string>*>(ctx))[key] = value;
    }, &rows);
    sim::bus_close();
    return rows;
  }
  // The preset list of a set of rows, in list order.
  static std::vector<std::string> Presets(const std::map<std::string, std::string>& rows) {
    std::vector<std::string> list;
    for (int i = 0;; ++i) {
      auto it = rows.find("ptz.preset.position." + std::to_string(i));
      if (it == rows.end()) return list;
      list.push_back(it->second);
    }
  }
  // The preset list the running slewd's bus shows.
  std::vector<std::string> ShownPresets() {
    std::string out;
    if (Ctl({"list", "ptz.preset.position."}, &out) != 0) return {};
    std::map<std::string, std::string> rows;
    size_t at = 0;
    for (size_t end; (end = out.find('\n', at)) != std::string::npos; at = end + 1) {
      std::string line = out.substr(at, end - at);
      size_t eq = line.find('=');
      rows[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return Presets(rows);
  }
  // Starts slewd on state, expecting it to end by itself within a bound;
  // its exit status (-1 when it did not end), its stderr in *err.
  static int RunSlewdToEnd(const std::string& state, std::string* err) {
    std::string err_path = state + ".err";
    pid_t pid = fork();
    if (pid == 0) {
      setenv("SLEWD_STATE", state.c_str(), 1);
      int fd = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(fd, 2);
      if (freopen("/dev/null", "w", stdout) == nullptr) _exit(127);
      execl(SLEWD_PATH, "slewd", (char*)nullptr);
      _exit(127);
    }
    int status = 0;
    for (int i = 0; i < 1000 && waitpid(pid, &status, WNOHANG) == 0; ++i) usleep(10000);
    if (waitpid(pid, &status, WNOHANG) == 0) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      status = -1;
    }
    std::ifstream in(err_path);
    std::stringstream text;
    text << in.rdbuf();
    *err = text.str();
    std::filesystem::remove(err_path);
    return status < 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  // A value of the running slewd's bus ("" when none).
  std::string Get(const char* key) {
    std::string out;
    Ctl({"get", key}, &out);
    if (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
  }
  // Kills slewd at once, as a power cut would leave it.
  void KillNow() { Kill(SIGKILL); }
};
