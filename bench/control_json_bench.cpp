// Cost of the control JSON codec on its largest common message: the reply to
// listWindows on a busy guest, 1,000 windows. The baseline is the JSON
// library's own parse and print of the same bytes, so the ratio shows what the
// typed records add on top.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "TslCore/Wire/WireJSON.h"

namespace {

using namespace tsl;

ControlEnvelope windowListReply() {
    std::vector<GuestWindow> windows;
    for (uint32_t i = 0; i < 1000; ++i) {
        GuestWindow w;
        w.windowID = 1000 + i;
        w.pid = int32_t(400 + i % 37);
        if (i % 3) w.bundleID = "com.example.app" + std::to_string(i % 37);
        w.title = "Document " + std::to_string(i) + " — Edited";
        w.frame = {double(i % 1700) + 0.5, double(i % 900), 640 + double(i % 13) * 10.25, 480};
        w.layer = i % 10 == 0 ? 8 : 0;
        w.zIndex = i;
        w.isOnScreen = i % 4 != 0;
        w.isFocused = i == 0;
        if (i % 50 == 1) w.attachedTo = 1000 + i - 1;
        windows.push_back(std::move(w));
    }
    return ControlEnvelope{77, 12, ControlMessage::WindowList{std::move(windows)}};
}

const ControlEnvelope reply = windowListReply();
const Bytes replyJSON = WireJSON::encode(reply);

void setBytes(benchmark::State& state) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(replyJSON.size()));
}

void BM_Baseline_LibraryParseAndPrint(benchmark::State& state) {
    for (auto _ : state) {
        auto doc = nlohmann::json::parse(replyJSON.begin(), replyJSON.end());
        std::string text = doc.dump();
        benchmark::DoNotOptimize(text);
    }
    setBytes(state);
}

void BM_Encode(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(WireJSON::encode(reply));
    setBytes(state);
}

void BM_Decode(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(WireJSON::decodeEnvelope(replyJSON.data(), replyJSON.size()));
    setBytes(state);
}

void BM_EncodeDecode(benchmark::State& state) {
    for (auto _ : state) {
        Bytes b = WireJSON::encode(reply);
        benchmark::DoNotOptimize(WireJSON::decodeEnvelope(b.data(), b.size()));
    }
    setBytes(state);
}

BENCHMARK(BM_Baseline_LibraryParseAndPrint)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Encode)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Decode)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EncodeDecode)->Unit(benchmark::kMicrosecond);

// Keeps each benchmark's CPU time per iteration for the summary (the
// machine is shared, so wall time says more about the neighbours).
class Recorder : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> nsPerOp;
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration && r.iterations > 0)
                nsPerOp[r.benchmark_name()] = r.cpu_accumulated_time * 1e9 / double(r.iterations);
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Recorder recorder;
    benchmark::RunSpecifiedBenchmarks(&recorder);
    benchmark::Shutdown();

    double mb = double(replyJSON.size()) / 1e6;
    std::printf("\nwindowList reply of 1,000 windows: %zu bytes of JSON\n", replyJSON.size());
    for (const auto& [name, ns] : recorder.nsPerOp)
        std::printf("  %-36s %9.1f us/op (CPU) %8.1f MB/s\n", name.c_str(), ns / 1e3, mb / (ns / 1e9));
    auto base = recorder.nsPerOp.find("BM_Baseline_LibraryParseAndPrint");
    auto both = recorder.nsPerOp.find("BM_EncodeDecode");
    if (base != recorder.nsPerOp.end() && both != recorder.nsPerOp.end())
        std::printf("  encode+decode / library parse+print = %.2f\n", both->second / base->second);
    return 0;
}
