#include "TesselHost/SimReport.h"

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "TesselHost/SimChart.h"
#include "TslCore/Measure/Stats.h"
#include "TslCore/Measure/SvgPanel.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslStream/Measure/ResultWriter.h"

namespace tsl::host {
namespace {

constexpr const char* goal = "input-to-pixel p50 / floor";

std::string ms(const std::optional<double>& v) {
    if (!v) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", *v);
    return text;
}

using svg::fixed;

nlohmann::json optional(const std::optional<double>& v) { return v ? nlohmann::json(*v) : nlohmann::json(); }

}  // namespace

SimSummary SimSummary::of(const SimFigures& f, const SimOptions& options) {
    SimSummary s;
    s.roundTrips = f.latencyMs.size();
    s.p50 = Stats::percentile(f.latencyMs, 50);
    s.p95 = Stats::percentile(f.latencyMs, 95);
    s.p99 = Stats::percentile(f.latencyMs, 99);
    s.mean = Stats::mean(f.latencyMs);
    s.captureToArrivalP50 = Stats::median(f.captureToArrivalMs);
    s.decodeP50 = Stats::median(f.decodeMs);
    s.frames = f.framesReceived;
    s.lost = f.framesLost;
    s.decodeErrors = f.decodeErrors;
    // The figures hold whole seconds only; the first is partly empty still,
    // spent launching before the first frame.
    std::vector<double> full;
    for (size_t i = 1; i < f.framesPerSecond.size(); ++i) full.push_back(double(f.framesPerSecond[i]));
    s.fps = Stats::median(full).value_or(f.seconds > 0 ? double(f.framesReceived) / f.seconds : 0);
    if (s.captureToArrivalP50 && s.decodeP50) s.floorMs = 500.0 / options.fps + *s.captureToArrivalP50 + *s.decodeP50;
    if (s.p50 && s.floorMs && *s.floorMs > 0) s.floorRatio = *s.p50 / *s.floorMs;
    return s;
}

std::string summaryText(const SimSummary& s, const SimOptions& o) {
    std::string t;
    t += "Simulation: " + std::string(o.codec == VideoCodec::h264 ? "H.264" : "raw") + ", " + std::to_string(o.fps) +
         " fps asked, scale " + fixed(o.scale, 2) + "\n\n";
    t += "  input to pixel      p50 " + ms(s.p50) + "   p95 " + ms(s.p95) + "   p99 " + ms(s.p99) + "   (" +
         std::to_string(s.roundTrips) + " round trips: key sent to the first frame that shows it)\n";
    t += "  capture to arrival  p50 " + ms(s.captureToArrivalP50) +
         "   (from the frame's capture timestamp on the agent: its encode and send, and the transfer)\n";
    t += "  decode              p50 " + ms(s.decodeP50) + "   (on the host, to a picture)\n";
    t += "  floor                   " + ms(s.floorMs) + "   (half a frame " + ms(500.0 / o.fps) +
         " + capture to arrival + decode)\n";
    t += "  frames              " + std::to_string(s.frames) + " received, " + std::to_string(s.lost) + " lost, " +
         std::to_string(s.decodeErrors) + " undecodable\n";
    t += "  frame rate          " + fixed(s.fps, 1) + " fps\n";
    return t;
}

std::string floorLine(const SimSummary& s) {
    if (!s.floorRatio) return std::string(goal) + ": not measured";
    return ratioLine(goal, *s.floorRatio, SimSummary::floorTarget, false);
}

nlohmann::json summaryJSON(const SimSummary& s, const SimOptions& o, const std::vector<std::string>& files) {
    nlohmann::json j{
        {"codec", o.codec == VideoCodec::h264 ? "h264" : "raw"},
        {"fps", o.fps},
        {"scale", o.scale},
        {"roundTrips", s.roundTrips},
        {"latencyMs", {{"p50", optional(s.p50)}, {"p95", optional(s.p95)}, {"p99", optional(s.p99)}, {"mean", optional(s.mean)}}},
        {"captureToArrivalMsP50", optional(s.captureToArrivalP50)},
        {"decodeMsP50", optional(s.decodeP50)},
        {"floorMs", optional(s.floorMs)},
        {"goal", {{"what", goal}, {"ratio", optional(s.floorRatio)}, {"target", SimSummary::floorTarget}, {"met", s.floorMet()}}},
        {"framesReceived", s.frames},
        {"framesLost", s.lost},
        {"decodeErrors", s.decodeErrors},
        {"framesPerSecond", s.fps},
        {"files", files},
    };
    return j;
}

std::string resultsFolder(const std::string& named, const std::string& kind) {
    return named.empty() ? homeDirectory() + "/.cache/tessel/" + kind + "-results" : named;
}

std::vector<std::string> writeResults(const SimFigures& f, const SimSummary& s, const std::string& folder,
                                      const std::string& kind, const std::string& text) {
    if (const int error = FileTree::makeFolders(folder, 0700))
        throw Error("cannot create " + folder + ": " + std::strerror(error));
    ResultWriter writer(folder, kind);
    std::vector<std::string> latency, fps;
    for (size_t i = 0; i < f.latencyMs.size(); ++i)
        latency.push_back(std::to_string(i + 1) + "," + std::to_string(f.latencyMs[i]));
    for (size_t i = 0; i < f.framesPerSecond.size(); ++i)
        fps.push_back(std::to_string(i) + "," + std::to_string(f.framesPerSecond[i]));
    return {writer.write("latency", "round_trip,milliseconds", latency), writer.write("fps", "second,frames", fps),
            writer.writeText("summary.txt", text + floorLine(s) + "\n"), writer.writeText("chart.svg", svgChart(f, s))};
}

}  // namespace tsl::host
