// Judges a window-forwarding program from the outside, on the display where
// its client shows the forwarded test pattern: the same probe for every
// contestant, reading only what the X server shows.
//
//   x11probe [--rounds N] [--seconds S] [--label NAME] [--codec NAME]
//            [--server-pids P,...] [--client-pids P,...] [--xserver-pids P,...]
//
// - Key to pixel: N times, an XTEST F1 press, then SHM GetImage of a 48×48
//   area inside the square every 0.5 ms until its mean luma passes the white
//   threshold; the key released, a wait for black, and a pause of 60–120 ms.
// - Frames seen: the counter cells read every 1 ms for S seconds; each
//   distinct value is a frame that reached the screen. The counter's advance
//   over the same time is the frames the client drew: seen over drawn is the
//   share that arrived, free of where the window's edges fell between frames.
// - CPU: utime plus stime of each side's processes and their descendants,
//   over the S seconds, per frame seen.
// Prints one JSON object on standard output.
#include <dirent.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TslCore/Measure/TestPattern.h"

using Clock = std::chrono::steady_clock;
namespace pattern = tsl::TestPatternSpec;

namespace {

struct Options {
    int rounds = 50;
    double seconds = 5;
    std::string label = "contestant", codec = "";
    std::vector<pid_t> serverPids, clientPids, xserverPids;
};

std::vector<pid_t> pidList(const std::string& text) {
    std::vector<pid_t> pids;
    std::istringstream in(text);
    for (std::string item; std::getline(in, item, ',');)
        if (!item.empty()) pids.push_back(pid_t(std::stol(item)));
    return pids;
}

std::optional<Options> parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (i + 1 >= argc) return std::nullopt;
        const std::string v = argv[++i];
        if (a == "--rounds") o.rounds = std::stoi(v);
        else if (a == "--seconds") o.seconds = std::stod(v);
        else if (a == "--label") o.label = v;
        else if (a == "--codec") o.codec = v;
        else if (a == "--server-pids") o.serverPids = pidList(v);
        else if (a == "--client-pids") o.clientPids = pidList(v);
        else if (a == "--xserver-pids") o.xserverPids = pidList(v);
        else return std::nullopt;
    }
    return o;
}

// CPU seconds of these processes and every live descendant.
double cpuSeconds(const std::vector<pid_t>& roots) {
    std::map<pid_t, pid_t> parentOf;
    std::map<pid_t, double> cpu;
    const double tick = double(::sysconf(_SC_CLK_TCK));
    if (DIR* proc = ::opendir("/proc")) {
        while (dirent* e = ::readdir(proc)) {
            const pid_t pid = pid_t(std::atol(e->d_name));
            if (pid <= 0) continue;
            std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
            std::string line;
            if (!std::getline(stat, line) || line.rfind(')') == std::string::npos) continue;
            // After the name: state, ppid, then utime and stime as fields 14 and 15.
            std::istringstream fields(line.substr(line.rfind(')') + 2));
            std::vector<std::string> f((std::istream_iterator<std::string>(fields)), {});
            if (f.size() < 13) continue;
            parentOf[pid] = pid_t(std::stol(f[1]));
            cpu[pid] = double(std::stoull(f[11]) + std::stoull(f[12])) / tick;
        }
        ::closedir(proc);
    }
    std::set<pid_t> counted(roots.begin(), roots.end());
    for (bool grew = true; grew;) {
        grew = false;
        for (const auto& [pid, parent] : parentOf)
            if (counted.contains(parent) && counted.insert(pid).second) grew = true;
    }
    double total = 0;
    for (pid_t pid : counted)
        if (auto found = cpu.find(pid); found != cpu.end()) total += found->second;
    return total;
}

class Screen {
public:
    Screen() : c(xcb_connect(nullptr, nullptr)) {}
    ~Screen() {
        if (segment) xcb_shm_detach(c, segment);
        if (memory) ::munmap(memory, size);
        xcb_disconnect(c);
    }
    bool ready() const { return !xcb_connection_has_error(c); }
    xcb_window_t root() const { return xcb_setup_roots_iterator(xcb_get_setup(c)).data->root; }

