// Gathers the race's runs, each x11probe's JSON, into one verdict: the
// samples as CSV, a text summary, an SVG chart, and the ratio lines of ours
// against the peer for each codec class.
//
//   race_report --out DIR --ours LABEL --peer LABEL [--notes FILE] RUN.json ...
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "TslCore/Measure/Stats.h"
#include "TslCore/Measure/SvgPanel.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct Pooled {
    std::vector<double> keyToPixelMs;
    int misses = 0, runs = 0;
    std::vector<double> fpsSeen, cpuPerFrameMs, cpuWithXPerFrameMs;

    double p(double percentage) const { return tsl::Stats::percentile(keyToPixelMs, percentage).value_or(0); }
    static double mean(const std::vector<double>& v) { return tsl::Stats::mean(v).value_or(0); }
};

// Key-to-pixel as the share of round trips done within each millisecond count.
std::string cdfPanel(const std::map<std::string, Pooled>& pools, tsl::svg::Panel p) {
    double most = 1;
    for (const auto& [name, pool] : pools) most = std::max(most, pool.p(99) * 1.1);
    p.xScale = tsl::ChartScale::covering(most);
    p.yScale = tsl::ChartScale::covering(100);
    std::string svg = p.axes("Key to pixel, share of round trips done", "milliseconds", "percent");
    const char* colours[] = {"#3b6ea8", "#c0392b", "#27ae60", "#8e44ad", "#d35400", "#7f8c8d"};
    size_t i = 0;
    for (const auto& [name, pool] : pools) {
        std::vector<double> sorted = pool.keyToPixelMs;
        std::sort(sorted.begin(), sorted.end());
        std::vector<std::pair<double, double>> points;
        for (size_t k = 0; k < sorted.size(); ++k)
            points.emplace_back(p.x(std::min(sorted[k], p.xScale.max)), p.y(100.0 * double(k + 1) / sorted.size()));
        const std::string colour = colours[i % 6];
        svg += tsl::svg::polyline(points, colour);
        svg += tsl::svg::text(p.left + p.width - 150, p.top + 14 + 16 * double(i), name, " fill=\"" + colour + "\"");
        ++i;
    }
    return svg;
}

// CPU per frame seen, one bar per contestant and codec.
std::string cpuPanel(const std::map<std::string, Pooled>& pools, tsl::svg::Panel p) {
    double most = 0.1;
    for (const auto& [name, pool] : pools) most = std::max(most, Pooled::mean(pool.cpuPerFrameMs));
    p.xScale = tsl::ChartScale::covering(double(std::max<size_t>(pools.size(), 1)));
    p.yScale = tsl::ChartScale::covering(most * 1.1);
    std::string svg = p.axes("CPU per frame seen (both sides)", "", "milliseconds");
    const double slot = p.width / double(std::max<size_t>(pools.size(), 1));
    size_t i = 0;
    for (const auto& [name, pool] : pools) {
        const double v = Pooled::mean(pool.cpuPerFrameMs), x = p.left + slot * double(i) + slot * 0.15;
        svg += tsl::svg::rect(x, p.y(v), slot * 0.7, p.y(0) - p.y(v), "#3b6ea8");
        svg += tsl::svg::text(x + slot * 0.35, p.top + p.height + 16, name, " text-anchor=\"middle\" font-size=\"10\"");
        ++i;
    }
    return svg;
}

}  // namespace

