#pragma once
#include <cstdint>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// A failed socket operation: the operation (sometimes a sentence) and its errno.
class SocketError : public Error {
public:
    SocketError(std::string op, int32_t code);

    const std::string& op() const { return _op; }
    int32_t code() const { return _code; }

private:
    std::string _op;
    int32_t _code;
};

}  // namespace tsl
