#ifndef OSTREL_PLATFORM_REGISTRY_PAGE_FAULTS_H
#define OSTREL_PLATFORM_REGISTRY_PAGE_FAULTS_H

// Internal. Keeps a process alive that reads a shared mapping whose file has been cut short.
//
// The host then sends SIGBUS. The handler of this file puts memory of zeros in the place of the
// whole mapping and goes on, and passes every other SIGBUS to the handler that was there before.
// A program that installs a handler of its own later, without calling the one before, dies in that
// case as it would without the layer.

#include <cstddef>

namespace ostrel_platform {

// Guards a mapping until the process ends; at most 1024 of them. Installs the handler at the first
// call. Returns false when there is no room.
bool guard_mapping(void *address, std::size_t size) noexcept;

// Puts the handler that was there before back, when ours is still the current one.
void remove_fault_handler() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_PAGE_FAULTS_H
