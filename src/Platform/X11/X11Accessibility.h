#pragma once
#include <memory>

#include "Platform/Accessibility.h"
#include "Platform/X11/X11WindowControl.h"

namespace tsl::X11 {

// The window half of Accessibility over X: applications are the processes
// owning client windows, windows are client windows (transient ones are
// their parent's sheets), and each window has a close button. Menus and
// window contents are not known here; asking for them is "unsupported".
class X11Accessibility final : public Accessibility {
public:
    explicit X11Accessibility(std::shared_ptr<WindowControl> control) : control(std::move(control)) {}
    bool isProcessTrusted() override { return true; }
    bool isProcessTrustedWithOptions(bool) override { return true; }
    AXElement createApplication(int32_t pid) override;
    AXError setMessagingTimeout(const AXElement& element, float seconds) override;
    AXError copyAttributeValue(const AXElement& element, const std::string& attribute,
                               std::optional<AXAttributeValue>& value) override;
    AXError setAttributeValue(const AXElement& element, const std::string& attribute,
                              const AXAttributeValue& value) override;
    AXError performAction(const AXElement& element, const std::string& action) override;

private:
    const std::shared_ptr<WindowControl> control;
};

}  // namespace tsl::X11
