#pragma once
#include <string>
#include <vector>

namespace tsl {

// Stores measurement results as files named `<prefix>-<name>` in one folder,
// each written atomically so that a reader never sees half a result.
struct ResultWriter {
    std::string dir;
    std::string prefix;

    ResultWriter(std::string dir, std::string prefix) : dir(std::move(dir)), prefix(std::move(prefix)) {}

    // `<prefix>-<name>.csv`: the header and each row as a line, as given (no
    // quoting: a row is a finished line). Gives the file's path; throws Error.
    std::string write(const std::string& name, const std::string& header, const std::vector<std::string>& rows) const;
    // `<prefix>-<name>` holding `text` unchanged. Gives the file's path; throws Error.
    std::string writeText(const std::string& name, const std::string& text) const;
};

}  // namespace tsl
