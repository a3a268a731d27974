// Runs a fuzz target over a folder of files instead of libFuzzer: the test suite replays each
// committed corpus. usage: TARGET FOLDER

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace fs = std::filesystem;

int main(int argc, char **argv) {
  int replayed = 0;
  for (const fs::directory_entry &file : fs::directory_iterator(argc == 2 ? argv[1] : "")) {
    std::ifstream stream(file.path(), std::ios::binary);
    stream.exceptions(std::ios::badbit | std::ios::failbit);
    // A heap block of exactly the file's size: a sanitizer sees each byte that is read past it.
    std::vector<char> bytes(file.file_size());
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
    ++replayed;
  }
  std::printf("%i inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}
