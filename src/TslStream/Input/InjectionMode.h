#pragma once
#include <cstdint>

namespace tsl {

// How input reaches the guest: posted to the target process only (`pid`), or
// through the HID event tap, which moves the real cursor (`hid`). The injector
// takes it as its `Mode`.
enum class InjectionMode : uint8_t { pid, hid };

}  // namespace tsl
