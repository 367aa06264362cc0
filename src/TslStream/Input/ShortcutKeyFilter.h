#pragma once
#include <cstdint>
#include <set>
#include <vector>

#include "TslStream/Input/InputMapper.h"

namespace tsl {

// What of a key goes to the guest. A key pressed with Command goes as key
// down and key up at once, as the guest's own shortcut handling expects, and
// its real key up is swallowed; other keys and events pass as they come.
// Keys are told apart by their physical code (`usage`), not the guest's.
class ShortcutKeyFilter {
public:
    std::vector<InputMapper::HostEvent> pass(const InputMapper::HostEvent& event, uint32_t usage);

private:
    std::set<uint32_t> swallowedKeyUps;  // keys whose shortcut already went out as down and up
};

}  // namespace tsl
