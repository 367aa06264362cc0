#include "TslAgent/SheetCache.h"

namespace tsl {

SheetCache& SheetCache::shared() {
    static SheetCache instance;
    return instance;
}

bool SheetCache::isSheet(uint32_t windowID, Clock::time_point now, const std::function<bool()>& compute) {
    {
        std::lock_guard g(lock);
        if (sheets.contains(windowID)) return true;
        if (auto it = negatives.find(windowID); it != negatives.end()) {
            if (it->second.count >= maxTests || now < it->second.next) return false;
        }
    }
    // Accessibility calls may take long; no lock across them.
    const bool yes = compute();
    std::lock_guard g(lock);
    if (sheets.size() > maxEntries) sheets.clear();
    if (negatives.size() > maxEntries) negatives.clear();
    if (yes) {
        sheets.insert(windowID);
        negatives.erase(windowID);
    } else {
        Negative& n = negatives[windowID];
        n.count += 1;
        n.next = now + retryAfter;
    }
    return yes;
}

void SheetCache::clear() {
    std::lock_guard g(lock);
    sheets.clear();
    negatives.clear();
}

}  // namespace tsl
