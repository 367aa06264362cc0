// Frame decoding against memcpy, and framed connection transfer against raw
// socket reads and writes of the same bytes.
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <thread>

#include "BenchSupport.h"
#include "TslCore/Wire/FrameDecoder.h"
#include "TslStream/Transport/Socket.h"
#include "TslStream/Transport/WireConnection.h"

using namespace tsl;
using namespace tsl::bench;

namespace {

constexpr size_t readChunk = 256 * 1024;

WireMessage rawFrame(uint32_t width, uint32_t height) {
    VideoFrameHeader h;
    h.codec = VideoCodec::rawBGRA;
    h.width = width;
    h.height = height;
    h.bytesPerRow = width * 4;
    return WireMessage::video(h, Bytes(size_t(width) * height * 4, 0x5A));
}

void decoderVersusMemcpy() {
    const int frames = 16;
    Bytes frame = rawFrame(2048, 1024).encoded(1);  // 8 MiB picture
    Bytes target(frame.size());
    double total = double(frame.size()) * frames;

    double copy = bestSeconds(5, [&] {
        for (int f = 0; f < frames; ++f)
            for (size_t at = 0; at < frame.size(); at += readChunk)
                std::memcpy(target.data() + at, frame.data() + at, std::min(readChunk, frame.size() - at));
    });
    double decode = bestSeconds(5, [&] {
        FrameDecoder d;
        size_t got = 0;
        for (int f = 0; f < frames; ++f)
            for (size_t at = 0; at < frame.size(); at += readChunk)
                got += d.feed(std::span(frame.data() + at, std::min(readChunk, frame.size() - at))).size();
        if (got != size_t(frames)) std::abort();
    });
    std::printf("FrameDecoder, 8 MiB frames in 256 KiB reads: %.2f GB/s; memcpy of the same bytes: %.2f GB/s\n",
                total / decode / 1e9, total / copy / 1e9);
    ratioLine("decoder / memcpy", copy, decode, 0.8);
}

// Sends `frames` frames of `bytes` each from a writer thread and times until the last arrives.
double timeTransfer(size_t bytes, int frames, bool framed) {
    auto [a, b] = socketPair();
    if (framed) {
        auto sender = std::make_shared<WireConnection>(a, "bench.tx");
        auto receiver = std::make_shared<WireConnection>(b, "bench.rx");
        WireMessage frame = rawFrame(1920, 1080);
        std::mutex m;
        std::condition_variable cv;
        int got = 0;
        receiver->start(
            [&](WireMessage) {
                std::lock_guard g(m);
                ++got;
                cv.notify_all();
            },
            nullptr);
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < frames; ++i) sender->send(frame);
        std::unique_lock g(m);
        cv.wait(g, [&] { return got == frames; });
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        g.unlock();
        sender->close();
        return s;
    }
    Bytes out(bytes, 0x5A);
    auto t0 = std::chrono::steady_clock::now();
    std::thread writer([&, fd = a] {
        for (int i = 0; i < frames; ++i) {
            size_t done = 0;
            while (done < out.size()) done += size_t(::write(fd, out.data() + done, out.size() - done));
        }
    });
    std::vector<uint8_t> in(readChunk);
    size_t total = bytes * size_t(frames), got = 0;
    while (got < total) {
        ssize_t n = ::read(b, in.data(), in.size());
        if (n <= 0) break;
        got += size_t(n);
    }
    writer.join();
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ::close(a);
    ::close(b);
    return s;
}

void connectionVersusRawSocket() {
    const int frames = 60;
    const size_t bytes = 1920 * 1080 * 4;
    double raw = bestSeconds(3, [&] { timeTransfer(bytes, frames, false); });
    double framed = bestSeconds(3, [&] { timeTransfer(bytes, frames, true); });
    std::printf("WireConnection 1920x1080 BGRA over a socket pair: %.1f frames/s; raw write/read: %.1f frames/s\n",
                frames / framed, frames / raw);
    ratioLine("connection / raw socket", raw, framed, 0.8);
}

}  // namespace

int main() {
    decoderVersusMemcpy();
    connectionVersusRawSocket();
}
