// The service's requests about guest applications: listing, launching,
// quitting and installing.
#include "TslAgent/AgentService.h"
#include "TslAgent/AppCatalog.h"
#include "TslAgent/BundleApps.h"

namespace tsl {
namespace {

std::shared_ptr<const AppSource> appsOf(const PlatformServices& platform, const AgentConfig& config) {
    if (platform.applications) return platform.applications;
    return std::make_shared<BundleApps>(config.appsDir, platform.workspace);
}

}  // namespace

asio::awaitable<ControlMessage> AgentService::listApps(ControlMessage) {
    co_return ControlMessage::AppList{AppCatalog::list(*appsOf(platform, _config))};
}

asio::awaitable<ControlMessage> AgentService::launchApp(ControlMessage request) {
    LaunchRequest launch = request.get<ControlMessage::LaunchApp>()->value;
    std::vector<std::filesystem::path> roots = _config.openRoots;
    if (roots.empty()) roots = {_config.sharedDir};
    // Awaited into a local: GCC 12 frees a temporary twice when a co_await
    // sits inside an aggregate initialiser.
    LaunchResult result = co_await AppCatalog::launch(std::move(launch), appsOf(platform, _config), std::move(roots),
                                                      _config.openExclusions, _config.isSimulation);
    co_return ControlMessage::Launched{std::move(result)};
}

asio::awaitable<ControlMessage> AgentService::quitApp(ControlMessage request) {
    AppCatalog::quit(request.get<ControlMessage::QuitApp>()->pid, *appsOf(platform, _config));
    co_return ControlMessage::Ok{};
}

asio::awaitable<ControlMessage> AgentService::installApp(ControlMessage request) {
    InstallRequest install = request.get<ControlMessage::InstallApp>()->value;
    const std::string bundleID = install.bundleID;
    const std::filesystem::path installed = co_await installs.run(AppInstaller(_config, platform.system), std::move(install));
    co_return ControlMessage::Installed{bundleID, installed.string()};
}

}  // namespace tsl
