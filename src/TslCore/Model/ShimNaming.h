#pragma once
#include <string>
#include <string_view>

// Names of the small host bundles that stand for kept applications.
namespace tsl::ShimNaming {

// The host folders that hold the shims; the second is the older place.
inline constexpr std::string_view folderName = "Tessel";
inline constexpr std::string_view legacyFolderName = "Tessel Apps";

// "com.tessel.shim." and the original identifier lower-cased, with every
// character other than a letter, a number, "." or "-" made "-", and "." and
// "-" trimmed from both ends.
std::string bundleID(std::string_view forOriginal);

// The application's name made safe as one file name, with ".app" behind it:
// "/" and ":" become "-", white space is trimmed, and an empty or hidden name
// becomes "App".
std::string bundleName(std::string_view forAppName);

}  // namespace tsl::ShimNaming
