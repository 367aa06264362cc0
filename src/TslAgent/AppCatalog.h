#pragma once
#include <asio/awaitable.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/AppSource.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// The guest's applications as the host sees them, and the trust rules around
// them: only what the source holds is launched (by path, or by an identifier
// it lists; a simulation may also ask the system), documents are opened only
// inside the open roots, and only applications the source holds are quit.
// Refusals are ControlError values with the host's texts. No state: the
// source and the running list are read afresh on each call.
namespace AppCatalog {

inline constexpr const char* rosettaMarkerPath = "/Library/Apple/usr/libexec/oah/libRosettaRuntime";

// What the source offers, in its order, with running marks. Never fails.
std::vector<GuestApp> list(const AppSource& source);

// Starts the application and opens the documents in it. Suspends in the waits
// for documents to appear and for the source's answer, so the caller's
// executor stays free. A refusal at the application or a document has started
// nothing; an error of the source comes through as it came.
asio::awaitable<LaunchResult> launch(LaunchRequest request, std::shared_ptr<const AppSource> source,
                                     std::vector<std::filesystem::path> openRoots,
                                     std::vector<std::filesystem::path> excluded, bool allowSystemLookup);

// The document rule: the fully resolved path when it lies strictly inside a
// root with no hidden component below that root and isn't taken out by an
// exclusion (an exclusion never takes away a root that lies inside it).
std::optional<std::filesystem::path> allowedDocument(const std::string& path,
                                                     const std::vector<std::filesystem::path>& roots,
                                                     const std::vector<std::filesystem::path>& excluded);

// Asks the application of `pid` to quit, without force, when the source holds
// its application; otherwise refuses, the same way for a dead process.
void quit(int32_t pid, const AppSource& source);

// Whether anything exists at the runtime's marker; always an answer.
bool rosettaInstalled(const std::filesystem::path& marker = rosettaMarkerPath);

}  // namespace AppCatalog

}  // namespace tsl
