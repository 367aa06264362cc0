#pragma once
#include <mutex>
#include <vector>

#include "Support/Waiter.h"
#include "TslStream/Transport/WireConnection.h"

namespace tsl::test {

// The host's end of a video connection: keeps every video frame it reads.
struct VideoReceiver {
    std::shared_ptr<WireConnection> connection;
    std::mutex lock;
    std::vector<WireMessage::Video> frames;
    Waiter arrived, closed;

    explicit VideoReceiver(int fd) : connection(std::make_shared<WireConnection>(fd, "host-video")) {
        connection->start(
            [this](WireMessage m) {
                if (auto* v = m.get<WireMessage::Video>()) {
                    std::lock_guard g(lock);
                    frames.push_back(std::move(*const_cast<WireMessage::Video*>(v)));
                }
                arrived.signal();
            },
            [this](std::exception_ptr) { closed.signal(); });
    }
    ~VideoReceiver() {
        connection->close();
        closed.waitFor(1);
    }
    bool waitFor(int count) { return arrived.waitFor(count, std::chrono::seconds(20)); }
    WireMessage::Video at(size_t i) {
        std::lock_guard g(lock);
        return frames.at(i);
    }
    // Headers only: a raw frame is a megabyte, and frames keep arriving.
    VideoFrameHeader header(size_t i) {
        std::lock_guard g(lock);
        return frames.at(i).header;
    }
    std::vector<VideoFrameHeader> headers() {
        std::lock_guard g(lock);
        std::vector<VideoFrameHeader> all;
        for (const auto& f : frames) all.push_back(f.header);
        return all;
    }
    size_t count() {
        std::lock_guard g(lock);
        return frames.size();
    }
};

}  // namespace tsl::test
