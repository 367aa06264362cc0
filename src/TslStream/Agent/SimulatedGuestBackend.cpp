#include "TslStream/Agent/SimulatedGuestBackend.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <thread>

#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Support/Localized.h"
#include "TslCore/Support/TesselVersion.h"
#include "TslStream/Agent/SampleApps.h"
#include "TslStream/Runtime/Timers.h"

namespace tsl {
namespace {

std::mutex counterLock;
int socketCounter = 0;

std::string nextSocketPath() {
    int n;
    {
        std::lock_guard guard(counterLock);
        n = ++socketCounter;
    }
    std::error_code ec;
    auto dir = std::filesystem::temp_directory_path(ec);
    if (ec) dir = "/tmp";
    return (dir / ("tslsim-" + std::to_string(::getpid()) + "-" + std::to_string(n) + ".sock")).string();
}

std::string osVersionString() {
    utsname name{};
    if (::uname(&name) != 0) return "unknown";
    return std::string(name.sysname) + " " + name.release;
}

bool isExecutableFile(const std::filesystem::path& path) {
    std::error_code ec;
    return std::filesystem::is_regular_file(path, ec) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

SimulatedGuestBackend::SimulatedGuestBackend(std::filesystem::path root, std::filesystem::path agentExecutable,
                                             std::vector<std::string> extraAgentArguments)
    : root(std::move(root)), agentExecutable(std::move(agentExecutable)),
      extraAgentArguments(std::move(extraAgentArguments)), socketPath(nextSocketPath()) {}

SimulatedGuestBackend::~SimulatedGuestBackend() {
    // Without the wait of stop(): the child ends on its own once the link goes.
    std::shared_ptr<AgentAcceptor> a;
    std::shared_ptr<SocketListener> l;
    {
        std::lock_guard guard(lock);
        a = std::move(acceptor);
        l = std::move(listener);
    }
    if (a)
        if (auto link = a->currentLink()) link->close();
    if (l) l->close();
}

std::filesystem::path SimulatedGuestBackend::defaultRoot(const std::filesystem::path& home) {
    return home / "Library" / "Application Support" / "Tessel-dev" / "sim-guest";
}

std::string SimulatedGuestBackend::displayName() const { return L("Simulation"); }

std::vector<SharedFolder> SimulatedGuestBackend::sharedEntries() const {
    std::vector<SharedFolder> entries{
        SharedFolder{std::string(SharedFolders::tesselEntryName), SafePaths::resolvedPath(sharedFolder().string())}};
    std::lock_guard guard(lock);
    entries.insert(entries.end(), userFolders.begin(), userFolders.end());
    return entries;
}

void SimulatedGuestBackend::setUserFolders(std::vector<SharedFolder> folders) {
    std::lock_guard guard(lock);
    userFolders = std::move(folders);
}

std::optional<std::string> SimulatedGuestBackend::guestPath(const std::filesystem::path& forHost) const {
    if (!SharedFolders::folder(forHost, sharedEntries())) return std::nullopt;
    return SafePaths::resolvedPath(forHost.string());
}

bool SimulatedGuestBackend::isRunning() const {
    std::lock_guard guard(lock);
    return process && process->isRunning();
}

asio::awaitable<std::shared_ptr<AgentLink>> SimulatedGuestBackend::start(Progress progress) {
    {
        std::shared_ptr<AgentLink> live;
        {
            std::lock_guard guard(lock);
            if (acceptor && process && process->isRunning()) live = acceptor->currentLink();
        }
        if (live && live->isLive()) co_return live;
    }
    co_await stop();

    if (!isExecutableFile(agentExecutable)) throw BackendError::agentMissing(agentExecutable.string());
    std::filesystem::create_directories(appsFolder());
    if (!placeSampleApps(appsFolder()))
        throw BackendError::failed("cannot place the sample applications in " + appsFolder().string());
    std::filesystem::create_directories(sharedFolder());
    if (progress) progress(L("Starting the simulated virtual Mac…"));

    Hello hello;
    hello.protocolVersion = Hello::currentProtocolVersion;
    hello.role = Hello::Role::host;
    hello.softwareVersion = std::string(TesselVersion::string);
    hello.osVersion = osVersionString();
    hello.arch = "arm64";
    hello.capabilities = {"simulation"};
    auto newAcceptor = std::make_shared<AgentAcceptor>(hello);
    auto newListener = std::make_shared<SocketListener>(SocketEndpoint::unix(socketPath), 8);
    std::thread(acceptLoop, newListener, std::weak_ptr<AgentAcceptor>(newAcceptor)).detach();

    std::vector<std::string> arguments{"--connect", "unix:" + socketPath, "--sim-root", root.string()};
    arguments.insert(arguments.end(), extraAgentArguments.begin(), extraAgentArguments.end());
    std::exception_ptr failure;
    try {
        Logger childLog = log;
        auto child = std::make_shared<Subprocess>(agentExecutable, arguments, [childLog](int status) {
            childLog.notice("simulated agent exited: %d", status);
        });
        std::lock_guard guard(lock);
        process = std::move(child);
        listener = newListener;
        acceptor = newAcceptor;
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        // Nothing was stored: the listener is this call's alone.
        newListener->close();
        co_await stop();
        std::rethrow_exception(failure);
    }

    std::shared_ptr<AgentLink> link;
    try {
        link = co_await newAcceptor->waitForLink(connectTimeout);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        co_await stop();
        std::rethrow_exception(failure);
    }
    if (progress) progress(L("The virtual Mac is ready."));
    co_return link;
}

asio::awaitable<void> SimulatedGuestBackend::suspend() { co_await stop(); }

asio::awaitable<void> SimulatedGuestBackend::stop() {
    std::shared_ptr<Subprocess> child;
    std::shared_ptr<SocketListener> oldListener;
    std::shared_ptr<AgentAcceptor> oldAcceptor;
    {
        std::lock_guard guard(lock);
        child = std::move(process);
        oldListener = std::move(listener);
        oldAcceptor = std::move(acceptor);
    }
    if (oldAcceptor)
        if (auto link = oldAcceptor->currentLink()) link->close();
    if (oldListener) oldListener->close();
    if (child && child->isRunning()) {
        child->terminate();
        for (int i = 0; i < 20 && child->isRunning(); ++i) co_await sleepFor(std::chrono::milliseconds(100));
    }
}

void SimulatedGuestBackend::acceptLoop(std::shared_ptr<SocketListener> listener, std::weak_ptr<AgentAcceptor> acceptor) {
    setThreadName("tsl.sim.accept");
    for (int n = 0;;) {
        int fd;
        try {
            fd = listener->accept();
        } catch (const std::exception&) {
            return;  // the listener was closed
        }
        if (!peerIsThisUser(fd)) {
            ::close(fd);
            continue;
        }
        auto target = acceptor.lock();
        if (!target) {
            ::close(fd);
            continue;
        }
        target->accept(fd, "sim-agent-" + std::to_string(++n), std::nullopt);
    }
}

}  // namespace tsl
