// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target on each file of a directory: inputs that once failed, and
// seeds.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size);

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    std::printf("%s\n", entry.path().filename().c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),
                           input.size());
    ++count;
  }
  std::printf("%d inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
