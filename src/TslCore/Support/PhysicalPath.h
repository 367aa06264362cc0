#pragma once
#include <string>
#include <string_view>

namespace tsl::PhysicalPath {

// Where the path leads as the kernel walks it: each symbolic link followed
// where it is met, a dangling one too, and ".." taken after the link, not
// before; what does not exist is only folded. SafePaths::resolvedPath differs
// on both counts: it folds ".." first and stops at a dangling link. This is
// the one for "would a write here land in that folder?".
std::string resolved(const std::string& path);

}  // namespace tsl::PhysicalPath
