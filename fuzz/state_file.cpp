// The host's state file, loaded as the store loads it. Whatever the bytes, the
// result is a state: a file that decodes keeps its state through a save and a
// load, and one that doesn't is moved aside untouched.
#include <iterator>

#include "FuzzSupport.h"
#include "TslCore/Model/StateJSON.h"
#include "TslCore/Model/StateStore.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto file = fuzz::scratchDir() / "state.json";
    fuzz::writeFile(file, data, size);
    const StateStore store(file);
    const auto loaded = store.loadReporting();
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    if (loaded.outcome == StateStore::LoadOutcome::damaged) {
        fuzz::require(loaded.state == PersistedState{}, "a damaged file gave a state other than the default");
        fuzz::require(loaded.movedTo.has_value(), "a damaged file was not moved aside");
        std::ifstream in(*loaded.movedTo, std::ios::binary);
        const std::string moved{std::istreambuf_iterator<char>(in), {}};
        fuzz::require(moved == bytes, "the moved-aside file differs from the damaged one");
        fuzz::require(!std::filesystem::exists(file), "a damaged file stayed in place");
    } else {
        fuzz::require(loaded.outcome == StateStore::LoadOutcome::loaded, "a file that is there did not load");
        fuzz::require(StateJSON::decodeState(bytes) == loaded.state, "the store and the decoder disagree");
        store.save(loaded.state);
        const auto again = store.loadReporting();
        fuzz::require(again.outcome == StateStore::LoadOutcome::loaded, "a saved state did not load");
        fuzz::require(again.state == loaded.state, "a state changed through a save and a load");
    }
    fuzz::clearScratch();
    return 0;
}
