#pragma once
#include <string>

// File-tree primitives shared by the copy and the share's moves. Everything
// works on descriptors and never follows a symbolic link below its start.
namespace tsl::FileTree {

// Removes the entry at `path` with all it holds; a link is removed, not
// followed. Folders are made writable by their owner on the way so that a
// read-only folder inside doesn't stop the removal. Returns 0 or the first
// errno met; a path that doesn't exist is success.
int removeAll(const std::string& path);

// Copies the "user." extended attributes of one open entry onto another.
// Returns 0 or the errno of the first call that failed.
int copyAttributes(int fromFd, int toFd);

// Creates every missing folder of `path` with `mode` (as mkdir -p would).
// Returns 0 or the errno of the first mkdir that failed.
int makeFolders(const std::string& path, unsigned mode);

}  // namespace tsl::FileTree
