#pragma once
#include <filesystem>

#include "Platform/Platform.h"
#include "TslCore/Model/SharedFolderConstants.h"

namespace tsl {

// Makes the guest's open and save panels start in the share's Documents
// folder, so that what the user saves lands on the host's side.
namespace GuestDocuments {

inline constexpr const char* lastRootKey = "NSNavLastRootDirectory";

// Points the panels at <mountPoint>/Documents when that folder exists and the
// user hasn't chosen a folder of their own: an empty or missing setting, or
// one that names the home folder or its Documents, is replaced. Never fails.
void pointPanelsAtSharedDocuments(const PlatformServices& platform,
                                  const std::filesystem::path& mountPoint = SharedFolders::guestMountPoint);

}  // namespace GuestDocuments

}  // namespace tsl
