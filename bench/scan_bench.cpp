// Scans a generated tree of 5,000 application bundles and compares reading
// slices with MachO::archs against a plain read of the same 1032 bytes.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "BenchSupport.h"
#include "TslCore/Scanner/AppScanner.h"
#include "TslCore/Scanner/MachO.h"

namespace fs = std::filesystem;
using namespace tsl;

namespace {

constexpr int vendorCount = 50;
constexpr int bundlesPerVendor = 100;

struct Bytes8 {
    std::string data;
    void le32(uint32_t v) {
        for (int s = 0; s <= 24; s += 8) data.push_back(static_cast<char>(v >> s));
    }
    void be32(uint32_t v) {
        for (int s = 24; s >= 0; s -= 8) data.push_back(static_cast<char>(v >> s));
    }
};

// A small thin 64-bit executable: header, a few library loads, some padding.
std::string thinExecutable(uint32_t cpu) {
    Bytes8 commands;
    const char* libs[] = {"/usr/lib/libSystem.B.dylib", "/System/Library/Frameworks/OpenGL.framework/Versions/A/OpenGL",
                          "@rpath/Engine.framework/Versions/A/Engine"};
    for (const char* lib : libs) {
        const uint32_t size = static_cast<uint32_t>((24 + std::string(lib).size() + 1 + 7) / 8 * 8);
        const size_t start = commands.data.size();
        commands.le32(0xC), commands.le32(size), commands.le32(24), commands.le32(2), commands.le32(0x10000),
            commands.le32(0x10000);
        commands.data += lib;
        commands.data.resize(start + size, '\0');
    }
    Bytes8 file;
    file.le32(0xFEEDFACF), file.le32(cpu), file.le32(cpu == 0x1000007 ? 3 : 0), file.le32(2), file.le32(3);
    file.le32(static_cast<uint32_t>(commands.data.size())), file.le32(0), file.le32(0);
    file.data += commands.data;
    file.data.resize(16384, '\0');
    return file.data;
}

std::string fatExecutable(const std::string& intel, const std::string& arm) {
    Bytes8 file;
    file.be32(0xCAFEBABE), file.be32(2);
    for (const auto& [cpu, offset, size] :
         {std::tuple{0x1000007u, 0x4000u, intel.size()}, {0x100000Cu, 0x8000u, arm.size()}}) {
        file.be32(cpu), file.be32(cpu == 0x1000007u ? 3 : 0), file.be32(offset);
        file.be32(static_cast<uint32_t>(size)), file.be32(14);
    }
    file.data.resize(0x4000, '\0');
    file.data += intel;
    file.data.resize(0x8000, '\0');
    file.data += arm;
    return file.data;
}

void write(const fs::path& path, const std::string& data) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary).write(data.data(), static_cast<std::streamsize>(data.size()));
}

// Returns the executables' paths.
std::vector<fs::path> makeTree(const fs::path& root) {
    const std::string intel = thinExecutable(0x1000007), arm = thinExecutable(0x100000C);
    const std::string universal = fatExecutable(intel, arm);
    std::vector<fs::path> executables;
    for (int v = 0; v < vendorCount; ++v) {
        for (int b = 0; b < bundlesPerVendor; ++b) {
            const int n = v * bundlesPerVendor + b;
            const std::string name = (n % 2 ? "app " : "App ") + std::to_string((n * 7919) % 10007);
            const fs::path bundle = root / ("Vendor " + std::to_string(v)) / (name + ".app");
            const auto entry = [](const std::string& key, const std::string& value) {
                return "<key>" + key + "</key><string>" + value + "</string>";
            };
            write(bundle / "Contents/Info.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
                      entry("CFBundleName", name) + entry("CFBundleExecutable", "Main") +
                      entry("CFBundleIdentifier", "com.example.app" + std::to_string(n)) +
                      entry("CFBundleShortVersionString", "1." + std::to_string(n % 10)) + "</dict></plist>\n");
            executables.push_back(bundle / "Contents/MacOS/Main");
            write(executables.back(), n % 3 == 0 ? universal : (n % 3 == 1 ? intel : arm));
        }
    }
    return executables;
}

size_t plainRead(const fs::path& path) {
    std::array<char, MachO::headerProbeSize> buffer;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    const ssize_t n = ::read(fd, buffer.data(), buffer.size());
    ::close(fd);
    return n > 0 ? static_cast<size_t>(n) + static_cast<unsigned char>(buffer[0]) : 0;
}

}  // namespace

int main() {
    std::string tmpl = (fs::temp_directory_path() / "tsl-scan-bench-XXXXXX").native();
    if (!::mkdtemp(tmpl.data())) {
        std::perror("mkdtemp");
        return 1;
    }
    const fs::path root = tmpl;
    const auto executables = makeTree(root);
    const double files = static_cast<double>(executables.size());
    std::printf("tree: %zu bundles in %d folders under %s\n", executables.size(), vendorCount, root.c_str());

    AppScanner scanner{{{root}, false, 2}};
    size_t found = 0;
    const double scanSeconds = bench::bestSeconds(3, [&] { found = scanner.scan().apps.size(); });
    std::printf("scan: %zu bundles in %.3f s, %.0f bundles/s\n", found, scanSeconds,
                static_cast<double>(found) / scanSeconds);

    size_t sink = 0;
    const double plainSeconds = bench::bestSeconds(5, [&] {
        for (const auto& p : executables) sink += plainRead(p);
    });
    const double archsSeconds = bench::bestSeconds(5, [&] {
        for (const auto& p : executables) sink += MachO::archs(p).size();
    });
    const double dylibSeconds = bench::bestSeconds(5, [&] {
        for (const auto& p : executables) sink += MachO::linkedDylibs(p, false).size();
    });
    std::printf("plain 1032-byte read: %.2f us/file\n", plainSeconds / files * 1e6);
    std::printf("MachO::archs:         %.2f us/file\n", archsSeconds / files * 1e6);
    std::printf("MachO::linkedDylibs:  %.2f us/file\n", dylibSeconds / files * 1e6);
    bench::ratioLine("MachO::archs throughput vs plain read", plainSeconds / archsSeconds, 1.0, 0.7);
    std::printf("(checksum %zu)\n", sink);

    std::error_code ec;
    fs::remove_all(root, ec);
    return found == executables.size() ? 0 : 1;
}
