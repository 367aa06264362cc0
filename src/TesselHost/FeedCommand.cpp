// tessel feed keygen|sign|verify|fetch: the signed compatibility feed.
#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "TesselHost/Commands.h"
#include "TesselHost/FeedDownload.h"
#include "TesselHost/HostText.h"
#include "TslCore/Compat/CompatError.h"
#include "TslCore/Compat/CompatUpdater.h"
#include "TslCore/Compat/SignedFeed.h"
#include "TslCore/Support/AtomicFile.h"
#include "TslCore/Support/Base64.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/UniqueFd.h"

namespace tsl::host {
namespace {

constexpr size_t keyFileLimit = 1 << 20;

struct FeedArguments {
    std::string kid, out, body, key, keys, url, signature, signatureURL, caFile;
    bool json = false;
};

std::span<const uint8_t> bytesOf(const std::string& s) { return {reinterpret_cast<const uint8_t*>(s.data()), s.size()}; }

std::string trimmed(std::string text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    size_t start = 0;
    while (start < text.size() && std::isspace(static_cast<unsigned char>(text[start]))) ++start;
    return text.substr(start);
}

// Key ids go before the "." of a signature text and name a file.
bool isValidKeyID(const std::string& kid) {
    if (kid.empty() || kid.size() > 64) return false;
    for (const char c : kid)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') return false;
    return true;
}

std::string readOrRefuse(const std::string& path, size_t limit, const char* what) {
    try {
        return BoundedFile::read(path, limit).bytes;
    } catch (const FileReadError& e) {
        throw CommandFailure(std::string("cannot read ") + what + " " + e.description());
    }
}

const CLI::Validator keyID(
    [](const std::string& kid) {
        return isValidKeyID(kid) ? std::string() : "a key id is 1 to 64 letters, digits, \"-\" or \"_\"";
    },
    "KID");

template <size_t N>
std::array<uint8_t, N> keyBytes(const std::string& base64, const std::string& where) {
    const auto bytes = Base64::decode(trimmed(base64));
    if (!bytes || bytes->size() != N)
        throw CommandFailure(where + " is not a " + std::to_string(N) + "-byte key in Base64");
    std::array<uint8_t, N> out{};
    std::copy(bytes->begin(), bytes->end(), out.begin());
    return out;
}

nlohmann::json readKeyTable(const std::string& path, bool mayBeMissing) {
    if (mayBeMissing && ::access(path.c_str(), F_OK) != 0 && errno == ENOENT) return nlohmann::json::object();
    const std::string text = readOrRefuse(path, keyFileLimit, "the trusted keys");
    const auto j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object())
        throw CommandFailure(path + " is not a JSON object of key ids to public keys");
    return j;
}

SignedFeed::TrustedKeys trustedKeys(const std::string& path) {
    SignedFeed::TrustedKeys keys;
    const auto table = readKeyTable(path, false);
    for (const auto& [kid, value] : table.items()) {
        if (!value.is_string()) throw CommandFailure("the key " + kid + " in " + path + " is not a string");
        keys.emplace(kid, keyBytes<32>(value.get<std::string>(), "the key " + kid + " in " + path));
    }
    return keys;
}

ExitStatus keygen(const FeedArguments& args) {
    const std::string keyPath = PathNames::appending(args.out, args.kid + ".key");
    const std::string tablePath = PathNames::appending(args.out, "trusted-keys.json");
    auto table = readKeyTable(tablePath, true);
    if (table.contains(args.kid)) throw CommandFailure("the key id " + args.kid + " is already in " + tablePath);

    const auto key = SignedFeed::generateKey();
    // Never over an existing key: that would orphan every feed it signed.
    UniqueFd fd(::open(keyPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd) throw CommandFailure("cannot create " + keyPath + ": " + std::strerror(errno));
    const std::string text = Base64::encode(key.data(), key.size()) + "\n";
    if (::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) || ::fsync(fd.get()) != 0) {
        const int err = errno;
        ::unlink(keyPath.c_str());
        throw CommandFailure("cannot write " + keyPath + ": " + std::strerror(err));
    }
    const auto publicKey = SignedFeed::publicKey(key);
    table[args.kid] = Base64::encode(publicKey.data(), publicKey.size());
    writeFileAtomically(tablePath, table.dump(2) + "\n", 0644);
    if (args.json) {
        printJSON(
            {{"kid", args.kid}, {"keyFile", keyPath}, {"trustedKeys", tablePath}, {"publicKey", table[args.kid]}});
    } else {
        std::printf("%s: private key in %s, public key added to %s\n", args.kid.c_str(), keyPath.c_str(), tablePath.c_str());
    }
    return ExitStatus::success;
}

ExitStatus sign(const FeedArguments& args) {
    const std::string body = readOrRefuse(args.body, CompatUpdater::maxBytes, "the feed");
    const auto key = keyBytes<32>(readOrRefuse(args.key, keyFileLimit, "the key"), args.key);
    const std::string header = SignedFeed::signFeed(bytesOf(body), args.kid, key);
    if (args.json) std::cout << nlohmann::json{{"signature", header}}.dump() << '\n';
    else std::printf("%s\n", header.c_str());
    return ExitStatus::success;
}

// Runs the gates and reports as the commands do: the entry count, or the gate that refused.
ExitStatus validateAndReport(const std::string& body, const std::string& url,
                             const std::optional<std::string>& signature, const std::string& keysPath, bool json) {
    const auto keys = trustedKeys(keysPath);
    const auto verify = [&keys](std::span<const uint8_t> data, const std::optional<std::string>& header) {
        return SignedFeed::verifyFeed(data, header, keys);
    };
    try {
        const auto db = CompatUpdater::validate(bytesOf(body), url, signature, verify);
        if (json) {
            nlohmann::json j{{"entries", db.apps.size()}};
            if (db.updated) j["updated"] = *db.updated;
            std::cout << j.dump() << '\n';
        } else {
            std::printf("%zu entries%s\n", db.apps.size(), db.updated ? (", updated " + *db.updated).c_str() : "");
        }
        return ExitStatus::success;
    } catch (const CompatError& e) {
        if (json) std::cout << nlohmann::json{{"refused", e.description()}}.dump() << '\n';
        throw CommandFailure("refused: " + e.description());
    } catch (const nlohmann::json::exception& e) {
        if (json) std::cout << nlohmann::json{{"refused", "decoding"}, {"error", e.what()}}.dump() << '\n';
        throw CommandFailure(std::string("refused: decoding: ") + e.what());
    }
}

std::optional<std::string> givenSignature(const FeedArguments& args, const CLI::App* command) {
    if (command->count("--signature")) return args.signature;
    return std::nullopt;
}

ExitStatus verify(const FeedArguments& args, const CLI::App* command) {
    // One byte past the limit, so that the gates say "too large" as for a download.
    const std::string body = readOrRefuse(args.body, CompatUpdater::maxBytes + 1, "the feed");
    return validateAndReport(body, args.url, givenSignature(args, command), args.keys, args.json);
}

ExitStatus fetch(const FeedArguments& args, const CLI::App* command) {
    const auto keys = trustedKeys(args.keys);  // a bad key file is found before the network is used
    (void)keys;
    if (CompatUpdater::scheme(args.url) != "https") return validateAndReport({}, args.url, std::nullopt, args.keys, args.json);
    DownloadOptions options;
    options.limit = CompatUpdater::maxBytes;
    options.caFile = args.caFile;
    StatusLine line;
    line.show("Downloading " + args.url + "…");
    Download feed;
    std::optional<std::string> signature = givenSignature(args, command);
    try {
        feed = download(args.url, options);
        if (!signature && !args.signatureURL.empty()) {
            if (CompatUpdater::scheme(args.signatureURL) != "https")
                throw CommandFailure("the signature's address isn't HTTPS");
            DownloadOptions small = options;
            small.limit = 4096;
            const auto text = download(args.signatureURL, small);
            if (text.body.size() > small.limit) throw CommandFailure("the signature is larger than 4096 bytes");
            signature = trimmed(text.body);
        }
    } catch (const CommandFailure&) {
        throw;
    } catch (const std::exception& e) {
        throw CommandFailure(std::string("download failed: ") + e.what());
    }
    if (!signature && args.signatureURL.empty()) signature = feed.signature;
    return validateAndReport(feed.body, feed.url, signature, args.keys, args.json);
}

}  // namespace

void addFeedCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<FeedArguments>();
    CLI::App* feed = app.add_subcommand("feed", "Make, sign, check and download the signed compatibility feed");
    feed->require_subcommand(1);

    CLI::App* keygenCmd = feed->add_subcommand("keygen", "Make a signing key and trust its public half");
    keygenCmd->add_option("kid", args->kid, "Key id: letters, digits, \"-\", \"_\"")->required()->check(keyID);
    keygenCmd->add_option("--out", args->out, "Folder for KID.key and trusted-keys.json")
        ->required()
        ->check(CLI::ExistingDirectory);
    keygenCmd->add_flag("--json", args->json, "Print the result as JSON");
    setAction(keygenCmd, status, [args] { return keygen(*args); });

    CLI::App* signCmd = feed->add_subcommand("sign", "Print the signature text for a feed body");
    signCmd->add_option("body", args->body, "The feed's body, byte for byte")->required();
    signCmd->add_option("--key", args->key, "Private key file made by keygen")->required();
    signCmd->add_option("--kid", args->kid, "Key id to name in the signature")->required()->check(keyID);
    signCmd->add_flag("--json", args->json, "Print the result as JSON");
    setAction(signCmd, status, [args] { return sign(*args); });

    CLI::App* verifyCmd = feed->add_subcommand("verify", "Check a feed body as a download from URL would be checked");
    verifyCmd->add_option("body", args->body, "The feed's body")->required();
    verifyCmd->add_option("--url", args->url, "Where the body came from")->required();
    verifyCmd->add_option("--signature", args->signature, "The signature text that came with it");
    verifyCmd->add_option("--keys", args->keys, "Trusted keys (JSON: key id to Base64 public key)")->required();
    verifyCmd->add_flag("--json", args->json, "Print the result as JSON");
    setAction(verifyCmd, status, [args, verifyCmd] { return verify(*args, verifyCmd); });

    CLI::App* fetchCmd = feed->add_subcommand("fetch", "Download a feed over HTTPS and check it");
    fetchCmd->add_option("url", args->url, "The feed's address (https only)")->required();
    fetchCmd->add_option("--keys", args->keys, "Trusted keys (JSON: key id to Base64 public key)")->required();
    auto* sig = fetchCmd->add_option("--signature", args->signature, "The signature text, when it travels apart");
    auto* sigURL = fetchCmd->add_option("--signature-url", args->signatureURL, "Where to download the signature text");
    sig->excludes(sigURL);
    fetchCmd->add_option("--cacert", args->caFile, "Trust this certificate authority (PEM) instead of the system's")
        ->check(CLI::ExistingFile);
    fetchCmd->add_flag("--json", args->json, "Print the result as JSON");
    fetchCmd->footer("Without --signature or --signature-url the signature is taken from the response's "
                     "Tessel-Feed-Signature header.");
    setAction(fetchCmd, status, [args, fetchCmd] { return fetch(*args, fetchCmd); });
}

}  // namespace tsl::host
