#pragma once
#include <optional>
#include <string>

#include "Platform/Accessibility.h"
#include "Platform/X11/X11KeyTable.h"

namespace tsl::X11 {

// The AT-SPI2 side of Accessibility: what is inside a window (menus, text,
// buttons), read and pressed through libatspi on its own thread.
//
// The tree is presented as Accessibility has it. An AT-SPI menu is both
// the item and its menu, so its element has one child, the same menu seen
// as "AXMenu", whose children are the items. Roles map to the nearest
// Accessibility role ("AXStaticText", "AXButton", "AXTextField", ...), and
// states to "AXEnabled" and a check mark. An element's role, name, states
// and shortcut are read once, with the list of children it came in; a
// fresh look takes a fresh element, as every walk from the application does.
class AtspiElements {
public:
    // The window in X terms, to find the AT-SPI frame that shows it.
    struct Window {
        int32_t pid = 0;
        std::string title;
        Rect bounds;
    };

    explicit AtspiElements(CommandKey command) : command(command) {}

    // Whether the accessibility bus answers at all.
    bool busAnswers();
    // The menu bar of the frame showing `window`; else of the process's
    // first frame that has one.
    std::optional<AXElement> menuBar(const Window& window);
    // The content of the frame showing `window`, as an "AXGroup" whose
    // children are the frame's; nothing is asked before they are read.
    static AXElement content(const Window& window);

    static bool owns(const AXElement& element);
    AXError copyAttributeValue(const AXElement& element, const std::string& attribute,
                               std::optional<AXAttributeValue>& value);
    AXError performAction(const AXElement& element, const std::string& action);

private:
    const CommandKey command;
};

}  // namespace tsl::X11
