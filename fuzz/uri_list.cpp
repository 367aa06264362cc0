// A text/uri-list from another client of the display: the first URI must be
// one whole line of the input, without its line end, and never a comment;
// a list we write reads back as the URI it holds.
#include <algorithm>

#include "FuzzSupport.h"
#include "Platform/Linux/UriList.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Bytes list(data, data + size);
    const std::optional<Bytes> uri = UriList::first(list);
    if (!uri) return 0;
    fuzz::require(!uri->empty() && (*uri)[0] != '#', "a comment or an empty line was taken");
    fuzz::require(std::find(uri->begin(), uri->end(), '\n') == uri->end(), "the URI runs over its line");
    fuzz::require(std::search(list.begin(), list.end(), uri->begin(), uri->end()) != list.end(),
                  "the URI is not in the list");
    if (uri->back() != '\r')
        fuzz::require(UriList::first(UriList::of(*uri)) == uri, "a written list reads back otherwise");
    return 0;
}
