// Runs a fuzz target over files instead of libFuzzer: the test suite replays each committed corpus.
// usage: TARGET FILE-OR-FOLDER...

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// From a heap block of exactly the file's size, so that a sanitizer sees each byte that is read
// past it.
void replay(const fs::path &file) {
  std::ifstream stream(file, std::ios::binary);
  stream.exceptions(std::ios::badbit | std::ios::failbit);
  std::vector<char> bytes(fs::file_size(file));
  stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char **argv) try {
  int replayed = 0;
  std::vector<fs::path> paths(argv + 1, argv + argc);
  for (std::size_t next = 0; next < paths.size(); ++next) {
    const fs::path path = paths[next];
    if (fs::is_directory(path)) {
      paths.insert(paths.end(), fs::directory_iterator(path), {});
    } else {
      replay(path);
      ++replayed;
    }
  }
  std::printf("%i inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
} catch (const std::exception &error) {
  std::fprintf(stderr, "replay: error: %s\n", error.what());
  return 1;
}
