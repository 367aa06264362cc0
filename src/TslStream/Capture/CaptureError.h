#pragma once
#include <cstdint>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why a window's capture could not start.
class CaptureError : public Error {
public:
    enum class Kind : uint8_t { windowNotFound, startFailed, permissionDenied };

    static CaptureError windowNotFound(uint32_t windowID) {
        return {Kind::windowNotFound, "window " + std::to_string(windowID) + " not found in shareable content"};
    }
    static CaptureError startFailed(const std::string& text) { return {Kind::startFailed, "capture start failed: " + text}; }
    static CaptureError permissionDenied() {
        return {Kind::permissionDenied,
                "Screen Recording permission missing (System Settings → Privacy & Security → Screen Recording)"};
    }

    Kind kind() const { return _kind; }

private:
    CaptureError(Kind kind, std::string description) : Error(std::move(description)), _kind(kind) {}
    Kind _kind;
};

}  // namespace tsl
