// Runs every file of the given corpus directories once through the fuzz
// target's entry, so that a build without libFuzzer replays what fuzzing
// found: a fixed crash stays fixed. With --all-read first, every input
// must be one that the target's reader takes (where the target counts
// them), as the replies at the edges of the schema must be.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
// Inputs the target's reader took so far, where the target tells.
extern "C" size_t harbecInputsRead() __attribute__((weak));

int main(int argc, char** argv) {
  const bool allRead = argc > 1 && std::string(argv[1]) == "--all-read";
  size_t inputs = 0, refused = 0;
  for (int i = allRead ? 2 : 1; i < argc; ++i) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i]))
      if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      std::ifstream in(file, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      const size_t before = harbecInputsRead ? harbecInputsRead() : 0;
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++inputs;
      if (allRead && harbecInputsRead && harbecInputsRead() == before) {
        std::printf("not read: %s\n", file.c_str());
        ++refused;
      }
    }
  }
  std::printf("%zu inputs replayed\n", inputs);
  return inputs && !refused ? 0 : 1;
}
