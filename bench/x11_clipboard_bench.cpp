// A 2 MB text through the CLIPBOARD selection of an Xvfb of its own: our
// pasteboard copies it and a second one, on a connection of its own, pastes
// it (INCR both ways), against xclip copying and xclip pasting the same text.
#include <cstdio>
#include <fstream>

#include "BenchSupport.h"
#include "Platform/X11/X11Pasteboard.h"
#include "Support/TempDir.h"
#include "Support/XDisplay.h"
#include "TslCore/Wire/ControlRecords.h"

using namespace tsl;

int main() {
    constexpr size_t size = 2'000'000;
    constexpr int rounds = 15;
    test::XDisplay display(false);
    if (!display.ready()) {
        std::fprintf(stderr, "x11_clipboard_bench: no Xvfb\n");
        return 1;
    }
    test::TempDir dir;
    Bytes text(size);
    for (size_t i = 0; i < size; ++i) text[i] = uint8_t('a' + i % 26);
    const auto in = dir / "in", out = dir / "out";
    std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(text.data()), long(text.size()));

    X11::X11Pasteboard copier(display.shared(), ClipboardPayload::maxBytes);
    X11::X11Pasteboard paster(X11::Connection::open(display.name()), ClipboardPayload::maxBytes);
    bool whole = true;
    auto ours = [&] {
        copier.clearContents();
        copier.setData(text, Pasteboard::typeString);
        paster.types();
        whole = paster.dataForType(Pasteboard::typeString) == text && whole;
    };
    // xclip serves its copy until the next copy takes the selection; its
    // paste starts once the owner change has reached us.
    std::vector<std::unique_ptr<test::ChildProcess>> servers;
    auto xclip = [&] {
        const int64_t before = copier.changeCount();
        servers.push_back(std::make_unique<test::ChildProcess>(
            "/usr/bin/xclip", std::vector<std::string>{"-quiet", "-selection", "clipboard", "-i", in.string()}));
        display.waitUntil([&] { return copier.changeCount() != before; });
        test::ChildProcess paste("/bin/sh", {"-c", "/usr/bin/xclip -selection clipboard -o > " + out.string()});
        whole = paste.wait() == 0 && std::filesystem::file_size(out) == size && whole;
    };
    const auto [oursMicros, xclipMicros] = bench::medianMicrosInTurns(rounds, ours, xclip);
    std::printf("2 MB clipboard round trip: ours %.0f us, xclip %.0f us%s\n", oursMicros, xclipMicros,
                whole ? "" : " (NOT WHOLE)");
    bench::ratioLine("2 MB clipboard round trip, against xclip's own round trip on the same display", oursMicros,
                     xclipMicros, 1.5, false);
    return whole ? 0 : 1;
}
