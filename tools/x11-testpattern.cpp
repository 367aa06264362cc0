// The test pattern as a real X client: the same picture the simulated
// application draws, a counter that advances with every frame of its clock,
// and a square that is white while F1 is held. A key repaints at once with
// the same count, so that a gap in the count is a frame lost on the way.
//
//   x11-testpattern [--fps N] [--position X,Y]

#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Measure/TestPattern.h"

namespace {

using namespace tsl;
using Clock = std::chrono::steady_clock;

constexpr xcb_keysym_t keysymF1 = 0xffbe;
constexpr uint32_t usPosition = 1, usSize = 2, inputHint = 1;

struct Options {
    double fps = 30;
    int16_t x = 100, y = 100;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string_view a = argv[i];
        if (i + 1 >= argc) return false;
        if (a == "--fps") {
            o.fps = std::atof(argv[++i]);
            if (!(o.fps > 0 && o.fps <= 1000)) return false;
        } else if (a == "--position") {
            int px = 0, py = 0;
            if (std::sscanf(argv[++i], "%d,%d", &px, &py) != 2) return false;
            o.x = int16_t(px), o.y = int16_t(py);
        } else {
            return false;
        }
    }
    return true;
}

xcb_atom_t atom(xcb_connection_t* c, std::string_view name) {
    xcb_intern_atom_reply_t* r =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(name.size()), name.data()), nullptr);
    xcb_atom_t a = r ? r->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(r);
    return a;
}

void setProperty(xcb_connection_t* c, xcb_window_t w, xcb_atom_t property, xcb_atom_t type, uint8_t format,
                 const void* data, uint32_t count) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, property, type, format, count, data);
}

class PatternWindow {
public:
    PatternWindow(xcb_connection_t* c, const xcb_screen_t* screen, const Options& o)
        : c(c),
          width(uint16_t(TestPatternSpec::contentWidth)),
          height(uint16_t(TestPatternSpec::contentHeight)),
          pixels(size_t(width) * height * 4),
          depth(screen->root_depth) {
        window = xcb_generate_id(c);
        const uint32_t values[] = {screen->black_pixel, XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_KEY_PRESS |
                                                            XCB_EVENT_MASK_KEY_RELEASE |
                                                            XCB_EVENT_MASK_STRUCTURE_NOTIFY};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, o.x, o.y, width, height, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK,
                          values);
        const std::string title(TestPatternSpec::windowTitle);
        const xcb_atom_t utf8 = atom(c, "UTF8_STRING");
        setProperty(c, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, title.data(), uint32_t(title.size()));
        setProperty(c, window, atom(c, "_NET_WM_NAME"), utf8, 8, title.data(), uint32_t(title.size()));
        const char wmClass[] = "x11-testpattern\0TslTestPattern";
        setProperty(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8, wmClass, sizeof wmClass);
        const uint32_t pid = uint32_t(::getpid());
        setProperty(c, window, atom(c, "_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, &pid, 1);
        // WM_SIZE_HINTS: flags, then x, y, width, height (and the rest unused).
        uint32_t sizeHints[18] = {usPosition | usSize, uint32_t(o.x), uint32_t(o.y), width, height};
        setProperty(c, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, sizeHints, 18);
        const uint32_t hints[9] = {inputHint, 1};
        setProperty(c, window, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, 32, hints, 9);
        deleteWindow = atom(c, "WM_DELETE_WINDOW");
        setProperty(c, window, atom(c, "WM_PROTOCOLS"), XCB_ATOM_ATOM, 32, &deleteWindow, 1);
        const xcb_atom_t normal = atom(c, "_NET_WM_WINDOW_TYPE_NORMAL");
        setProperty(c, window, atom(c, "_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, &normal, 1);
        gc = xcb_generate_id(c);
        xcb_create_gc(c, gc, window, 0, nullptr);
        xcb_map_window(c, window);
        // Bands that fit in one request, with room for the request's header.
        const uint32_t maxBytes = xcb_get_maximum_request_length(c) * 4 - 64;
        bandRows = std::max<uint32_t>(1, std::min<uint32_t>(height, maxBytes / (uint32_t(width) * 4)));
        xcb_flush(c);
    }

    // A new frame of the clock, or the current one again.
    void draw(bool advance) {
        if (advance) ++counter;
        drawTestPattern(pixels.data(), width, height, size_t(width) * 4, 1.0, counter, squareWhite);
        for (uint32_t row = 0; row < height; row += bandRows) {
            const uint32_t rows = std::min<uint32_t>(bandRows, height - row);
            xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, window, gc, width, uint16_t(rows), 0, int16_t(row), 0, depth,
                          rows * width * 4, pixels.data() + size_t(row) * width * 4);
        }
        xcb_flush(c);
    }

    xcb_connection_t* const c;
    const uint16_t width, height;
    std::vector<uint8_t> pixels;
    const uint8_t depth;
    xcb_window_t window = 0;
    xcb_gcontext_t gc = 0;
    xcb_atom_t deleteWindow = 0;
    uint32_t bandRows = 1;
    uint64_t counter = 0;
    bool squareWhite = false;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: x11-testpattern [--fps N] [--position X,Y]\n");
        return 2;
    }
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "x11-testpattern: cannot open the X display\n");
        return 1;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber; ++i) xcb_screen_next(&screens);
    PatternWindow pattern(c, screens.data, options);
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(c);
    const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / options.fps));
    auto next = Clock::now();
    const xcb_atom_t protocols = atom(c, "WM_PROTOCOLS");

    // False once the window manager asked the window to close.
    auto handle = [&](xcb_generic_event_t* event) {
        const uint8_t type = event->response_type & 0x7f;
        bool keepGoing = true;
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
            auto* key = reinterpret_cast<xcb_key_press_event_t*>(event);
            if (xcb_key_symbols_get_keysym(symbols, key->detail, 0) == keysymF1) {
                pattern.squareWhite = type == XCB_KEY_PRESS;
                pattern.draw(false);  // at once, not at the next tick
            }
        } else if (type == XCB_CLIENT_MESSAGE) {
            auto* message = reinterpret_cast<xcb_client_message_event_t*>(event);
            keepGoing = !(message->type == protocols && message->data.data32[0] == pattern.deleteWindow);
        } else if (type == XCB_MAPPING_NOTIFY) {
            xcb_refresh_keyboard_mapping(symbols, reinterpret_cast<xcb_mapping_notify_event_t*>(event));
        }
        std::free(event);
        return keepGoing;
    };

    bool open = true;
    while (open && !xcb_connection_has_error(c)) {
        while (open)
            if (xcb_generic_event_t* event = xcb_poll_for_event(c)) open = handle(event);
            else break;
        const auto now = Clock::now();
        if (open && now >= next) {
            pattern.draw(true);
            next += interval;
            if (next < now) next = now + interval;  // fell behind: don't draw a burst
        }
        // A draw's long write lets xcb read what arrives meanwhile into its
        // queue, where poll() can't see it: a key waited for the next tick.
        if (xcb_generic_event_t* queued = xcb_poll_for_queued_event(c)) {
            open = handle(queued);
            continue;
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
        pollfd fd{xcb_get_file_descriptor(c), POLLIN, 0};
        if (open) ::poll(&fd, 1, int(std::max<int64_t>(0, wait)));
    }
    xcb_key_symbols_free(symbols);
    xcb_disconnect(c);
    return open ? 1 : 0;
}