    // The viewable window titled `title`, anywhere in the tree.
    std::optional<xcb_window_t> find(xcb_window_t under, const std::string& title, int depth = 0) {
        if (depth > 4) return std::nullopt;
        auto tree = xcb_query_tree_reply(c, xcb_query_tree(c, under), nullptr);
        if (!tree) return std::nullopt;
        std::vector<xcb_window_t> children(xcb_query_tree_children(tree),
                                           xcb_query_tree_children(tree) + xcb_query_tree_children_length(tree));
        std::free(tree);
        for (xcb_window_t w : children) {
            auto attributes = xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, w), nullptr);
            const bool viewable = attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
            std::free(attributes);
            if (!viewable) continue;
            if (name(w) == title) return w;
            if (auto found = find(w, title, depth + 1)) return found;
        }
        return std::nullopt;
    }

    // The window's top-left corner on the screen.
    std::optional<std::pair<int, int>> origin(xcb_window_t w) {
        auto t = xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, w, root(), 0, 0), nullptr);
        if (!t) return std::nullopt;
        std::pair<int, int> at{t->dst_x, t->dst_y};
        std::free(t);
        return at;
    }

    void focus(xcb_window_t w) {
        const uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(c, w, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        xcb_warp_pointer(c, XCB_NONE, w, 0, 0, 0, 0, 320, 200);
        xcb_set_input_focus(c, XCB_INPUT_FOCUS_PARENT, w, XCB_CURRENT_TIME);
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    }

    uint8_t keycodeOf(uint32_t keysym) {
        const xcb_setup_t* setup = xcb_get_setup(c);
        const int count = setup->max_keycode - setup->min_keycode + 1;
        auto map =
            xcb_get_keyboard_mapping_reply(c, xcb_get_keyboard_mapping(c, setup->min_keycode, uint8_t(count)), nullptr);
        uint8_t found = 0;
        if (map) {
            const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(map);
            for (int k = 0; k < count && !found; ++k)
                for (int j = 0; j < map->keysyms_per_keycode; ++j)
                    if (syms[k * map->keysyms_per_keycode + j] == keysym) found = uint8_t(setup->min_keycode + k);
        }
        std::free(map);
        return found;
    }

    void key(uint8_t code, bool down) {
        xcb_test_fake_input(c, down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_flush(c);
    }

    // BGRA pixels of a screen rectangle, through one shared segment.
    const uint32_t* read(int x, int y, int w, int h) {
        if (!memory && !attach(1 << 20)) return nullptr;
        if (size_t(w) * h * 4 > size) return nullptr;
        auto reply = xcb_shm_get_image_reply(c,
                                             xcb_shm_get_image(c, root(), int16_t(x), int16_t(y), uint16_t(w),
                                                               uint16_t(h), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment, 0),
                                             nullptr);
        std::free(reply);
        return reply ? static_cast<const uint32_t*>(memory) : nullptr;
    }

private:
    std::string name(xcb_window_t w) {
        for (xcb_atom_t atom : {netWmName(), xcb_atom_t(XCB_ATOM_WM_NAME)}) {
            auto p = xcb_get_property_reply(c, xcb_get_property(c, 0, w, atom, XCB_ATOM_ANY, 0, 256), nullptr);
            std::string text;
            if (p) text.assign(static_cast<const char*>(xcb_get_property_value(p)), xcb_get_property_value_length(p));
            std::free(p);
            if (!text.empty()) return text;
        }
        return {};
    }
    xcb_atom_t netWmName() {
        if (!_netWmName) {
            auto r = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, 12, "_NET_WM_NAME"), nullptr);
            _netWmName = r ? r->atom : xcb_atom_t(XCB_ATOM_WM_NAME);
            std::free(r);
        }
        return _netWmName;
    }
    bool attach(size_t bytes) {
        const int fd = ::memfd_create("x11probe", MFD_CLOEXEC);
        if (fd < 0 || ::ftruncate(fd, off_t(bytes)) != 0) return false;
        void* m = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (m == MAP_FAILED) return false;
        segment = xcb_generate_id(c);
        xcb_shm_attach_fd(c, segment, fd, 0);
        memory = m, size = bytes;
        return true;
    }

    xcb_connection_t* const c;
    xcb_atom_t _netWmName = 0;
    xcb_shm_seg_t segment = 0;
    void* memory = nullptr;
    size_t size = 0;
};

double luma(uint32_t bgra) {
    return 0.299 * ((bgra >> 16) & 0xFF) + 0.587 * ((bgra >> 8) & 0xFF) + 0.114 * (bgra & 0xFF);
}

double meanLuma(const uint32_t* pixels, size_t count) {
    double sum = 0;
    for (size_t i = 0; i < count; ++i) sum += luma(pixels[i]);
    return count ? sum / double(count) : 0;
}

constexpr int inset = 8, side = int(pattern::squareSize) - 2 * inset;  // 48

std::optional<double> squareLuma(Screen& screen, std::pair<int, int> at) {
    const uint32_t* p =
        screen.read(at.first + int(pattern::squareX) + inset, at.second + int(pattern::squareY) + inset, side, side);
    if (!p) return std::nullopt;
    return meanLuma(p, size_t(side) * side);
}

