#include "TslStream/Transport/SocketError.h"

#include <cstring>

namespace tsl {

SocketError::SocketError(std::string op, int32_t code)
    : Error(op + " failed: " + std::strerror(code) + " (" + std::to_string(code) + ")"), _op(std::move(op)), _code(code) {}

}  // namespace tsl
