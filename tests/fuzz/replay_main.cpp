// Replays fuzz inputs without libFuzzer: every file named, or found in a
// folder named, goes once through the target's entry function. This is how
// the test command runs the seeds and past findings in every build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

// Runs one input file through the target; false when it cannot be read.
static bool Replay(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(data.data(), data.size());
  return true;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]);
    return 2;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  int replayed = 0;
  for (int i = 1; i < argc; i++) {
    std::error_code ec;
    std::vector<fs::path> files;
    if (!fs::exists(argv[i], ec)) continue;  // a target without findings yet
    if (fs::is_directory(argv[i], ec)) {
      for (const auto& entry : fs::directory_iterator(argv[i])) files.push_back(entry.path());
      std::sort(files.begin(), files.end());  // the same order every run
    } else {
      files.push_back(argv[i]);
    }
    for (const fs::path& f : files) {
      if (!Replay(f)) {
        fprintf(stderr, "%s: cannot read %s\n", argv[0], f.c_str());
        return 1;
      }
      replayed++;
    }
  }
  printf("%d inputs replayed\n", replayed);
  return 0;
}
