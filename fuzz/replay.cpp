// Stands in for libFuzzer: runs the target once for each file of the folders (or files) given.
// Each input is copied into a block of exactly its size, so that a sanitizer sees the first byte
// outside.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
        inputs.push_back(entry.path());
      }
    } else {
      inputs.emplace_back(argv[i]);
    }
  }
  std::sort(inputs.begin(), inputs.end());

  for (const std::filesystem::path& input : inputs) {
    std::ifstream file(input, std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "cannot read %s\n", input.c_str());
      return 1;
    }
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), block.get());
    // Before the run, so that it stands above the report when the run ends the process.
    std::fprintf(stderr, "%s\n", input.filename().c_str());
    LLVMFuzzerTestOneInput(block.get(), bytes.size());
  }
  std::fprintf(stderr, "%zu inputs\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
