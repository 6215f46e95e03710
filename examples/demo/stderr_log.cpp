// Buffers the demo's report lines and writes them to stderr by the loop's timer.
#include "examples/demo/stderr_log.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace varnek::demo {

namespace {

constexpr int32_t kFlushAfterMs = 100;
constexpr size_t kFlushAtBytes = 64 * 1024;
// A report longer than this (a large request is reported whole) is cut here.
constexpr size_t kMaxLineBytes = 4 * 1024;

// The first kMaxLineBytes of text, not splitting a UTF-8 sequence.
size_t CutAt(const std::string& text) {
  size_t at = kMaxLineBytes;
  while (at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
  return at;
}

}  // namespace

std::string Timestamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  // The date and time of day change once a second; convert them only then.
  static std::time_t shown_second = -1;
  static char shown[32];
  if (seconds != shown_second) {
    std::tm local{};
    localtime_r(&seconds, &local);
    std::strftime(shown, sizeof shown, "%Y-%m-%d %H:%M:%S", &local);
    shown_second = seconds;
  }
  char full[48];
  std::snprintf(full, sizeof full, "%s.%03d", shown, static_cast<int>(millis));
  return full;
}

void StderrLog::Attach(HostLoop& loop) {
  timer_ = loop.CreateTimer();
  timer_->SetInterval(kFlushAfterMs);
  timer_->on_tick = [this] { Flush(); };
}

void StderrLog::Line(const std::string& text) {
  pending_ += Timestamp();
  pending_ += ' ';
  if (text.size() > kMaxLineBytes) {
    const size_t keep = CutAt(text);
    pending_.append(text, 0, keep);
    pending_ += "... (" + std::to_string(text.size() - keep) + " more bytes cut)";
  } else {
    pending_ += text;
  }
  pending_ += '\n';
  if (!timer_ || pending_.size() >= kFlushAtBytes) return Flush();
  if (!timer_->Enabled()) timer_->SetEnabled(true);
}

void StderrLog::Flush() {
  if (timer_) timer_->SetEnabled(false);
  if (pending_.empty()) return;
  std::fwrite(pending_.data(), 1, pending_.size(), stderr);
  std::fflush(stderr);
  // A burst of reports grows the buffer; an idle host should not keep that.
  if (pending_.capacity() > kMaxLineBytes) {
    std::string().swap(pending_);
  } else {
    pending_.clear();
  }
}

}  // namespace varnek::demo
