#pragma once
#include <concepts>
#include <ostream>
#include <stdexcept>

#include "TslCore/Support/Error.h"

namespace tsl {
// Errors print as their description in test output.
template <typename T>
    requires std::derived_from<T, Error>
std::ostream& operator<<(std::ostream& os, const T& error) {
    return os << error.description();
}
}  // namespace tsl

namespace tsl::test {

// The error of type E that `fn` throws. When it throws none, the test fails
// on the std::logic_error thrown instead.
template <typename E, typename Fn>
E thrownBy(Fn&& fn) {
    try {
        fn();
    } catch (const E& error) {
        return error;
    }
    throw std::logic_error("nothing thrown where an error was expected");
}

}  // namespace tsl::test
