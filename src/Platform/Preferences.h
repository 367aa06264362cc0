#pragma once
#include <optional>
#include <string>

#include "Platform/PlatformValue.h"

namespace tsl {

// The preferences system: values by key in domains of application, user
// and host.
class Preferences {
public:
    static constexpr const char* anyApplication = "kCFPreferencesAnyApplication";
    enum class User : uint8_t { current, any };
    enum class Host : uint8_t { current, any };

    virtual ~Preferences() = default;

    virtual std::optional<PlatformValue> copyValue(const std::string& key, const std::string& application, User user,
                                                   Host host) = 0;
    // An absent value removes the key.
    virtual void setValue(const std::string& key, const std::optional<PlatformValue>& value,
                          const std::string& application, User user, Host host) = 0;
    // Writes pending changes out; false if that failed.
    virtual bool synchronize(const std::string& application, User user, Host host) = 0;
};

}  // namespace tsl