int main(int argc, char** argv) {
    std::string out, ours = "ours", peer = "peer", notes;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if ((a == "--out" || a == "--ours" || a == "--peer" || a == "--notes") && i + 1 < argc) {
            (a == "--out" ? out : a == "--ours" ? ours : a == "--peer" ? peer : notes) = argv[++i];
        } else {
            files.push_back(a);
        }
    }
    if (out.empty() || files.empty()) {
        std::fprintf(stderr,
                     "usage: race_report --out DIR [--ours LABEL] [--peer LABEL] [--notes FILE] RUN.json ...\n");
        return 2;
    }
    fs::create_directories(out);
    std::map<std::string, Pooled> pools;  // "label (codec)"
    std::ofstream csv(fs::path(out) / "race-samples.csv");
    csv << "run,contestant,codec,round,key_to_pixel_ms\n";
    std::ofstream runs(fs::path(out) / "race-runs.csv");
    runs << "run,contestant,codec,p50_ms,p95_ms,misses,fps_seen,cpu_per_frame_ms,cpu_with_x_per_frame_ms\n";
    for (size_t r = 0; r < files.size(); ++r) {
        std::ifstream in(files[r]);
        json run = json::parse(in, nullptr, false);
        if (run.is_discarded() || !run.is_object()) {
            std::fprintf(stderr, "race_report: %s is not a probe's result\n", files[r].c_str());
            return 1;
        }
        const std::string label = run.value("label", "?"), codec = run.value("codec", "?");
        Pooled& pool = pools[label + " (" + codec + ")"];
        const auto samples = run.value("keyToPixelMs", std::vector<double>{});
        for (size_t k = 0; k < samples.size(); ++k)
            csv << r << "," << label << "," << codec << "," << k << "," << samples[k] << "\n";
        pool.keyToPixelMs.insert(pool.keyToPixelMs.end(), samples.begin(), samples.end());
        pool.misses += run.value("misses", 0);
        pool.runs += 1;
        pool.fpsSeen.push_back(run.value("fpsSeen", 0.0));
        pool.cpuPerFrameMs.push_back(run.value("cpuPerFrameMs", 0.0));
        pool.cpuWithXPerFrameMs.push_back(run.value("cpuWithXPerFrameMs", 0.0));
        runs << r << "," << label << "," << codec << "," << tsl::Stats::percentile(samples, 50).value_or(0) << ","
             << tsl::Stats::percentile(samples, 95).value_or(0) << "," << run.value("misses", 0) << ","
             << run.value("fpsSeen", 0.0) << "," << run.value("cpuPerFrameMs", 0.0) << ","
             << run.value("cpuWithXPerFrameMs", 0.0) << "\n";
    }

    std::ostringstream text;
    text << "contestant (codec)        runs  key-to-pixel p50   p95    misses  fps seen  CPU/frame  (with X servers)\n";
    for (const auto& [name, pool] : pools) {
        char row[256];
        std::snprintf(row, sizeof row, "%-25s %4d  %9.2f ms %7.2f ms %6d  %8.1f  %6.2f ms  (%.2f ms)\n", name.c_str(),
                      pool.runs, pool.p(50), pool.p(95), pool.misses, Pooled::mean(pool.fpsSeen),
                      Pooled::mean(pool.cpuPerFrameMs), Pooled::mean(pool.cpuWithXPerFrameMs));
        text << row;
    }
    if (!notes.empty()) {
        std::ifstream in(notes);
        text << "\n" << in.rdbuf();
    }
    std::ofstream(fs::path(out) / "race-summary.txt") << text.str();
    std::printf("%s\n", text.str().c_str());

    std::string svg = tsl::svg::begin(940, 360);
    svg += cdfPanel(pools, tsl::svg::Panel{70, 40, 360, 240, {}, {}});
    svg += cpuPanel(pools, tsl::svg::Panel{540, 40, 360, 240, {}, {}});
    std::ofstream(fs::path(out) / "race-chart.svg") << svg << "</svg>\n";

    int status = 0;
    std::vector<std::string> codecs;
    for (const auto& [name, pool] : pools) {
        const std::string codec = name.substr(name.find(" (") + 2, name.size() - name.find(" (") - 3);
        if (std::find(codecs.begin(), codecs.end(), codec) == codecs.end()) codecs.push_back(codec);
    }
    for (const std::string& codec : codecs) {
        auto a = pools.find(ours + " (" + codec + ")"), b = pools.find(peer + " (" + codec + ")");
        if (a == pools.end() || b == pools.end()) {
            std::printf("%s / %s (%s): a contestant has no run\n", ours.c_str(), peer.c_str(), codec.c_str());
            status = 1;
            continue;
        }
        const Pooled &o = a->second, &p = b->second;
        const std::string pair = ours + " / " + peer + " ";
        tsl::bench::ratioLine((pair + "key-to-pixel p50 (" + codec + ")").c_str(), o.p(50), p.p(50), 0.5, false);
        tsl::bench::ratioLine((pair + "key-to-pixel p95 (" + codec + ")").c_str(), o.p(95), p.p(95), 0.5, false);
        tsl::bench::ratioLine((pair + "frames per second seen (" + codec + ")").c_str(), Pooled::mean(o.fpsSeen),
                              Pooled::mean(p.fpsSeen), 1.0);
        tsl::bench::ratioLine((pair + "CPU per frame (" + codec + ")").c_str(), Pooled::mean(o.cpuPerFrameMs),
                              Pooled::mean(p.cpuPerFrameMs), 0.5, false);
    }
    std::printf("\nResults in %s\n", out.c_str());
    return status;
}
