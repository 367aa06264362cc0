// `tessel feed`: keys, signatures, and downloads from a loopback HTTPS server.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Support/ChildProcess.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TesselHost/TesselRun.h"
#include "TslCore/Compat/CompatUpdater.h"
#include "TslCore/Support/Base64.h"

namespace fs = std::filesystem;
using namespace tsl;
using namespace tsl::test;

namespace {

const std::string openssl = "/usr/bin/openssl";
const std::string feedBody =
    R"({"schema":1,"updated":"2026-11-01","apps":[{"bundleID":"a","name":"A","status":"works"},)"
    R"({"bundleID":"b","name":"B","status":"limited"}]})";

bool run(const std::string& program, const std::vector<std::string>& args) {
    ChildProcess child(program, args);
    return child.wait() == 0;
}

std::string urlSafe(std::string base64) {
    for (char& c : base64) c = c == '+' ? '-' : c == '/' ? '_' : c;
    base64.erase(base64.find_last_not_of('=') + 1);
    return base64;
}

// A signing key and its trusted-keys file, made by the tool itself.
struct Keys {
    TempDir dir;
    fs::path keys = dir / "trusted-keys.json";
    fs::path body = dir / "v1.json";
    Keys() {
        EXPECT_EQ(runTessel({"feed", "keygen", "main", "--out", dir.path()}).status, 0);
        writeFile(body, feedBody);
    }
    std::string sign(const fs::path& file) const {
        auto r = runTessel({"feed", "sign", file, "--key", dir / "main.key", "--kid", "main"});
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out.substr(0, r.out.find('\n'));
    }
};

}  // namespace

TEST(TesselFeed, KeygenSignAndVerifyAgree) {
    Keys k;
    EXPECT_EQ(modeOf(k.dir / "main.key") & 0777, 0600u);
    EXPECT_EQ(Base64::decode(readFile(k.dir / "main.key").substr(0, 44))->size(), 32u);
    EXPECT_EQ(runTessel({"feed", "keygen", "second", "--out", k.dir.path()}).status, 0);
    const auto table = nlohmann::json::parse(readFile(k.keys));
    EXPECT_EQ(table.size(), 2u);
    EXPECT_EQ(Base64::decode(table.at("main").get<std::string>())->size(), 32u);
    // An existing key is never replaced.
    EXPECT_EQ(runTessel({"feed", "keygen", "main", "--out", k.dir.path()}).status, 1);
    EXPECT_EQ(runTessel({"feed", "keygen", "bad.id", "--out", k.dir.path()}).status, 2);

    const std::string signature = k.sign(k.body);
    const auto verify = [&](const std::string& url, const std::string& sig) {
        return runTessel({"feed", "verify", k.body, "--url", url, "--signature", sig, "--keys", k.keys});
    };
    auto ok = verify("https://feed.example/compat/v1.json", signature);
    EXPECT_EQ(ok.status, 0) << ok.err;
    EXPECT_EQ(ok.out, "2 entries, updated 2026-11-01\n");

    EXPECT_EQ(verify("http://feed.example/compat/v1.json", signature).err, "tessel feed verify: refused: notHTTPS\n");
    EXPECT_EQ(verify("https://feed.example/compat/v1.json", signature + "=").err,
              "tessel feed verify: refused: badSignature\n");
    auto missing = runTessel({"feed", "verify", k.body, "--url", "https://x/", "--keys", k.keys});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "tessel feed verify: refused: badSignature\n");

    writeFile(k.dir / "large.json", std::string(CompatUpdater::maxBytes + 1, ' '));
    auto large = runTessel({"feed", "verify", k.dir / "large.json", "--url", "https://x/", "--signature", "main.AAAA",
                            "--keys", k.keys});
    EXPECT_EQ(large.status, 1);
    EXPECT_EQ(large.err, "tessel feed verify: refused: tooLarge\n");

    writeFile(k.dir / "v2.json", R"({"schema":2,"apps":[]})");
    auto v2 = runTessel({"feed", "verify", k.dir / "v2.json", "--url", "https://x/", "--signature",
                         k.sign(k.dir / "v2.json"), "--keys", k.keys, "--json"});
    EXPECT_EQ(v2.status, 1);
    EXPECT_EQ(nlohmann::json::parse(v2.out).at("refused"), "unsupportedSchema(2)");

    writeFile(k.dir / "junk.json", "{junk");
    auto junk = runTessel({"feed", "verify", k.dir / "junk.json", "--url", "https://x/", "--signature",
                           k.sign(k.dir / "junk.json"), "--keys", k.keys});
    EXPECT_EQ(junk.status, 1);
    EXPECT_TRUE(junk.err.starts_with("tessel feed verify: refused: decoding: ")) << junk.err;

    EXPECT_EQ(runTessel({"feed", "verify", k.body, "--keys", k.keys}).status, 2);
    EXPECT_EQ(runTessel({"feed", "frobnicate"}).status, 2);
}

