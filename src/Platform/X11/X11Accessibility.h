#pragma once
#include <memory>

#include "Platform/Accessibility.h"
#include "Platform/X11/AtspiElements.h"
#include "Platform/X11/X11WindowControl.h"

namespace tsl::X11 {

// Accessibility over X: applications are the processes owning client
// windows, windows are client windows (transient ones are their parent's
// sheets), and each window has a close button. What is inside a window
// comes from AT-SPI2: the application's "AXMenuBar" is the menu bar of its
// focused window (else its first), and a window's children end with its
// content. Trusted means the accessibility bus answers; moving and closing
// windows works without it.
class X11Accessibility final : public Accessibility {
public:
    explicit X11Accessibility(std::shared_ptr<WindowControl> control, CommandKey command = CommandKey::control)
        : control(std::move(control)), atspi(command) {}
    bool isProcessTrusted() override { return atspi.busAnswers(); }
    bool isProcessTrustedWithOptions(bool) override { return atspi.busAnswers(); }
    AXElement createApplication(int32_t pid) override;
    AXError setMessagingTimeout(const AXElement& element, float seconds) override;
    AXError copyAttributeValue(const AXElement& element, const std::string& attribute,
                               std::optional<AXAttributeValue>& value) override;
    AXError setAttributeValue(const AXElement& element, const std::string& attribute,
                              const AXAttributeValue& value) override;
    AXError performAction(const AXElement& element, const std::string& action) override;

private:
    const std::shared_ptr<WindowControl> control;
    AtspiElements atspi;
};

}  // namespace tsl::X11
