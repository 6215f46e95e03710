// The process-wide locale source of the runtime.
#include "varnek/runtime/locale_source.h"

#include <atomic>

namespace varnek {
namespace {

ClassicLocaleSource& Classic() {
  static ClassicLocaleSource classic;
  return classic;
}

std::atomic<LocaleSource*>& Installed() {
  static std::atomic<LocaleSource*> installed{nullptr};
  return installed;
}

}  // namespace

LocaleSource& CurrentLocaleSource() {
  LocaleSource* source = Installed().load(std::memory_order_acquire);
  return source != nullptr ? *source : Classic();
}

LocaleSource* InstallLocaleSource(LocaleSource* source) {
  LocaleSource* before = Installed().exchange(source, std::memory_order_acq_rel);
  return before != nullptr ? before : &Classic();
}

}  // namespace varnek
