#pragma once
#include "TslCore/Support/Error.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// One refused or failed request; "<code>: <message>".
class ControlError : public Error {
public:
    explicit ControlError(ErrorInfo info) : Error(info.code + ": " + info.message), _info(std::move(info)) {}
    ControlError(std::string code, std::string message) : ControlError(ErrorInfo{std::move(code), std::move(message)}) {}
    const ErrorInfo& info() const { return _info; }

private:
    ErrorInfo _info;
};

}  // namespace tsl
