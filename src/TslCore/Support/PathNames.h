#pragma once
#include <string>
#include <string_view>

// Lexical path helpers with the file-URL meanings the rest of the code
// relies on. None of them touches the file system except absolutePath and
// standardizedPath, which read the current directory for a relative path.
// Resolving links is PhysicalPath's.
namespace tsl::PathNames {

// Absolute from the working directory, otherwise as written: nothing folded,
// a trailing "/" kept ("" is the working directory itself).
std::string absolutePath(std::string_view path);

// Absolute, with "." and ".." folded and repeated or trailing "/" removed.
// No link is resolved.
std::string standardizedPath(std::string_view path);

// The path as a file URL reports it: trailing "/" removed, except for the root.
std::string urlPath(std::string_view path);

// The last component, trailing "/" ignored ("/" for the root itself).
std::string lastComponent(std::string_view path);

// The path without its last component ("/" for a child of the root).
std::string deletingLastComponent(std::string_view path);

// The text after the last "." of the last component; empty when there is no
// dot, when the dot leads (hidden names) or when nothing follows it.
std::string extension(std::string_view name);

// The last component without its extension and the dot before it.
std::string stem(std::string_view path);

// `base` + "/" + `name`, without doubling a "/" after the root.
std::string appending(std::string_view base, std::string_view name);

}  // namespace tsl::PathNames
