#pragma once
#include <cstddef>
#include <optional>
#include <string>

// Downloads for the compatibility feed: HTTPS only, redirects included, and
// never more than a limit read, whatever the server claims or sends.
namespace tsl::host {

struct Download {
    std::string body;              // at most limit + 1 bytes: one more says "too large"
    std::string url;               // where the bytes came from, after redirects
    std::optional<std::string> signature;  // the response's signature header, if any
};

struct DownloadOptions {
    size_t limit = 0;
    std::string caFile;  // trust this certificate authority instead of the system's
    std::string signatureHeader = "Tessel-Feed-Signature";
};

// Throws std::runtime_error with a readable reason when the transfer fails:
// a redirect to anything but HTTPS, a certificate that doesn't verify, an
// HTTP status other than 200, a network error.
Download download(const std::string& url, const DownloadOptions& options);

}  // namespace tsl::host
