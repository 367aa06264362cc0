#pragma once
#include <optional>

#include "TslCore/Support/Bytes.h"

namespace tsl::UriList {

// The first URI of a text/uri-list: lines end in CRLF (a bare LF is taken
// too), and lines starting with "#" are comments. Nothing when none is there.
std::optional<Bytes> first(const Bytes& list);

// A list of one URI, as text/uri-list writes it.
Bytes of(const Bytes& uri);

}  // namespace tsl::UriList
