// Guest applications: listing 500 bundles against the scanner alone on the
// same tree, and installing a 200 MB bundle from the share against `cp -a`.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchSupport.h"
#include "Platform/Sim/Desktop.h"
#include "TslAgent/AppCatalog.h"
#include "TslAgent/AppInstaller.h"
#include "TslAgent/BundleApps.h"
#include "TslCore/Scanner/AppScanner.h"

namespace fs = std::filesystem;
using namespace tsl;

namespace {

void writeFile(const fs::path& path, size_t bytes, char fill) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    const std::string block(std::min<size_t>(bytes, 1 << 20), fill);
    for (size_t done = 0; done < bytes; done += block.size()) out.write(block.data(), std::streamsize(std::min(block.size(), bytes - done)));
}

void writeInfo(const fs::path& bundle, const std::string& id, const std::string& name) {
    fs::create_directories(bundle / "Contents");
    std::ofstream(bundle / "Contents" / "Info.plist")
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
        << "<key>CFBundleIdentifier</key><string>" << id << "</string>"
        << "<key>CFBundleName</key><string>" << name << "</string>"
        << "<key>CFBundleShortVersionString</key><string>1.2.3</string></dict></plist>\n";
}

void listing(const fs::path& root) {
    const fs::path apps = root / "Applications";
    for (int i = 0; i < 500; ++i) {
        const std::string name = "App " + std::to_string(i);
        writeInfo(apps / (name + ".app"), "com.example.app" + std::to_string(i), name);
        writeFile(apps / (name + ".app") / "Contents" / "MacOS" / name, 4096, 'x');
    }
    auto desktop = Sim::Desktop::make();
    for (int i = 0; i < 500; i += 10) desktop->launch(apps / ("App " + std::to_string(i) + ".app"), false);
    auto workspace = desktop->services().workspace;

    size_t listed = 0;
    const double scanner = bench::bestSeconds(5, [&] {
        listed = AppScanner{.options = {.roots = {apps}, .includeApple = true, .maxDepth = 1}}.scan().apps.size();
    });
    const double catalog =
        bench::bestSeconds(5, [&] { listed = AppCatalog::list(BundleApps(apps, workspace)).size(); });
    std::printf("listApps, %zu bundles, 50 running: %.1f ms; scanner alone %.1f ms\n", listed, catalog * 1e3,
                scanner * 1e3);
    bench::ratioLine("listApps against the scanner alone", scanner, catalog, 0.9);
}

void installing(const fs::path& root) {
    const fs::path share = root / "Shared";
    const fs::path bundle = share / "Migrate" / "com.example.big" / "Big.app";
    writeInfo(bundle, "com.example.big", "Big");
    // 160 MB in four large files, 40 MB in 10,000 small ones across 100 folders.
    for (int i = 0; i < 4; ++i) writeFile(bundle / "Contents" / "Resources" / ("large" + std::to_string(i)), 40 << 20, char('a' + i));
    for (int i = 0; i < 10000; ++i)
        writeFile(bundle / "Contents" / "Resources" / ("d" + std::to_string(i / 100)) / ("f" + std::to_string(i)), 4096, 's');
    const double megabytes = 200;

    AgentConfig config(AgentConfig::Mode::listen(SocketEndpoint::unix("/unused")), root / "Applications", share,
                       root / "Preferences", root / "Support", true, false, false, InjectionMode::pid);
    const AppInstaller installer(config, nullptr);
    const fs::path copy = root / "cp-copy";
    const std::string command = "cp -a '" + bundle.string() + "' '" + copy.string() + "'";
    double cp = 1e30, install = 1e30;
    for (int round = 0; round < 3; ++round) {
        fs::remove_all(copy);
        cp = std::min(cp, bench::bestSeconds(1, [&] {
                          if (std::system(command.c_str()) != 0) std::abort();
                      }));
        fs::remove_all(config.appsDir);
        install = std::min(install, bench::bestSeconds(1, [&] { installer.install({bundle.string(), "com.example.big"}); }));
    }
    std::printf("install of 200 MB (4 large files, 10,000 small): %.0f MB/s; cp -a %.0f MB/s\n", megabytes / install,
                megabytes / cp);
    bench::ratioLine("install throughput against cp -a", cp, install, 0.8);
}

// In memory where it can be (600 MB at the peak), so the disk's own
// write-back, shared with whatever else runs, doesn't decide the figures.
fs::path benchRoot() {
    std::error_code ec;
    const auto space = fs::space("/dev/shm", ec);
    const fs::path base = !ec && space.available > (size_t(1) << 30) ? fs::path("/dev/shm") : fs::temp_directory_path();
    return base / ("tsl-apps-bench-" + std::to_string(::getpid()));
}

}  // namespace

int main() {
    const fs::path root = benchRoot();
    fs::create_directories(root);
    listing(root / "list");
    installing(root / "install");
    fs::remove_all(root);
}
