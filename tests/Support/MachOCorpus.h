#pragma once
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

// A corpus of Mach-O files and application bundles with an expected.json that
// says what the scanner must find in it (see scripts/make-macho-corpus.py).
// Paths in expected.json are relative to the corpus folder.
namespace tsl::test {

struct MachOCorpus {
    std::filesystem::path root;
    nlohmann::json expected;
    std::string unavailable;  // why the corpus can't be used; empty when it can

    static MachOCorpus load(const std::filesystem::path& root) {
        MachOCorpus corpus{root, {}, {}};
        std::ifstream in(root / "expected.json");
        if (!in) {
            corpus.unavailable = "no corpus at " + root.native() + " (expected.json absent)";
            return corpus;
        }
        corpus.expected = nlohmann::json::parse(in, nullptr, false);
        if (corpus.expected.is_discarded()) {
            corpus.unavailable = root.native() + "/expected.json isn't JSON";
        } else if (corpus.expected.contains("unavailable")) {
            corpus.unavailable = corpus.expected["unavailable"].get<std::string>();
        }
        return corpus;
    }

    // The one the build makes with the real toolchain.
    static MachOCorpus generated() { return load(TSL_BINARY_DIR "/macho-corpus"); }
    // One that may be shared beside the project.
    static MachOCorpus shared() { return load(TSL_SOURCE_DIR "/../shared/fixtures"); }

    std::string path(const std::string& relative) const { return (root / relative).native(); }

    // An expected bundle record with its path made absolute.
    nlohmann::json bundle(const std::string& relative) const {
        for (auto b : expected.value("bundles", nlohmann::json::array())) {
            if (b["path"] == relative) {
                b["path"] = path(relative);
                return b;
            }
        }
        return nullptr;
    }
};

}  // namespace tsl::test

#define TSL_REQUIRE_CORPUS(corpus) \
    if (!(corpus).unavailable.empty()) GTEST_SKIP() << (corpus).unavailable
