#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

namespace tsl {

// Remembers which windows are sheets, so that the Accessibility test behind
// it runs rarely: a yes is kept for good, a no is asked again at most six
// times in all, a second or more apart.
//
// Thread-safe. The lock covers the map work only, never `compute`, so two
// callers may compute for one window at once; the later answer wins.
class SheetCache {
public:
    using Clock = std::chrono::system_clock;

    static constexpr int maxTests = 6;
    static constexpr size_t maxEntries = 4096;  // each set is emptied beyond this
    static constexpr auto retryAfter = std::chrono::seconds(1);

    // The one instance the window list uses.
    static SheetCache& shared();

    bool isSheet(uint32_t windowID, Clock::time_point now, const std::function<bool()>& compute);

    // Forgets everything: window ids start anew on another desktop (tests).
    void clear();

private:
    struct Negative {
        int count = 0;
        Clock::time_point next;
    };
    std::mutex lock;
    std::unordered_set<uint32_t> sheets;
    std::unordered_map<uint32_t, Negative> negatives;
};

}  // namespace tsl
