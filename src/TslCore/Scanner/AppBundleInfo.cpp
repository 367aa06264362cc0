#include "TslCore/Scanner/AppBundleInfo.h"

#include <plist/plist.h>

#include <memory>
#include <string_view>

#include "TslCore/Scanner/MachO.h"
#include "TslCore/Scanner/PlistDepth.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/Utf8.h"

namespace tsl {
namespace {

// Far above any real Info.plist; a larger file is treated as unreadable
// rather than loaded.
constexpr size_t maxInfoPlistBytes = 8 << 20;

using PlistPtr = std::unique_ptr<std::remove_pointer_t<plist_t>, decltype(&plist_free)>;

// The Info.plist's root dictionary, or nothing when it can't be had.
PlistPtr readInfoPlist(const std::string& bundle) {
    PlistPtr root(nullptr, &plist_free);
    const auto data = BoundedFile::bytesOf(PathNames::appending(bundle, "Contents/Info.plist"), maxInfoPlistBytes);
    if (!data || data->empty()) return root;
    if (!PlistDepth::within({reinterpret_cast<const uint8_t*>(data->data()), data->size()})) return root;
    plist_t parsed = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(data->data()), static_cast<uint32_t>(data->size()), &parsed);
    root.reset(parsed);
    if (root && plist_get_node_type(root.get()) != PLIST_DICT) root.reset();
    return root;
}

// A key counts only when its value is a string.
std::optional<std::string> stringValue(plist_t dict, const char* key) {
    if (!dict) return std::nullopt;
    plist_t node = plist_dict_get_item(dict, key);
    if (!node || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    if (!text) return std::nullopt;
    return repairedUtf8(std::string_view(text, static_cast<size_t>(length)));
}

template <typename... Keys>
std::optional<std::string> firstString(plist_t dict, Keys... keys) {
    std::optional<std::string> value;
    ((value = value ? value : stringValue(dict, keys)), ...);
    return value;
}

}  // namespace

AppBundleInfo AppBundleInfo::read(const std::filesystem::path& bundleAt) {
    const std::string path = PathNames::urlPath(bundleAt.native());
    const PlistPtr plist = readInfoPlist(path);
    const plist_t dict = plist.get();
    const std::string fallback = PathNames::stem(path);

    AppBundleInfo info;
    info.path = path;
    info.name = firstString(dict, "CFBundleDisplayName", "CFBundleName").value_or(fallback);
    info.executable = firstString(dict, "CFBundleExecutable").value_or(fallback);
    info.bundleID = firstString(dict, "CFBundleIdentifier");
    info.version = firstString(dict, "CFBundleShortVersionString", "CFBundleVersion");
    info.minimumSystemVersion = firstString(dict, "LSMinimumSystemVersion");
    if (BundleTraits::isPlainExecutableName(*info.executable)) {
        try {
            info.archs = MachO::archs(PathNames::appending(path, "Contents/MacOS/" + *info.executable));
        } catch (const std::exception&) {
            info.archs.clear();
        }
    }
    info.archClass = classify(info.archs);
    info.traits = BundleTraits::inspect(path, info.executable);
    return info;
}

}  // namespace tsl
