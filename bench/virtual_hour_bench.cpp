// One hour of an idle head in virtual time: the whole daemon, bring-up
// included, through slewsim, timed on the host.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

int main() {
  const char* path = "/tmp/slewd_virtual_hour.scn";
  FILE* scenario = fopen(path, "w");
  if (scenario == nullptr) return 1;
  fputs("await out in loop 120\nwait 3600\nexpect no line out No ACK\n", scenario);
  fclose(scenario);
  std::string command = std::string(SLEWSIM_PATH) + " " + path + " >/dev/null";
  for (int run = 0; run < 3; run++) {
    auto start = std::chrono::steady_clock::now();
    int status = system(command.c_str());
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    printf("run %d: one virtual hour of an idle head in %.3f s (status %d)\n", run + 1, seconds, status);
  }
  remove(path);
  return 0;
}
