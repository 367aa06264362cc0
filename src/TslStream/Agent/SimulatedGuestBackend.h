#pragma once
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TslStream/Agent/AgentAcceptor.h"
#include "TslStream/Agent/BackendError.h"
#include "TslStream/Agent/GuestBackend.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Support/Subprocess.h"
#include "TslStream/Transport/Socket.h"

namespace tsl {

// A guest without a virtual machine: the agent runs as a child process in
// simulation mode, in a folder tree of its own, and dials back over a unix
// socket in the system's temporary folder. The simulated guest shares the
// host's paths.
//
// `lock` guards the child, the listener, the acceptor and the user's folders;
// it is held for field work only. Two overlapping starts are not serialised.
class SimulatedGuestBackend : public GuestBackend {
public:
    static constexpr double connectTimeout = 15.0;

    SimulatedGuestBackend(std::filesystem::path root, std::filesystem::path agentExecutable,
                          std::vector<std::string> extraAgentArguments = {});
    ~SimulatedGuestBackend() override;

    // "Library/Application Support/Tessel-dev/sim-guest" under `home`.
    static std::filesystem::path defaultRoot(const std::filesystem::path& home);

    const std::filesystem::path root;
    const std::filesystem::path agentExecutable;
    const std::vector<std::string> extraAgentArguments;
    const std::string socketPath;

    std::filesystem::path appsFolder() const { return root / "Applications"; }

    std::string displayName() const override;
    bool isSimulation() const override { return true; }
    std::filesystem::path sharedFolder() const override { return root / "Shared"; }
    std::vector<SharedFolder> sharedEntries() const override;
    void setUserFolders(std::vector<SharedFolder> folders) override;
    std::optional<std::string> guestPath(const std::filesystem::path& forHost) const override;

    // The running agent's link when it lives, else a fresh agent's.
    asio::awaitable<std::shared_ptr<AgentLink>> start(Progress progress) override;
    // A simulation has no suspended state: the same as stop().
    asio::awaitable<void> suspend() override;
    // Closes link and listener, asks the child to terminate and waits up to
    // two seconds for it; a child still running after that is left alone.
    asio::awaitable<void> stop() override;
    bool isRunning() const override;

private:
    static void acceptLoop(std::shared_ptr<SocketListener> listener, std::weak_ptr<AgentAcceptor> acceptor);

    Logger log{"com.tessel.app", "simulation"};
    mutable std::mutex lock;
    std::shared_ptr<Subprocess> process;
    std::shared_ptr<SocketListener> listener;
    std::shared_ptr<AgentAcceptor> acceptor;
    std::vector<SharedFolder> userFolders;
};

}  // namespace tsl
