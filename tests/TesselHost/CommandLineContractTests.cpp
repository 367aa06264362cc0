// What every leaf command of `tessel` promises, whatever it does: help,
// usage errors and failures under --json, checked over the commands the
// tool itself lists, so that a new command cannot slip past.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Support/ChildProcess.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TesselHost/TesselRun.h"

namespace tsl::test {
namespace {

using Words = std::vector<std::string>;

std::string joined(const Words& words) {
    std::string out;
    for (const auto& w : words) out += (out.empty() ? "" : " ") + w;
    return out;
}

// The subcommands a help text lists, by name.
Words subcommandsIn(const std::string& help) {
    Words names;
    std::istringstream lines(help);
    bool inList = false;
    for (std::string line; std::getline(lines, line);) {
        if (line == "Subcommands:") inList = true;
        else if (inList && line.starts_with("  ") && line[2] != ' ')
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
        else if (inList && !line.starts_with("   ")) inList = false;
    }
    return names;
}

void collectLeaves(const Words& path, std::vector<Words>& leaves) {
    Words args = path;
    args.push_back("--help");
    const auto run = runTessel(args);
    ASSERT_EQ(run.status, 0) << joined(args) << "\n" << run.err;
    EXPECT_NE(run.out.find("Exit status: 0"), std::string::npos) << joined(args) << " has no exit status footer";
    const Words subs = subcommandsIn(run.out);
    if (subs.empty() && !path.empty()) leaves.push_back(path);
    for (const auto& sub : subs) {
        Words next = path;
        next.push_back(sub);
        collectLeaves(next, leaves);
    }
}

// Runs with standard output on a device that refuses every write: what a
// command that cannot otherwise fail does when its output is lost.
TesselRun runIntoFullDevice(const Words& args) {
    Words shell{"-c", "exec \"$0\" \"$@\" >/dev/full", tesselExecutable()};
    shell.insert(shell.end(), args.begin(), args.end());
    ChildProcess child("/bin/sh", shell);
    TesselRun run;
    run.status = child.wait();
    run.err = child.standardError();
    return run;
}

struct FailingCall {
    Words args;
    bool fullOutput = false;
};

TEST(CommandLineContract, EveryLeafCommandKeepsTheSameRules) {
    TempDir dir;
    const std::string missing = (dir / "missing.json").string();
    const std::string damaged = (dir / "damaged.json").string();
    writeFile(damaged, "{\"onboardingDone\": tru");
    writeFile(dir / "keys" / "trusted-keys.json", "not JSON");
    std::filesystem::create_directories(dir / "plain.app");
    const std::string plainApp = (dir / "plain.app").string();
    const std::string queue = (dir / "queue").string();

    const std::map<std::string, FailingCall> failing{
        {"scan", {{"scan", dir.path().string()}, true}},
        {"diag schema", {{"diag", "schema"}, true}},
        {"diag validate", {{"diag", "validate", missing}}},
        {"diag queue list", {{"diag", "queue", "--dir", queue, "list"}, true}},
        {"diag queue add", {{"diag", "queue", "--dir", queue, "add", missing}}},
        {"diag queue next", {{"diag", "queue", "--dir", queue, "next"}, true}},
        {"diag queue delivered", {{"diag", "queue", "--dir", queue, "delivered", "none"}}},
        {"compat", {{"compat", dir.path().string(), "--db", missing}}},
        {"feed keygen", {{"feed", "keygen", "k1", "--out", (dir / "keys").string()}}},
        {"feed sign", {{"feed", "sign", missing, "--key", missing, "--kid", "k1"}}},
        {"feed verify", {{"feed", "verify", missing, "--url", "https://example.invalid/f", "--keys", missing}}},
        {"feed fetch", {{"feed", "fetch", "https://example.invalid/f", "--keys", missing}}},
        {"share check", {{"share", "check", "/", "--home", dir.path().string()}}},
        {"migrate plan", {{"migrate", "plan", plainApp, "--share", dir.path().string()}}},
        {"migrate stage", {{"migrate", "stage", plainApp, "--share", dir.path().string()}}},
        {"migrate unstage", {{"migrate", "unstage", plainApp, "--share", dir.path().string()}}},
        {"state show", {{"state", "show", "--state", damaged}}},
        {"state check", {{"state", "check", "--state", damaged}}},
        {"setup", {{"setup", "--state", missing, "--status", missing}}},
        {"beta", {{"beta", "--state", damaged}}},
        {"sim", {{"sim", "--headless", "--agent", missing}}},
        {"view", {{"view", "--headless", "--connect", "unix:" + missing}}},
        {"apps", {{"apps", "--connect", "unix:" + missing}}},
        {"launch", {{"launch", "com.example.none", "--connect", "unix:" + missing}}},
        {"menus", {{"menus", "1", "--connect", "unix:" + missing}}},
        {"press", {{"press", "1", "1.4", "--connect", "unix:" + missing}}},
    };

    std::vector<Words> leaves;
    collectLeaves({}, leaves);
    ASSERT_GE(leaves.size(), failing.size());
    for (const Words& leaf : leaves) {
        const std::string name = joined(leaf);
        SCOPED_TRACE(name);
        Words unknown = leaf;
        // Past a command's required options, so that it is the unknown one that is refused.
        if (leaf.size() > 1 && leaf[1] == "queue") unknown.insert(unknown.begin() + 2, {"--dir", queue});
        unknown.push_back("--no-such-option");
        const auto usage = runTessel(unknown);
        EXPECT_EQ(usage.status, 2);
        EXPECT_NE(usage.err.find("tessel"), std::string::npos) << usage.err;

        const auto found = failing.find(name);
        ASSERT_NE(found, failing.end()) << "no failing call listed for this command";
        Words args = found->second.args;
        args.push_back("--json");
        const auto run = found->second.fullOutput ? runIntoFullDevice(args) : runTessel(args);
        EXPECT_EQ(run.status, 1) << run.err;
        if (run.out.empty()) EXPECT_TRUE(run.err.starts_with("tessel " + name + ": ")) << run.err;
        else EXPECT_FALSE(nlohmann::json::parse(run.out, nullptr, false).is_discarded()) << run.out;
    }
}

}  // namespace
}  // namespace tsl::test
