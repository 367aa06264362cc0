#include "Platform/EventPoster.h"

namespace tsl {

bool PlatformEvent::isMouse() const {
    switch (type) {
    case leftMouseDown: case leftMouseUp: case rightMouseDown: case rightMouseUp: case mouseMoved:
    case leftMouseDragged: case rightMouseDragged: case scrollWheel: case otherMouseDown: case otherMouseUp:
    case otherMouseDragged:
        return true;
    default:
        return false;
    }
}

}  // namespace tsl
