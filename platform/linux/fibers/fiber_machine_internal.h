// What the fibers share with their stack pool: the page size, the guard page
// of the stack running now (read by the overflow handler), and the
// announcements to AddressSanitizer and its leak checker, which do nothing in
// builds without them.
#pragma once

#include <cstddef>

namespace varnek::fiber_machine {

std::size_t PageSize();

// Null outside every fiber.
char* RunningGuard();
void SetRunningGuard(char* guard);

void StartSwitch(void** fake_stack_save, const void* bottom, std::size_t size);
void FinishSwitch(void* fake_stack_save, const void** bottom_old, std::size_t* size_old);
// Fiber stacks are mappings of their own: the leak checker is told to scan
// them, or objects that only a suspended handler's frames refer to (a host
// that exits while a handler waits) would read as leaked.
void WatchForLeaks(char* bottom, std::size_t size);
void StopWatching(char* bottom, std::size_t size);

}  // namespace varnek::fiber_machine
