// The host's receiving end. H.264 decode of the test pattern at 1280×800 and
// 1920×1080 through StreamReceiver, against libavcodec alone on the same
// packets converting each picture to BGRA the same way (libyuv, one reused
// buffer); then frames per second of a whole loopback stream agent to host,
// for raw and H.264: an agent service capturing a test-pattern window on the
// simulated desktop, over unix sockets through the agent acceptor and link,
// decoded by the receiver.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}
#include <libyuv/convert_argb.h>

#include <atomic>
#include <cstring>

#include "BenchSupport.h"
#include "Platform/Sim/Desktop.h"
#include "TslAgent/AgentService.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslStream/Agent/AgentAcceptor.h"
#include "TslStream/Codec/H264Payload.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Codec/VideoEncoder.h"
#include "TslStream/Pipeline/StreamReceiver.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Runtime/Task.h"

using namespace tsl;

namespace {

constexpr int patternFrames = 30;

std::vector<std::shared_ptr<PixelBuffer>> pictures(int64_t width, int64_t height) {
    std::vector<std::shared_ptr<PixelBuffer>> out;
    for (int i = 0; i < patternFrames; ++i) {
        auto buffer = PixelBuffers::make(width, height);
        PixelBufferLock locked(*buffer, 0);
        drawTestPattern(locked.base(), width, height, buffer->bytesPerRow(),
                        double(width) / TestPatternSpec::contentWidth, uint64_t(i + 1), i % 2 == 0);
        out.push_back(buffer);
    }
    return out;
}

std::vector<EncodedFrame> encoded(VideoCodec codec, int64_t width, int64_t height, int count) {
    auto encoder = makeEncoder(codec, width, height, 60);
    auto source = pictures(width, height);
    std::vector<EncodedFrame> frames;
    for (int i = 0; i < count; ++i)
        encoder->encode(*source[size_t(i % patternFrames)], FrameInfo{.streamID = 1, .frameID = uint64_t(i + 1)},
                        [&](EncodedFrame f) { frames.push_back(std::move(f)); });
    return frames;
}

// libavcodec on its own: avcC extradata from the first key frame's sets,
// each access unit as a packet, each picture to BGRA.
double bareDecodeSeconds(const std::vector<EncodedFrame>& frames) {
    return bench::bestSeconds(3, [&] {
        const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
        AVCodecContext* context = avcodec_alloc_context3(codec);
        context->thread_count = 1;
        context->flags |= AV_CODEC_FLAG_LOW_DELAY;
        auto first = H264Payload::decode(frames[0].payload, true);
        const Bytes& sps = first.parameterSets[0];
        const Bytes& pps = first.parameterSets[1];
        Bytes record{1, sps[1], sps[2], sps[3], 0xff, 0xe1, uint8_t(sps.size() >> 8), uint8_t(sps.size())};
        record.insert(record.end(), sps.begin(), sps.end());
        record.insert(record.end(), {1, uint8_t(pps.size() >> 8), uint8_t(pps.size())});
        record.insert(record.end(), pps.begin(), pps.end());
        context->extradata = static_cast<uint8_t*>(av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(context->extradata, record.data(), record.size());
        context->extradata_size = int(record.size());
        if (avcodec_open2(context, codec, nullptr) < 0) std::abort();
        AVPacket* packet = av_packet_alloc();
        AVFrame* frame = av_frame_alloc();
        Bytes bgra;
        Bytes data;
        for (const auto& f : frames) {
            auto unit = H264Payload::decode(f.payload, f.header.flags.contains(VideoFrameHeader::Flags::parameterSets));
            data.assign(unit.avcc.begin(), unit.avcc.end());
            data.resize(unit.avcc.size() + AV_INPUT_BUFFER_PADDING_SIZE);
            packet->data = data.data();
            packet->size = int(unit.avcc.size());
            if (avcodec_send_packet(context, packet) < 0 || avcodec_receive_frame(context, frame) < 0) std::abort();
            bgra.resize(size_t(frame->width) * size_t(frame->height) * 4);
            libyuv::I420ToARGB(frame->data[0], frame->linesize[0], frame->data[1], frame->linesize[1], frame->data[2],
                               frame->linesize[2], bgra.data(), frame->width * 4, frame->width, frame->height);
            av_frame_unref(frame);
        }
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&context);
    });
}

double receiverSeconds(const std::vector<EncodedFrame>& frames) {
    return bench::bestSeconds(3, [&] {
        StreamReceiver receiver(false);
        int shown = 0;
        for (const auto& f : frames) receiver.handle(f.header, f.payload, [&](const DecodedFrame&) { ++shown; });
        if (shown != int(frames.size()) || receiver.decodeErrors() != 0) std::abort();
    });
}

Hello hello(Hello::Role role, std::vector<std::string> capabilities) {
    Hello h;
    h.role = role;
    h.capabilities = std::move(capabilities);
    return h;
}

// Frames per second of a whole loopback stream: an agent service streams a
// test-pattern window of the size, captured on the simulated desktop as fast
// as the pipeline takes frames (encoder, sender, socket), to the host's link
// and receiver, which decode every picture. From the first capture of the
// timed run to its last picture decoded.
double loopbackFPS(VideoCodec codec, int64_t width, int64_t height, int count) {
    constexpr auto limit = std::chrono::seconds(60);
    MainActor main;
    auto desktop = Sim::Desktop::make({.manualCapture = true});
    const int32_t pid = desktop->addProcess(
        {.name = "Pattern", .bundleID = std::string(TestPatternSpec::bundleID), .kind = Sim::AppKind::testPattern});
    const uint32_t window = desktop->addWindow(
        pid, {.title = std::string(TestPatternSpec::windowTitle), .frame = {0, 0, double(width), double(height)}});
    auto service = std::make_shared<AgentService>(
        AgentConfig::simulation(AgentConfig::Mode::listen(SocketEndpoint::unix("/unused")), "/nonexistent-root", false),
        desktop->services(), [](int) {});

    // The agent's two channels, each greeting the host's acceptor as the runner does.
    auto acceptor = std::make_shared<AgentAcceptor>(hello(Hello::Role::host, {}));
    for (Channel channel : {Channel::control, Channel::video}) {
        auto [hostFd, agentFd] = socketPair();
        acceptor->accept(hostFd, std::string(rawValue(channel)), std::nullopt);
        auto end = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(agentFd, "agent"));
        service->attach(end, {channel});
        end->start();
        runBlocking(GlobalQueue::executor(),
                    end->request(ControlMessage::Hello{hello(Hello::Role::agent, {std::string(rawValue(channel))})}, 10),
                    limit);
    }
    auto link = runBlocking(GlobalQueue::executor(), acceptor->waitForLink(10), limit);

