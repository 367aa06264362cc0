#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Support/Bytes.h"

namespace tsl {

// The general pasteboard. Every change of owner (clearContents) raises the
// change count, so a reader can tell a new copy from one it has seen.
class Pasteboard {
public:
    // Types as the pasteboard names them.
    static constexpr const char* typeString = "public.utf8-plain-text";
    static constexpr const char* typeRTF = "public.rtf";
    static constexpr const char* typePNG = "public.png";
    static constexpr const char* typeFileURL = "public.file-url";

    virtual ~Pasteboard() = default;

    virtual int64_t changeCount() = 0;
    // Types present, in the order they were written.
    virtual std::vector<std::string> types() = 0;
    virtual std::optional<Bytes> dataForType(const std::string& type) = 0;
    // Empties the pasteboard and takes ownership; gives the new change count.
    virtual int64_t clearContents() = 0;
    virtual bool setData(const Bytes& data, const std::string& type) = 0;
};

}  // namespace tsl
