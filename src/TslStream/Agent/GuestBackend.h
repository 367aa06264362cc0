#pragma once
#include <asio/awaitable.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TslStream/Agent/SharedFolderStandIn.h"
#include "TslStream/Agent/AgentLink.h"

namespace tsl {

// The host's handle on a guest: started, it yields the agent's link; it
// knows which host folders the guest sees and where.
class GuestBackend {
public:
    using Progress = std::function<void(const std::string&)>;

    virtual ~GuestBackend() = default;

    virtual std::string displayName() const = 0;
    virtual bool isSimulation() const = 0;
    // The host folder shared with the guest as the product's own entry.
    virtual std::filesystem::path sharedFolder() const = 0;
    virtual std::vector<SharedFolder> sharedEntries() const = 0;
    virtual void setUserFolders(std::vector<SharedFolder> folders) = 0;
    // Where the guest sees a host file; nothing outside the shared folders.
    virtual std::optional<std::string> guestPath(const std::filesystem::path& forHost) const = 0;

    virtual asio::awaitable<std::shared_ptr<AgentLink>> start(Progress progress) = 0;
    virtual asio::awaitable<void> suspend() = 0;
    virtual asio::awaitable<void> stop() = 0;
    virtual bool isRunning() const = 0;
};

}  // namespace tsl
