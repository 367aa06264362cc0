#include "Support/TestPaths.h"

namespace tsl::test {

const std::filesystem::path& sourceDir() {
    static const std::filesystem::path dir = TSL_SOURCE_DIR;
    return dir;
}

const std::filesystem::path& binaryDir() {
    static const std::filesystem::path dir = TSL_BINARY_DIR;
    return dir;
}

const std::string& agentExecutable() {
    static const std::string path = TSL_AGENT_EXE;
    return path;
}

const std::string& tesselExecutable() {
    static const std::string path = (binaryDir() / "src" / "tessel").string();
    return path;
}

const std::string& testPatternExecutable() {
    static const std::string path = (binaryDir() / "tools" / "x11-testpattern").string();
    return path;
}

}  // namespace tsl::test
