// Replays saved inputs through a fuzz target's entry point, without libFuzzer:
//   <name>_replay [FILE|FOLDER]...
// The empty input goes first, then every regular file named or found in a
// named folder (not below it), in name order. A crash or sanitizer report ends
// the run as it would end the fuzzer; a path that cannot be read fails it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

// One input; an empty one still points at a byte, as the fuzzer's do.
void Run(const std::vector<char>& bytes) {
  static const char none = 0;
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.empty() ? &none : bytes.data()),
                         bytes.size());
}

bool Replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return false;
  std::fprintf(stderr, "replay %s (%zu bytes)\n", file.c_str(), bytes.size());
  Run(bytes);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  Run({});
  int replayed = 1, failed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = argv[i];
    std::vector<std::filesystem::path> files;
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
      for (std::filesystem::directory_iterator it(path, error), end; !error && it != end;
           it.increment(error)) {
        std::error_code skip;  // a dangling link or the like is no input
        if (it->is_regular_file(skip)) files.push_back(it->path());
      }
      if (error) {
        std::fprintf(stderr, "cannot list %s: %s\n", path.c_str(), error.message().c_str());
        ++failed;
      }
      std::sort(files.begin(), files.end());
    } else {
      files.push_back(path);  // a file, or a path that fails below
    }
    for (const auto& file : files) {
      if (Replay(file)) {
        ++replayed;
      } else {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        ++failed;
      }
    }
  }
  std::printf("%d inputs replayed, %d unreadable\n", replayed, failed);
  return failed == 0 ? 0 : 1;
}