// Polls every half millisecond until the square is white (or black), or two seconds pass.
std::optional<Clock::time_point> waitForSquare(Screen& screen, std::pair<int, int> at, bool white) {
    const auto limit = Clock::now() + std::chrono::seconds(2);
    for (auto next = Clock::now(); Clock::now() < limit; next += std::chrono::microseconds(500)) {
        auto l = squareLuma(screen, at);
        if (l && (*l > pattern::whiteThreshold) == white) return Clock::now();
        std::this_thread::sleep_until(next + std::chrono::microseconds(500));
    }
    return std::nullopt;
}

// The counter's low 16 bits, from the middle of each cell.
std::optional<uint32_t> counter(Screen& screen, std::pair<int, int> at) {
    const int width = int(pattern::barcodeCell) * pattern::barcodeBits;
    const int y = at.second + int(pattern::barcodeY + pattern::barcodeHeight / 2);
    const uint32_t* p = screen.read(at.first + int(pattern::barcodeX), y, width, 1);
    if (!p) return std::nullopt;
    uint32_t value = 0;
    for (int i = 0; i < pattern::barcodeBits; ++i) {
        if (luma(p[int((i + 0.5) * pattern::barcodeCell)]) > 128) value |= 1u << i;
    }
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    auto options = parse(argc, argv);
    if (!options) {
        std::fprintf(stderr,
                     "usage: x11probe [--rounds N] [--seconds S] [--label NAME] [--codec NAME] [--server-pids P,...] "
                     "[--client-pids P,...] [--xserver-pids P,...]\n");
        return 2;
    }
    Screen screen;
    if (!screen.ready()) {
        std::fprintf(stderr, "x11probe: cannot open the display\n");
        return 1;
    }
    std::optional<xcb_window_t> window;
    for (auto limit = Clock::now() + std::chrono::seconds(30); !window && Clock::now() < limit;) {
        window = screen.find(screen.root(), std::string(pattern::windowTitle));
        if (!window) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (!window) {
        std::fprintf(stderr, "x11probe: no window titled %s\n", std::string(pattern::windowTitle).c_str());
        return 1;
    }
    screen.focus(*window);
    const uint8_t f1 = screen.keycodeOf(0xffbe);
    auto at = screen.origin(*window);
    if (!f1 || !at) {
        std::fprintf(stderr, "x11probe: no F1 key, or the window went\n");
        return 1;
    }
    // The first frames may still be on their way.
    waitForSquare(screen, *at, false);

    std::vector<double> keyToPixel;
    int misses = 0;
    std::mt19937 random(4242);
    std::uniform_int_distribution<int> pause(60, 120);
    for (int i = 0; i < options->rounds; ++i) {
        const auto sent = Clock::now();
        screen.key(f1, true);
        if (auto shown = waitForSquare(screen, *at, true))
            keyToPixel.push_back(std::chrono::duration<double, std::milli>(*shown - sent).count());
        else ++misses;
        screen.key(f1, false);
        waitForSquare(screen, *at, false);
        std::this_thread::sleep_for(std::chrono::milliseconds(pause(random)));
    }

    std::optional<uint32_t> last;
    uint64_t advance = 0, changes = 0;
    const double serverBefore = cpuSeconds(options->serverPids), clientBefore = cpuSeconds(options->clientPids),
                 xBefore = cpuSeconds(options->xserverPids);
    const auto start = Clock::now();
    for (auto next = start; Clock::now() - start < std::chrono::duration<double>(options->seconds);) {
        if (auto value = counter(screen, *at)) {
            // The counter only goes forward; a step back or a leap is a misread cell.
            const uint32_t step = last ? (*value - *last) & 0xFFFF : 0;
            if (!last) last = value;
            else if (step > 0 && step < 1000) advance += step, changes += 1, last = value;
        }
        next += std::chrono::milliseconds(1);
        std::this_thread::sleep_until(next);
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const double server = cpuSeconds(options->serverPids) - serverBefore,
                 client = cpuSeconds(options->clientPids) - clientBefore,
                 xservers = cpuSeconds(options->xserverPids) - xBefore;
    const uint64_t seen = last ? changes + 1 : 0;
    const double frames = double(std::max<uint64_t>(seen, 1));

    nlohmann::json out = {{"label", options->label},
                          {"codec", options->codec},
                          {"keyToPixelMs", keyToPixel},
                          {"misses", misses},
                          {"framesSeen", seen},
                          {"framesDrawn", advance + 1},
                          {"shareSeen", double(seen) / double(advance + 1)},
                          {"seconds", elapsed},
                          {"fpsSeen", double(seen) / elapsed},
                          {"serverCpuSeconds", server},
                          {"clientCpuSeconds", client},
                          {"xserverCpuSeconds", xservers},
                          {"cpuPerFrameMs", (server + client) * 1e3 / frames},
                          {"cpuWithXPerFrameMs", (server + client + xservers) * 1e3 / frames}};
    std::printf("%s\n", out.dump().c_str());
    return 0;
}
