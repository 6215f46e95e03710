// The append kill check, shared by the suite and the bench: a child appends
// numbered records of one size until it is killed at a random moment, then
// one more record is appended the same way; the file must then hold records
// 0, 1, 2, ... whole and that last record, nothing torn or glued.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "tests/support/child_process.h"

namespace varnek {

// Appends one record of the two fields, as FileDB_Agregar lays it out.
using RecordAppender = std::function<void(const std::string& a, const std::string& b)>;

// Field B of record `number`: `size` bytes in all with its framing, of a
// letter that changes from record to record, so a glued tail shows.
inline std::string KillFiller(int number, size_t size) {
  size_t framing = std::to_string(number).size() + 3;
  return std::string(size > framing ? size - framing : 0, static_cast<char>('a' + number % 26));
}
inline std::string KillRecord(int number, size_t size) {
  return std::to_string(number) + "\xF4" + KillFiller(number, size) + "\xF4\xF5";
}
inline const std::string& KillLastRecord() {
  static const std::string last = "next\xF4\xF4\xF5";
  return last;
}

// The records of the file that are not what was appended: torn, glued or
// missing ones, and a tail without its end.
inline int TornRecords(const std::string& bytes, size_t size) {
  int torn = 0, number = 0;
  for (size_t pos = 0; pos < bytes.size();) {
    size_t stop = bytes.find('\xF5', pos);
    if (stop == std::string::npos) return torn + 1;
    std::string record = bytes.substr(pos, stop + 1 - pos);
    pos = stop + 1;
    if (record == KillRecord(number, size)) {
      ++number;
    } else if (!(record == KillLastRecord() && pos == bytes.size())) {
      ++torn;
    }
  }
  return torn;
}

// One round on a fresh file: the child appends up to 4 MB (at least 16
// records) and is killed `delay` after its first record is in; then the last
// record goes in. The torn records found.
inline int KilledAppendRound(const std::string& path, size_t size, std::chrono::microseconds delay,
                             const RecordAppender& append) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  const int count = static_cast<int>(std::max<size_t>(16, (4u << 20) / size));
  KillWhenReady(
      [&](int ready) {
        for (int i = 0; i < count; ++i) {
          append(std::to_string(i), KillFiller(i, size));
          if (i == 0) (void)!write(ready, "r", 1);
        }
      },
      delay);
  append("next", "");
  std::ifstream in(path, std::ios::binary);
  return TornRecords({std::istreambuf_iterator<char>(in), {}}, size);
}

}  // namespace varnek
