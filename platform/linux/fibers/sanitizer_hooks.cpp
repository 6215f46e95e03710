// The fibers' announcements to AddressSanitizer: every stack switch, and the
// stacks its leak checker must scan. Without the sanitizer they do nothing.
#include "varnek/platform/linux/fibers/fiber_machine_internal.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VARNEK_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VARNEK_ASAN 1
#endif

#ifdef VARNEK_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace varnek::fiber_machine {

void StartSwitch(void** fake_stack_save, const void* bottom, std::size_t size) {
#ifdef VARNEK_ASAN
  __sanitizer_start_switch_fiber(fake_stack_save, bottom, size);
#else
  (void)fake_stack_save, (void)bottom, (void)size;
#endif
}

void FinishSwitch(void* fake_stack_save, const void** bottom_old, std::size_t* size_old) {
#ifdef VARNEK_ASAN
  __sanitizer_finish_switch_fiber(fake_stack_save, bottom_old, size_old);
#else
  (void)fake_stack_save, (void)bottom_old, (void)size_old;
#endif
}

void WatchForLeaks(char* bottom, std::size_t size) {
#ifdef VARNEK_ASAN
  __lsan_register_root_region(bottom, size);
#else
  (void)bottom, (void)size;
#endif
}

void StopWatching(char* bottom, std::size_t size) {
#ifdef VARNEK_ASAN
  __lsan_unregister_root_region(bottom, size);
#else
  (void)bottom, (void)size;
#endif
}

}  // namespace varnek::fiber_machine
