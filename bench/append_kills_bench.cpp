// Torn records per N kills (1,000 by default): children append records of
// 100 B, 3 KB, 50 KB and 1 MB and are killed with SIGKILL at a random moment
// up to 3 ms after their first record; after each kill one more record is
// appended and the file checked (tests/store/append_kills.h). Two appenders:
// a plain write() to an O_APPEND descriptor, and FileDB_Agregar.
//
//   ./build/bench/append_kills_bench [kills]
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <random>

#include "tests/store/append_kills.h"
#include "varnek/adds/store/storage.h"
#include "varnek/platform/platform.h"

namespace varnek {
namespace {

class BenchStorage : public Storage {
 public:
  explicit BenchStorage(Platform& p) : Storage(p) {}
};

void PlainAppend(const std::string& path, const std::string& a, const std::string& b) {
  std::string record = a + "\xF4" + b + "\xF4\xF5";
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  (void)!write(fd, record.data(), record.size());
  close(fd);
}

int Run(int kills) {
  std::string folder = "/tmp/varnek-append-kills-XXXXXX";
  if (!mkdtemp(folder.data())) return 1;
  const std::string path = folder + "/kills.db";
  BenchStorage store(LinuxPlatform());
  RecordAppender plain = [&](const std::string& a, const std::string& b) {
    PlainAppend(path, a, b);
  };
  RecordAppender varnek = [&](const std::string& a, const std::string& b) {
    store.FileDB_Agregar(Utf8ToText(path), BytesToText(a), BytesToText(b));
  };
  std::printf("torn records per %d kills\n%-10s %14s %14s\n", kills, "record", "plain write",
              "FileDB_Agregar");
  std::mt19937 random(1);
  for (size_t size : {size_t{100}, size_t{3000}, size_t{50000}, size_t{1} << 20}) {
    int torn[2] = {0, 0};
    for (int k = 0; k < kills; ++k) {
      auto delay = std::chrono::microseconds(std::uniform_int_distribution<int>(0, 3000)(random));
      torn[0] += KilledAppendRound(path, size, delay, plain);
      torn[1] += KilledAppendRound(path, size, delay, varnek);
    }
    std::printf("%-10zu %14d %14d\n", size, torn[0], torn[1]);
    std::fflush(stdout);
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return 0;
}

}  // namespace
}  // namespace varnek

int main(int argc, char** argv) { return varnek::Run(argc > 1 ? std::atoi(argv[1]) : 1000); }
