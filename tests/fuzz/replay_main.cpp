// Runs a fuzz target over files or folders of files, for builds without libFuzzer: CTest
// replays the seed corpus and every kept crasher this way. A fault in the target aborts.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) files.emplace_back(argv[i]);
    else for (const auto& entry : std::filesystem::directory_iterator(argv[i])) files.push_back(entry.path());
  }
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::cerr << "cannot read " << file << "\n", 1;
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(in), {});  // exact size, as libFuzzer
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::cout << "replayed " << files.size() << " inputs\n";
}
