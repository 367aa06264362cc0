// The fixed-size records inside frames: a video frame's header and an input
// event. What decodes must encode to the same bytes, padding aside.
#include "FuzzSupport.h"
#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/InputEvent.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslCore/Wire/WireError.h"

using namespace tsl;

namespace {

template <typename Record>
void roundTrip(std::span<const uint8_t> bytes) {
    Record first;
    try {
        ByteReader r(bytes);
        first = Record::decode(r);
    } catch (const WireError&) {
        return;
    }
    ByteWriter w;
    first.encode(w);
    fuzz::require(w.data.size() == size_t(Record::size), "a record encodes to the wrong size");
    ByteReader again(w.data);
    Record second = Record::decode(again);
    fuzz::require(second == first, "a record changed in a round trip");
    if constexpr (std::is_same_v<Record, VideoFrameHeader>) {
        try {
            first.validateRaw(bytes.size());
        } catch (const WireError&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> bytes(data, size);
    roundTrip<VideoFrameHeader>(bytes);
    roundTrip<InputEvent>(bytes);
    return 0;
}
