#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/PixelBuffer.h"
#include "TslCore/Wire/InputEvent.h"
#include "TslStream/Input/InputMapper.h"
#include "TslStream/Input/ShortcutKeyFilter.h"
#include "TslStream/Render/SDLEventTranslator.h"

union SDL_Event;

namespace tsl {

// One guest window on the host: a real window showing decoded frames at the
// guest window's point size from the top-left corner (one point per guest
// point, never stretched: black beyond the frame, cut where the window is
// smaller), which turns the user's mouse, wheel and keys into InputEvents.
// It sends nothing itself: frames come in through show, everything leaves
// through the callbacks. Main thread only, like the window system under it.
class StreamView {
public:
    struct Size {
        double width = 0, height = 0;
        bool operator==(const Size&) const = default;
    };

    // Whether windows can be made here (a display, or the offscreen driver).
    // Starts the window system on first use.
    static bool displayAvailable();

    // A window `width` by `height` points at `x`, `y`. Throws Error when the
    // window system refuses.
    StreamView(uint32_t windowID, double x, double y, double width, double height, const std::string& title);
    // The same for a guest window whose mapper others share: their events and
    // the view's take their sequences from one count.
    StreamView(std::shared_ptr<SharedInputMapper> input, double x, double y, double width, double height,
               const std::string& title);
    ~StreamView();
    StreamView(const StreamView&) = delete;
    StreamView& operator=(const StreamView&) = delete;

    // `contentScale`: the frame's pixels per point (the header's hundredths
    // divided by 100). A buffer that isn't on a shared surface is ignored.
    void show(std::shared_ptr<PixelBuffer> frame, double contentScale);

    uint64_t framesShown() const { return _framesShown; }
    double contentPixelsPerPoint() const { return _contentPixelsPerPoint; }
    Size contentPointSize() const { return _contentPointSize; }
    uint32_t windowID() const { return mapper->windowID(); }

    std::function<void(const InputEvent&)> onInput;
    std::function<void(double)> onBackingScaleChange;
    // The user resized the window; its new size in points.
    std::function<void(double width, double height)> onResize;
    // Set to take dropped files (paths); nothing refuses every drop.
    std::function<void(std::vector<std::string>)> onDropFiles;

    // Not finite gives 1; otherwise limited to 0.25 ... 8.
    static double sanitizedScale(double scale);

    // Routes every waiting window-system event to its view, after waiting up
    // to `wait` for the first. False once the user asked to quit the whole
    // program.
    static bool pumpEvents(std::chrono::milliseconds wait = {});
    // Ends a wait in pumpEvents early; any thread may call it.
    static void wake();
    // One event of this view's window.
    void handle(const SDL_Event& event);

    // What the window shows now, in its drawable's pixels (BGRA).
    std::shared_ptr<PixelBuffer> readBack();
    void resizeWindow(double width, double height);
    void setTitle(const std::string& title);

private:
    void draw();
    void present();
    void deliver(const InputMapper::HostEvent& event);
    double backingScale() const;

    struct Window;
    std::unique_ptr<Window> window;
    std::shared_ptr<SharedInputMapper> mapper;
    uint64_t _framesShown = 0;
    std::shared_ptr<PixelBuffer> displayed;
    double _contentPixelsPerPoint = 1.0;
    Size _contentPointSize;
    double lastBackingScale = 1.0;
    SDLEventTranslator translator;
    ShortcutKeyFilter shortcuts;
    std::vector<std::string> pendingDrop;
};

}  // namespace tsl
