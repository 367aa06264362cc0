#pragma once
#include <filesystem>
#include <string>

#include "Support/Files.h"
#include "Support/TestPaths.h"

namespace tsl::test {

// A test input kept as a file under tests/<module>/data/.
inline std::string dataFile(const std::string& module, const std::string& name) {
    return readFile(sourceDir() / "tests" / module / "data" / name);
}

}  // namespace tsl::test
