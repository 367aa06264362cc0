#include "Platform/Linux/UriList.h"

namespace tsl::UriList {

std::optional<Bytes> first(const Bytes& list) {
    size_t start = 0;
    while (start < list.size()) {
        size_t end = start;
        while (end < list.size() && list[end] != '\n') ++end;
        size_t last = end;
        if (last > start && list[last - 1] == '\r') --last;
        if (last > start && list[start] != '#') return Bytes(list.begin() + long(start), list.begin() + long(last));
        start = end + 1;
    }
    return std::nullopt;
}

Bytes of(const Bytes& uri) {
    Bytes out = uri;
    out.push_back('\r');
    out.push_back('\n');
    return out;
}

}  // namespace tsl::UriList
