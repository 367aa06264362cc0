#pragma once
#include <memory>

#include "Platform/WindowServer.h"
#include "Platform/X11/X11Connection.h"

namespace tsl::X11 {

// The window list over the real stacking order: client windows, front to
// back, with the keys the window server would give them.
class X11WindowServer final : public WindowServer {
public:
    explicit X11WindowServer(std::shared_ptr<Connection> x) : x(std::move(x)) {}
    std::optional<PlatformValue> copyWindowInfo(uint32_t options, uint32_t relativeToWindow) override;

private:
    const std::shared_ptr<Connection> x;
};

}  // namespace tsl::X11
