#pragma once
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>
#include <string>

#include "Support/TempDir.h"
#include "Support/TestPaths.h"

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
    static MachOCorpus generated() { return load(binaryDir() / "macho-corpus"); }
    // One that may be shared beside the project. Copies of it have been seen
    // with a framework's symbolic links flattened into small files holding
    // the link's text (the fixtures' own notes say so); the corpus is read
    // from a scratch copy with those links put back, as the toolchain saw it.
    static MachOCorpus shared() {
        const std::filesystem::path source = sourceDir() / ".." / "shared" / "fixtures";
        if (!std::filesystem::exists(source / "expected.json")) return load(source);
        static const std::filesystem::path copy = restoredCopy(source);
        return load(copy);
    }

    static std::filesystem::path restoredCopy(const std::filesystem::path& source) {
        namespace fs = std::filesystem;
        static TempDir scratch;  // removed as the test program ends
        const fs::path copy = scratch / "fixtures";
        fs::copy(source, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        for (const auto& e : fs::recursive_directory_iterator(copy))
            if (e.is_directory() && !e.is_symlink())
                fs::permissions(e.path(), fs::perms::owner_write, fs::perm_options::add);
        // A flattened link: a small file in a framework whose whole text is a
        // relative path to something that exists. Links may lead through
        // others (Engine -> Versions/Current/Engine), so repeat until stable.
        for (bool changed = true; changed;) {
            changed = false;
            for (const auto& e : fs::recursive_directory_iterator(copy)) {
                if (!e.is_regular_file() || e.is_symlink() || e.file_size() > 255) continue;
                if (e.path().native().find(".framework/") == std::string::npos) continue;
                std::ifstream in(e.path());
                std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
                if (text.empty() || text.front() == '/' || text.find("..") != std::string::npos ||
                    text.find_first_of(std::string_view("\n\0", 2)) != std::string::npos)
                    continue;
                if (!fs::exists(e.path().parent_path() / text)) continue;
                fs::remove(e.path());
                fs::create_symlink(text, e.path());
                changed = true;
                break;  // the iterator's view of the folder changed
            }
        }
        return copy;
    }

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
