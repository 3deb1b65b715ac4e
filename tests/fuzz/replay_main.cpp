// Runs a fuzz target over files, for builds without libFuzzer: CTest replays the seed corpus
// and every kept crasher this way in each build. Arguments are files or folders (all regular
// files in a folder). Exits non-zero when a path cannot be read; a fault in the target aborts.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  const std::vector<char> raw(std::istreambuf_iterator<char>(in), {});
  // An exact-size copy, as libFuzzer hands its inputs over.
  const std::vector<std::uint8_t> bytes(raw.begin(), raw.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = argv[i];
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
      for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
        if (entry.is_regular_file() && replay_file(entry.path())) ++replayed;
      }
    } else if (replay_file(path)) {
      ++replayed;
    } else {
      std::cerr << "cannot read " << path << "\n";
      return 1;
    }
  }
  std::cout << "replayed " << replayed << " inputs\n";
  return 0;
}
