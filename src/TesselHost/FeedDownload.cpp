#include "TesselHost/FeedDownload.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace tsl::host {
namespace {

struct Transfer {
    const DownloadOptions* options;
    Download result;
    bool cut = false;
};

size_t onBody(char* data, size_t size, size_t count, void* context) {
    auto& t = *static_cast<Transfer*>(context);
    const size_t bytes = size * count;
    const size_t room = t.options->limit + 1 - t.result.body.size();
    t.result.body.append(data, std::min(bytes, room));
    if (bytes <= room) return bytes;
    // One byte past the limit is all the validation needs; returning short ends the transfer.
    t.cut = true;
    return 0;
}

size_t onHeader(char* data, size_t size, size_t count, void* context) {
    auto& t = *static_cast<Transfer*>(context);
    const size_t bytes = size * count;
    std::string_view line(data, bytes);
    // A new response (after a redirect) starts with its status line.
    if (line.starts_with("HTTP/")) t.result.signature.reset();
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return bytes;
    std::string name(line.substr(0, colon));
    std::string wanted = t.options->signatureHeader;
    const auto lower = [](std::string& s) {
        for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    };
    lower(name);
    lower(wanted);
    if (name != wanted) return bytes;
    std::string_view value = line.substr(colon + 1);
    while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.remove_prefix(1);
    while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back()))) value.remove_suffix(1);
    t.result.signature = std::string(value);
    return bytes;
}

void startCurl() {
    static const CURLcode status = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (status != CURLE_OK) throw std::runtime_error("the download library could not be started");
}

}  // namespace

Download download(const std::string& url, const DownloadOptions& options) {
    startCurl();
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
    if (!curl) throw std::runtime_error("the download library could not be started");
    Transfer t{&options, {}, false};
    char errorText[CURL_ERROR_SIZE] = {};
    CURL* c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(c, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(c, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options.caFile.empty()) curl_easy_setopt(c, CURLOPT_CAINFO, options.caFile.c_str());
    // A server announcing more than the limit is refused before its body is read.
    curl_easy_setopt(c, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options.limit));
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, 20L);
    curl_easy_setopt(c, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(c, CURLOPT_LOW_SPEED_TIME, 30L);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_ACCEPT_ENCODING, "");  // the limit counts decoded bytes
    curl_easy_setopt(c, CURLOPT_USERAGENT, "tessel-feed/1");
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &t);
    curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(c, CURLOPT_HEADERDATA, &t);

    const CURLcode code = curl_easy_perform(c);
    char* effective = nullptr;
    curl_easy_getinfo(c, CURLINFO_EFFECTIVE_URL, &effective);
    t.result.url = effective ? effective : url;
    if (code == CURLE_FILESIZE_EXCEEDED) {
        // Announced too large: stand for the body with one byte over the limit, read no further.
        t.result.body.assign(options.limit + 1, '\0');
        return std::move(t.result);
    }
    if (code == CURLE_WRITE_ERROR && t.cut) return std::move(t.result);
    if (code == CURLE_UNSUPPORTED_PROTOCOL)
        throw std::runtime_error("refused a redirect to an address that isn't HTTPS (" + t.result.url + ")");
    if (code != CURLE_OK)
        throw std::runtime_error(std::string(errorText[0] ? errorText : curl_easy_strerror(code)));
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200) throw std::runtime_error("the server answered with HTTP status " + std::to_string(status));
    return std::move(t.result);
}

}  // namespace tsl::host
