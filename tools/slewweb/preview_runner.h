// The page's timeline: slewsim's preview of the next 24 hours, run again a
// little after a setting it depends on changes, one run at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace slewweb {

// What the last finished preview gave.
struct PreviewResult {
  int generation = 0;  // counts finished runs; 0: none yet
  std::string table;   // slewsim's table of mode changes, or why there is none
  std::string svg;     // the plot, empty when the run failed
};

class PreviewRunner {
 public:
  // on_done is called (from the runner's thread) after each run.
  PreviewRunner(std::string state, std::function<void(int generation)> on_done);
  ~PreviewRunner();

  // A bus key was written: a key the preview depends on asks for a new run.
  void changed(const std::string& key);
  // Asks for a run whatever changed (slewd came back).
  void refresh();
  // The last result.
  PreviewResult result();

 private:
  // Runs slewsim whenever asked, after the settings have been quiet a while.
  void loop();
  // One run of slewsim's preview into a result.
  PreviewResult run_once(int generation);

  std::string state_;
  std::function<void(int)> on_done_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool wanted_ = true;  // a run is due (the first one at start)
  bool stopping_ = false;
  std::chrono::steady_clock::time_point due_;
  PreviewResult result_;
  std::thread thread_;
};

// Whether the preview depends on a key: the schedule, recover and power-up
// settings, presets, patrols, scans and patterns.
bool preview_depends_on(const std::string& key);

}  // namespace slewweb
