#pragma once
#include <string>
#include <vector>

// File-tree primitives. Everything below a starting point works on
// descriptors and never follows a symbolic link.
namespace tsl::FileTree {

// The names in an open folder, hidden ones included, "." and ".." left out,
// in the order the file system gives them. Returns 0 or an errno. The
// descriptor stays open; its read position moves.
int listNames(int folderFd, std::vector<std::string>& names);

// The same for a folder by path (followed if it is a link).
int listNames(const std::string& folder, std::vector<std::string>& names);

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
