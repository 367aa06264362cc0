// Files the user names to `tessel` may be anything: a folder, an endless
// device, a pipe nobody writes to. Each command refuses them at once.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Support/ChildProcess.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"

namespace tsl::test {
namespace {

using namespace std::chrono_literals;

TEST(OutsideFiles, CommandsRefuseFoldersDevicesAndPipesWithoutWaiting) {
    TempDir dir;
    const std::string fifo = (dir / "fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string missing = (dir / "none.json").string();
    struct Case {
        std::string path, reason;
    };
    const std::vector<Case> cases{{dir.path().string(), "a folder, not a file"},
                                  {"/dev/zero", "not a regular file"},
                                  {fifo, "not a regular file"}};
    for (const auto& [path, reason] : cases) {
        const std::vector<std::vector<std::string>> commands{
            {"state", "show", "--state", path},
            {"setup", "--state", missing, "--status", path},
            {"diag", "validate", path},
            {"compat", dir.path().string(), "--db", path},
        };
        for (const auto& args : commands) {
            SCOPED_TRACE(args[0] + " " + path);
            ChildProcess tessel(tesselExecutable(), args);
            ASSERT_EQ(tessel.wait(5s), 1) << "still reading, or not refused";
            const std::string said = tessel.standardOutput() + tessel.standardError();
            EXPECT_NE(said.find(reason), std::string::npos) << said;
        }
    }
}

}  // namespace
}  // namespace tsl::test
