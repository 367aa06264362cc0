#pragma once
#include <filesystem>
#include <string>

namespace tsl::test {

// This build's source and output folders and its executables. Defined in one
// file built with the paths, so that every other test file compiles the same
// from any checkout (and a compiler cache serves a fresh clone).
const std::filesystem::path& sourceDir();
const std::filesystem::path& binaryDir();
const std::string& agentExecutable();
const std::string& tesselExecutable();
const std::string& testPatternExecutable();  // the X11 test pattern client

}  // namespace tsl::test
