// Runs a fuzz target over files instead of libFuzzer: the test suite replays each committed corpus.
// usage: TARGET FILE-OR-FOLDER...

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// The files that the arguments name, those of folders included.
std::vector<fs::path> filesOf(std::span<char *> arguments) {
  std::vector<fs::path> files;
  for (const fs::path path : arguments) {
    if (!fs::is_directory(path)) {
      files.push_back(path);
      continue;
    }
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path)) {
      if (entry.is_regular_file()) {
        files.push_back(entry.path());
      }
    }
  }
  return files;
}

// A heap block of exactly the file's size, so that a sanitizer sees each byte that is read past it.
bool replay(const fs::path &file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
  if (!stream.is_open() || stream.bad()) {
    std::fprintf(stderr, "replay: error: %s can't be read\n", file.c_str());
    return false;
  }
  const std::vector<std::uint8_t> bytes(content.begin(), content.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char **argv) try {
  const std::vector<fs::path> files = filesOf({argv + 1, static_cast<std::size_t>(argc - 1)});
  std::size_t replayed = 0;
  for (const fs::path &file : files) {
    replayed += replay(file) ? 1 : 0;
  }
  std::printf("%zu of %zu inputs replayed\n", replayed, files.size());
  return !files.empty() && replayed == files.size() ? 0 : 1;
} catch (const std::exception &error) {
  std::fprintf(stderr, "replay: error: %s\n", error.what());
  return 1;
}
