#pragma once
#include <gtest/gtest.h>

#include <functional>

#include "TslCore/Wire/WireError.h"

namespace tsl::test {

// Runs fn and returns the WireError it throws; fails the test otherwise.
inline WireError wireErrorOf(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const WireError& e) {
        return e;
    }
    ADD_FAILURE() << "no WireError thrown";
    return WireError::truncated();
}

inline Bytes headerBytes(uint8_t type, uint32_t length, uint32_t magic = 0x506C7354, uint8_t version = 1) {
    Bytes b;
    for (int i = 0; i < 4; ++i) b.push_back(uint8_t(magic >> (8 * i)));
    b.push_back(version);
    b.push_back(type);
    b.push_back(0);
    b.push_back(0);
    for (int i = 0; i < 4; ++i) b.push_back(uint8_t(length >> (8 * i)));
    for (int i = 0; i < 4; ++i) b.push_back(0);
    return b;
}

}  // namespace tsl::test
