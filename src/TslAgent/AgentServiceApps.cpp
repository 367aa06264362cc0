// The service's requests about guest applications: listing, launching,
// quitting and installing.
#include "TslAgent/AgentService.h"
#include "TslAgent/AppCatalog.h"

namespace tsl {

asio::awaitable<ControlMessage> AgentService::listApps(ControlMessage) {
    co_return ControlMessage::AppList{AppCatalog::list(_config.appsDir, *platform.workspace)};
}

asio::awaitable<ControlMessage> AgentService::launchApp(ControlMessage request) {
    LaunchRequest launch = request.get<ControlMessage::LaunchApp>()->value;
    std::vector<std::filesystem::path> roots = _config.openRoots;
    if (roots.empty()) roots = {_config.sharedDir};
    // Awaited into a local: GCC 12 frees a temporary twice when a co_await
    // sits inside an aggregate initialiser.
    LaunchResult result = co_await AppCatalog::launch(std::move(launch), _config.appsDir, std::move(roots),
                                                      _config.openExclusions, _config.isSimulation, platform.workspace);
    co_return ControlMessage::Launched{std::move(result)};
}

asio::awaitable<ControlMessage> AgentService::quitApp(ControlMessage request) {
    AppCatalog::quit(request.get<ControlMessage::QuitApp>()->pid, _config.appsDir, *platform.workspace);
    co_return ControlMessage::Ok{};
}

asio::awaitable<ControlMessage> AgentService::installApp(ControlMessage request) {
    InstallRequest install = request.get<ControlMessage::InstallApp>()->value;
    const std::string bundleID = install.bundleID;
    const std::filesystem::path installed = co_await installs.run(AppInstaller(_config, platform.system), std::move(install));
    co_return ControlMessage::Installed{bundleID, installed.string()};
}

}  // namespace tsl
