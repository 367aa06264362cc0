#pragma once
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace tsl {

// Replaces the file at `path` with `bytes` so that a reader, or the file after
// a crash at any moment, holds either the old content or the new one: a fresh
// file beside it is written and made durable, renamed over the old one, and
// the folder is made durable too. Throws Error naming the step that failed;
// nothing is left behind on failure.
void writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode = 0644);

// How the temporary file for `fileName` begins: a writer killed before its
// rename leaves one behind, for the owner of the folder to sweep.
inline std::string atomicTemporaryPrefix(const std::string& fileName) { return fileName + ".tmp-"; }

// Removes from `folder` the temporary files of `fileNames` that are a minute
// old: no live writer keeps one that long. Best effort; never throws.
void sweepAtomicTemporaries(const std::string& folder, const std::vector<std::string>& fileNames);

}  // namespace tsl