TEST(TesselFeed, SignaturesFromAnotherEd25519ImplementationVerify) {
    if (!fs::exists(openssl)) GTEST_SKIP() << "openssl is not installed";
    TempDir dir;
    ASSERT_TRUE(run(openssl, {"genpkey", "-algorithm", "ed25519", "-out", dir / "key.pem"}));
    ASSERT_TRUE(run(openssl, {"pkey", "-in", dir / "key.pem", "-pubout", "-outform", "DER", "-out", dir / "pub.der"}));
    writeFile(dir / "body.json", feedBody);
    writeFile(dir / "message", "TslF1\n" + feedBody);
    ASSERT_TRUE(run(openssl, {"pkeyutl", "-sign", "-rawin", "-inkey", dir / "key.pem", "-in", dir / "message", "-out",
                              dir / "sig"}));
    const std::string der = readFile(dir / "pub.der");
    const std::string raw = der.substr(der.size() - 32);
    const std::string sig = readFile(dir / "sig");
    ASSERT_EQ(sig.size(), 64u);
    writeFile(dir / "keys.json",
              nlohmann::json{{"ext", Base64::encode(reinterpret_cast<const uint8_t*>(raw.data()), raw.size())}}.dump());
    const std::string header =
        "ext." + urlSafe(Base64::encode(reinterpret_cast<const uint8_t*>(sig.data()), sig.size()));
    auto r = runTessel({"feed", "verify", dir / "body.json", "--url", "https://x/compat/v1.json", "--signature", header,
                        "--keys", dir / "keys.json"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "2 entries, updated 2026-11-01\n");
}

TEST(TesselFeed, FetchTakesOnlyHTTPSAndNeverReadsPastTheLimit) {
    if (!fs::exists(openssl)) GTEST_SKIP() << "openssl is not installed";
    Keys k;
    // A certificate for this run only, trusted through --cacert alone.
    ASSERT_TRUE(run(openssl, {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                              "-keyout", k.dir / "tls.key", "-out", k.dir / "tls.pem", "-days", "1", "-subj",
                              "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1,DNS:localhost"}));
    writeFile(k.dir / "signature", k.sign(k.body));
    ChildProcess server("/usr/bin/python3", {(sourceDir() / "tests/TesselHost/feed_server.py").string(), k.dir / "tls.pem",
                                             k.dir / "tls.key", k.body, k.dir / "signature"});
    ASSERT_TRUE(server.waitForOutput("\n")) << server.standardError();
    const std::string port = server.standardOutput().substr(10, server.standardOutput().find('\n') - 10);
    const std::string base = "https://127.0.0.1:" + port;
    const auto fetch = [&](const std::string& path, std::vector<std::string> extra = {}) {
        std::vector<std::string> args{"feed", "fetch", base + path, "--keys", k.keys, "--cacert", k.dir / "tls.pem"};
        args.insert(args.end(), extra.begin(), extra.end());
        return runTessel(args);
    };

    auto good = fetch("/compat/v1.json");
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_EQ(good.out, "2 entries, updated 2026-11-01\n");
    EXPECT_EQ(fetch("/to-https").status, 0);
    EXPECT_EQ(fetch("/compat/v1.json", {"--signature-url", base + "/signature"}).status, 0);
    auto wrongSignature = fetch("/compat/v1.json", {"--signature", "main.AAAA"});
    EXPECT_EQ(wrongSignature.err, "tessel feed fetch: refused: badSignature\n");

    auto toHTTP = fetch("/to-http");
    EXPECT_EQ(toHTTP.status, 1);
    EXPECT_NE(toHTTP.err.find("isn't HTTPS"), std::string::npos) << toHTTP.err;

    auto huge = fetch("/huge");
    EXPECT_EQ(huge.status, 1);
    EXPECT_EQ(huge.err, "tessel feed fetch: refused: tooLarge\n");
    ASSERT_TRUE(server.waitForOutput("sent /huge ")) << server.standardOutput();
    const std::string& log = server.standardOutput();
    const size_t at = log.find("sent /huge ") + 11;
    const uint64_t sent = std::stoull(log.substr(at, log.find('\n', at) - at));
    // Of 256 MiB offered, the client took the limit and what the socket buffers held.
    EXPECT_LT(sent, 64ull << 20);

    auto announced = fetch("/huge-announced");
    EXPECT_EQ(announced.err, "tessel feed fetch: refused: tooLarge\n");

    // Without the run's certificate the server isn't trusted.
    auto untrusted = runTessel({"feed", "fetch", base + "/compat/v1.json", "--keys", k.keys});
    EXPECT_EQ(untrusted.status, 1);
    EXPECT_TRUE(untrusted.err.starts_with("tessel feed fetch: download failed")) << untrusted.err;
    EXPECT_EQ(runTessel({"feed", "fetch", "http://127.0.0.1:" + port + "/compat/v1.json", "--keys", k.keys}).err,
              "tessel feed fetch: refused: notHTTPS\n");
}