    StreamReceiver receiver(false);
    std::atomic<int> shown{0};
    std::atomic<uint32_t> shownWidth{0};
    link->onVideo([&](const VideoFrameHeader& h, const Bytes& data) {
        receiver.handle(h, data, [&](const DecodedFrame& f) {
            shownWidth = uint32_t(f.pixelBuffer->width());
            ++shown;
        });
    });
    StreamRequest request{.streamID = 1, .windowID = window, .fps = 120, .scale = 1.0, .codec = codec};
    main.runTask(link->control->request(ControlMessage::StartStream{request}, 10), limit);

    // A first few frames make the encoder and decoder; the timed run follows.
    auto frames = [&](int n) {
        const int target = shown + n;
        for (int i = 0; i < n; ++i)
            if (desktop->stepCapture() != 1) std::abort();
        if (!main.runUntil([&] { return shown >= target; }, limit)) std::abort();
    };
    frames(5);
    if (shownWidth != uint32_t(width)) std::abort();
    auto t0 = std::chrono::steady_clock::now();
    frames(count);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    main.runTask(link->control->request(ControlMessage::StopStream{1}, 10), limit);
    link->invalidate();
    link->close();
    main.runUntil([&] { return service->attached().empty() && service->streamManager()->activeStreams().empty(); },
                  limit);
    if (receiver.decodeErrors() != 0) std::abort();
    return count / seconds;
}

}  // namespace

int main() {
    std::printf("host receiving: decode through StreamReceiver vs libavcodec alone, then loopback streams\n");
    struct Size {
        int64_t width, height;
        const char* name;
    };
    for (Size size : {Size{1280, 800, "1280×800"}, Size{1920, 1080, "1920×1080"}}) {
        auto frames = encoded(VideoCodec::h264, size.width, size.height, 120);
        double ours = receiverSeconds(frames), bare = bareDecodeSeconds(frames);
        std::printf("  %s: receiver %.0f fps, libavcodec alone %.0f fps\n", size.name, 120 / ours, 120 / bare);
        std::string what = std::string("H.264 decode ") + size.name + " vs libavcodec";
        bench::ratioLine(what.c_str(), bare, ours, 0.9);
    }
    for (Size size : {Size{1280, 800, "1280×800"}, Size{1920, 1080, "1920×1080"}})
        for (VideoCodec codec : {VideoCodec::rawBGRA, VideoCodec::h264})
            std::printf("  loopback %s %s: %.0f fps\n", codec == VideoCodec::h264 ? "H.264" : "raw", size.name,
                        loopbackFPS(codec, size.width, size.height, 120));
    return 0;
}
