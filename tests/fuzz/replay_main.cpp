// Replays fuzz inputs without libFuzzer, so that every build (sanitizers
// included) runs the seeds and past findings: each file named, or in a folder
// named (sorted), once through the target. A missing one is a target without findings yet.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  if (argc < 2) return fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]), 2;
  LLVMFuzzerInitialize(&argc, &argv);
  int replayed = 0;
  for (int i = 1; i < argc; i++) {
    std::error_code ec;
    std::vector<fs::path> files;
    if (fs::is_directory(argv[i], ec)) files.assign(fs::directory_iterator(argv[i]), fs::directory_iterator());
    else if (fs::exists(argv[i], ec)) files.push_back(argv[i]);
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
      std::ifstream in(file, std::ios::binary);
      if (!in) return fprintf(stderr, "%s: cannot read %s\n", argv[0], file.c_str()), 1;
      std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(data.data(), data.size());
      replayed++;
    }
  }
  printf("%d inputs replayed\n", replayed);
  return 0;
}
