#include "TesselHost/SimReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "TslCore/Measure/Stats.h"

namespace tsl::host {
namespace {

constexpr const char* goal = "input-to-pixel p50 / floor";

std::string ms(const std::optional<double>& v) {
    if (!v) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", *v);
    return text;
}

std::string fixed(double v, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}

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
    // Whole seconds only: the first and the last are partly empty.
    std::vector<double> full;
    for (size_t i = 1; i + 1 < f.framesPerSecond.size(); ++i) full.push_back(double(f.framesPerSecond[i]));
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

std::string svgChart(const SimFigures& f, const SimSummary& s) {
    constexpr int width = 900, height = 320, panel = 420, top = 40, plot = 230;
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) + "\" height=\"" +
                      std::to_string(height) + "\" font-family=\"sans-serif\" font-size=\"12\">\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";

    // Left: how input-to-pixel latencies spread, in 1 ms bins.
    svg += "<text x=\"20\" y=\"24\" font-size=\"14\">Input to pixel (ms), " + std::to_string(f.latencyMs.size()) +
           " round trips</text>\n";
    if (!f.latencyMs.empty()) {
        double top99 = std::max(1.0, std::ceil(s.p99.value_or(1.0) * 1.2));
        size_t bins = std::min<size_t>(60, size_t(top99));
        double binWidth = top99 / double(bins);
        std::vector<size_t> counts(bins, 0);
        for (double v : f.latencyMs) counts[std::min(bins - 1, size_t(v / binWidth))] += 1;
        size_t most = *std::max_element(counts.begin(), counts.end());
        double barWidth = double(panel - 40) / double(bins);
        for (size_t i = 0; i < bins; ++i) {
            double h = most ? double(plot) * double(counts[i]) / double(most) : 0;
            svg += "<rect x=\"" + fixed(30 + barWidth * double(i), 1) + "\" y=\"" + fixed(top + plot - h, 1) +
                   "\" width=\"" + fixed(std::max(1.0, barWidth - 1), 1) + "\" height=\"" + fixed(h, 1) +
                   "\" fill=\"#3b6ea8\"/>\n";
        }
        svg += "<text x=\"30\" y=\"" + std::to_string(top + plot + 16) + "\">0</text>\n";
        svg += "<text x=\"" + std::to_string(panel - 30) + "\" y=\"" + std::to_string(top + plot + 16) + "\">" +
               fixed(top99, 0) + "</text>\n";
        if (s.p50) {
            double x = 30 + (panel - 40) * (*s.p50 / top99);
            svg += "<line x1=\"" + fixed(x, 1) + "\" y1=\"" + std::to_string(top) + "\" x2=\"" + fixed(x, 1) +
                   "\" y2=\"" + std::to_string(top + plot) + "\" stroke=\"#c0392b\"/>\n";
            svg += "<text x=\"" + fixed(x + 4, 1) + "\" y=\"" + std::to_string(top + 12) + "\" fill=\"#c0392b\">p50 " +
                   fixed(*s.p50, 1) + "</text>\n";
        }
    }

    // Right: frames received in each second of the run.
    int left = panel + 40;
    svg += "<text x=\"" + std::to_string(left) + "\" y=\"24\" font-size=\"14\">Frames per second</text>\n";
    if (!f.framesPerSecond.empty()) {
        uint64_t most = std::max<uint64_t>(1, *std::max_element(f.framesPerSecond.begin(), f.framesPerSecond.end()));
        double step = f.framesPerSecond.size() > 1 ? double(panel - 40) / double(f.framesPerSecond.size() - 1) : 0;
        std::string points;
        for (size_t i = 0; i < f.framesPerSecond.size(); ++i) {
            double y = top + plot - double(plot) * double(f.framesPerSecond[i]) / double(most);
            points += fixed(left + step * double(i), 1) + "," + fixed(y, 1) + " ";
        }
        svg += "<polyline fill=\"none\" stroke=\"#27ae60\" stroke-width=\"2\" points=\"" + points + "\"/>\n";
        svg += "<text x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(top + plot + 16) + "\">0 s</text>\n";
        svg += "<text x=\"" + std::to_string(left - 30) + "\" y=\"" + std::to_string(top + 4) + "\">" +
               std::to_string(most) + "</text>\n";
    }
    svg += "</svg>\n";
    return svg;
}

}  // namespace tsl::host
