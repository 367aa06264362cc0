#include "TslCore/Scanner/BundleTraits.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>

#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Scanner/MachO.h"
#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/PathNames.h"

namespace tsl {
namespace {

constexpr size_t maxEmbeddedCandidates = 30;
constexpr size_t maxDrivers = 10;
constexpr int libraryDepthLimit = 3;
constexpr int resourcesDepthLimit = 0;

using PathNames::appending;

bool isLink(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// `path` after resolving its links lies below `contents` (resolved likewise).
bool isContained(const std::string& path, const std::string& resolvedContents) {
    return SafePaths::resolvedPath(path).starts_with(resolvedContents + "/");
}

struct LibraryUse {
    bool openGL = false;
    bool openCL = false;

    void note(const std::vector<std::string>& dylibs) {
        for (const auto& lib : dylibs) {
            if (lib.find("/OpenGL.framework/") != std::string::npos || lib.find("/AGL.framework/") != std::string::npos)
                openGL = true;
            if (lib.find("/OpenCL.framework/") != std::string::npos) openCL = true;
        }
    }
    bool complete() const { return openGL && openCL; }
};

// The files inside Contents/Frameworks that the bundle-relative library
// paths name. System libraries are never read; only the file at a
// framework's top is used, whatever version the path named.
std::vector<std::string> embedded(const std::vector<std::string>& dylibs, const std::string& frameworks) {
    std::vector<std::string> candidates;
    for (const auto& lib : dylibs) {
        if (!lib.starts_with('@')) continue;
        std::vector<std::string> pieces;
        for (size_t at = 0; at <= lib.size();) {
            const size_t slash = std::min(lib.find('/', at), lib.size());
            if (slash > at) pieces.push_back(lib.substr(at, slash - at));
            at = slash + 1;
        }
        if (pieces.empty()) continue;
        const auto framework =
            std::find_if(pieces.begin(), pieces.end(), [](const std::string& p) { return p.ends_with(".framework"); });
        if (framework != pieces.end()) {
            const std::string name = framework->substr(0, framework->size() - std::string_view(".framework").size());
            if (!SafePaths::isSingleComponent(*framework) || name.empty()) continue;
            if (isLink(appending(frameworks, *framework))) continue;
            candidates.push_back(appending(appending(frameworks, *framework), name));
            continue;
        }
        const std::string& last = pieces.back();
        if (last.ends_with(".dylib") && SafePaths::isSingleComponent(last) && !isLink(appending(frameworks, last)))
            candidates.push_back(appending(frameworks, last));
    }
    return candidates;
}

bool isDriverExtension(std::string extension) {
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::find(BundleTraits::driverExtensions.begin(), BundleTraits::driverExtensions.end(), extension) !=
           BundleTraits::driverExtensions.end();
}

// The bound is tested on entering a folder, so one folder may carry the list
// somewhat past it.
void findDrivers(const std::string& folder, int depth, int limit, std::vector<std::string>& found) {
    if (depth > limit || found.size() >= maxDrivers) return;
    std::vector<std::string> names;
    (void)FileTree::listNames(folder, names);  // a folder that can't be listed counts as empty
    for (const auto& name : names) {
        const std::string path = appending(folder, name);
        struct stat st {};
        // An entry whose kind can't be read counts as no link and no folder.
        const bool known = ::lstat(path.c_str(), &st) == 0;
        if (known && S_ISLNK(st.st_mode)) continue;
        const std::string extension = PathNames::extension(name);
        if (isDriverExtension(extension)) found.push_back(name);
        if (extension.empty() && known && S_ISDIR(st.st_mode)) findDrivers(path, depth + 1, limit, found);
    }
}

}  // namespace

BundleTraits BundleTraits::inspect(const std::filesystem::path& bundleAt,
                                   const std::optional<std::string>& executable) {
    const std::string contents = appending(bundleAt.native(), "Contents");
    BundleTraits traits;
    LibraryUse use;
    if (executable && isPlainExecutableName(*executable)) {
        const std::string resolvedContents = SafePaths::resolvedPath(contents);
        const std::string exe = appending(appending(contents, "MacOS"), *executable);
        // An executable that leads out of the bundle isn't read.
        if (isContained(exe, resolvedContents)) {
            const auto dylibs = MachO::linkedDylibs(exe, false);
            use.note(dylibs);
            const auto candidates = embedded(dylibs, appending(contents, "Frameworks"));
            for (size_t i = 0; i < candidates.size() && i < maxEmbeddedCandidates && !use.complete(); ++i) {
                // One level only: the candidates' own libraries aren't followed.
                if (isContained(candidates[i], resolvedContents)) use.note(MachO::linkedDylibs(candidates[i], false));
            }
        }
    }
    traits.usesOpenGL = use.openGL;
    traits.usesOpenCL = use.openCL;
    struct stat st {};
    traits.appStoreReceipt = ::stat(appending(contents, "_MASReceipt/receipt").c_str(), &st) == 0;
    findDrivers(appending(contents, "Library"), 0, libraryDepthLimit, traits.drivers);
    findDrivers(appending(contents, "Resources"), 0, resourcesDepthLimit, traits.drivers);
    std::sort(traits.drivers.begin(), traits.drivers.end());
    return traits;
}

}  // namespace tsl
