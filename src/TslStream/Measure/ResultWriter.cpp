#include "TslStream/Measure/ResultWriter.h"

#include <cerrno>
#include <cstring>

#include "TslCore/Support/AtomicFile.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/FileTree.h"

namespace tsl {

std::string ResultWriter::write(const std::string& name, const std::string& header,
                                const std::vector<std::string>& rows) const {
    std::string text = header + "\n";
    for (const auto& row : rows) text += row + "\n";
    return writeText(name + ".csv", text);
}

std::string ResultWriter::writeText(const std::string& name, const std::string& text) const {
    if (int error = FileTree::makeFolders(dir, 0755); error != 0)
        throw Error("cannot create " + dir + ": " + std::strerror(error));
    std::string path = dir + "/" + prefix + "-" + name;
    writeFileAtomically(path, text);
    return path;
}

}  // namespace tsl
