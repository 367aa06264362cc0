#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Geometry.h"

namespace tsl {

// Status of an Accessibility call. Callers treat anything but success as
// failure; the other values say why, for logs and tests.
enum class AXError : int32_t {
    success = 0,
    failure = -25200,
    illegalArgument = -25201,
    invalidUIElement = -25202,
    cannotComplete = -25204,  // the application did not answer in time, or is gone
    attributeUnsupported = -25205,
    actionUnsupported = -25206,
    notImplemented = -25208,
    apiDisabled = -25211,
    noValue = -25212,
};

// An element of another process's user interface. Opaque: only the backend
// that made it knows what it names. A reference may outlive its element;
// calls on it then fail.
class AXElementRef {
public:
    virtual ~AXElementRef() = default;
};
using AXElement = std::shared_ptr<const AXElementRef>;

// A packed point or size, as "AXPosition" and "AXSize" carry them.
struct AXValue {
    enum class Type : uint32_t { cgPoint = 1, cgSize = 2 };
    Type type = Type::cgPoint;
    double first = 0;
    double second = 0;

    static AXValue point(Point p) { return {Type::cgPoint, p.x, p.y}; }
    static AXValue size(Size s) { return {Type::cgSize, s.width, s.height}; }
    std::optional<Point> pointValue() const {
        return type == Type::cgPoint ? std::optional<Point>(Point{first, second}) : std::nullopt;
    }
    std::optional<Size> sizeValue() const {
        return type == Type::cgSize ? std::optional<Size>(Size{first, second}) : std::nullopt;
    }
    bool operator==(const AXValue&) const = default;
};

// What an attribute holds: text, a flag, a number, a packed value, an
// element, or a list of elements.
using AXAttributeValue = std::variant<std::string, bool, int64_t, double, AXValue, AXElement, std::vector<AXElement>>;

// The Accessibility interface: elements of other processes, their
// attributes and actions. Every call waits for the target application to
// answer, up to the messaging time-out of the element it goes through.
class Accessibility {
public:
    virtual ~Accessibility() = default;

    // Whether this process may use Accessibility.
    virtual bool isProcessTrusted() = 0;
    // The same, optionally bringing up the system's request to the user.
    virtual bool isProcessTrustedWithOptions(bool prompt) = 0;

    // The application element of a process; made whether or not it exists.
    virtual AXElement createApplication(int32_t pid) = 0;
    // Applies to calls through this element and to the elements read from it.
    virtual AXError setMessagingTimeout(const AXElement& element, float seconds) = 0;

    virtual AXError copyAttributeValue(const AXElement& element, const std::string& attribute,
                                       std::optional<AXAttributeValue>& value) = 0;
    virtual AXError setAttributeValue(const AXElement& element, const std::string& attribute,
                                      const AXAttributeValue& value) = 0;
    virtual AXError performAction(const AXElement& element, const std::string& action) = 0;
};

}  // namespace tsl
