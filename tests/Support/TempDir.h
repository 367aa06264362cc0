#pragma once
#include <cstdlib>
#include <filesystem>
#include <string>

namespace tsl::test {

// A fresh private folder, removed with everything in it at the end of scope.
class TempDir {
public:
    explicit TempDir(const std::string& base = "/tmp") {
        std::string tmpl = base + "/tsl-XXXXXX";
        if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
        _path = tmpl;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(_path, ec);
    }
    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path operator/(const std::string& name) const { return _path / name; }

private:
    std::filesystem::path _path;
};

}  // namespace tsl::test
