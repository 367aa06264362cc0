// The CLIPBOARD selection as the pasteboard, against xclip on a display of
// the test's own: copies seen and read whole, our copies read by xclip,
// INCR both ways, the size limit, the private hint and the echo rule.
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "Platform/X11/X11Pasteboard.h"
#include "Support/TempDir.h"
#include "Support/XDisplay.h"
#include "TslStream/Clipboard/ClipboardSync.h"

namespace tsl::test {
namespace {

constexpr const char* xclip = "/usr/bin/xclip";

Bytes bytesOf(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes randomBytes(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes out(size);
    for (auto& b : out) b = uint8_t(random());
    return out;
}

// Printable text of `size` bytes that no two offsets confuse.
Bytes textOf(size_t size) {
    Bytes out(size);
    for (size_t i = 0; i < size; ++i) out[i] = uint8_t('a' + (i * 7 + i / 26) % 26);
    return out;
}

// A real PNG whose pixels don't compress: larger than one request.
Bytes noisyPNG(int side) {
    TempDir dir;
    ChildProcess python(
        "/usr/bin/python3",
        {"-c",
         "import struct,zlib,random,sys\n"
         "w=h=int(sys.argv[1]);random.seed(7)\n"
         "raw=b''.join(b'\\0'+random.randbytes(3*w) for _ in range(h))\n"
         "def c(t,d):return struct.pack('>I',len(d))+t+d+struct.pack('>I',zlib.crc32(t+d))\n"
         "open(sys.argv[2],'wb').write(b'\\x89PNG\\r\\n\\x1a\\n'+c(b'IHDR',struct.pack('>IIBBBBB',w,h,8,2,0,0,0))"
         "+c(b'IDAT',zlib.compress(raw,1))+c(b'IEND',b''))\n",
         std::to_string(side), (dir / "p.png").string()});
    if (python.wait() != 0) return {};
    std::ifstream in(dir / "p.png", std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

class X11PasteboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        display = std::make_unique<XDisplay>(false);
        ASSERT_TRUE(display->ready());
        pasteboard = std::make_shared<X11::X11Pasteboard>(display->shared(), ClipboardPayload::maxBytes);
    }

    // Copies `data` as `target` with xclip, which serves it until the selection moves on.
    ChildProcess& copy(const Bytes& data, const std::string& target = "UTF8_STRING") {
        const auto file = dir / ("in" + std::to_string(copies++));
        std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), long(data.size()));
        const int64_t before = pasteboard->changeCount();
        ChildProcess& child =
            display->launch(xclip, {"-quiet", "-selection", "clipboard", "-t", target, "-i", file.string()});
        display->waitUntil([&] { return pasteboard->changeCount() != before; });
        return child;
    }
    // What xclip reads for `target`, whole.
    std::optional<Bytes> paste(const std::string& target = "UTF8_STRING") {
        const auto file = dir / "out";
        ChildProcess child(
            "/bin/sh", {"-c", std::string(xclip) + " -selection clipboard -t '" + target + "' -o > " + file.string()});
        if (child.wait() != 0) return std::nullopt;
        std::ifstream in(file, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    void own(const std::vector<std::pair<std::string, Bytes>>& items) {
        pasteboard->clearContents();
        for (const auto& [type, data] : items) ASSERT_TRUE(pasteboard->setData(data, type));
    }

    TempDir dir;
    int copies = 0;
    std::unique_ptr<XDisplay> display;
    std::shared_ptr<X11::X11Pasteboard> pasteboard;
};

TEST_F(X11PasteboardTest, ACopyRaisesTheCountAndReadsBackAsText) {
    const int64_t before = pasteboard->changeCount();
    copy(bytesOf("grüße from xclip"));
    EXPECT_EQ(pasteboard->changeCount(), before + 1);
    EXPECT_EQ(pasteboard->types(), std::vector<std::string>{Pasteboard::typeString});
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeString), bytesOf("grüße from xclip"));
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typePNG), std::nullopt);

    // The other text name, RTF under its other name, and a file list.
    copy(bytesOf("plain"), "text/plain;charset=utf-8");
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeString), bytesOf("plain"));
    copy(bytesOf("{\\rtf1 x}"), "application/rtf");
    EXPECT_EQ(pasteboard->types(), std::vector<std::string>{Pasteboard::typeRTF});
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeRTF), bytesOf("{\\rtf1 x}"));
    copy(bytesOf("# chosen\r\nfile:///tmp/a%20b\r\nfile:///tmp/c\r\n"), "text/uri-list");
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeFileURL), bytesOf("file:///tmp/a%20b"));
}

TEST_F(X11PasteboardTest, OurCopyIsReadByXclipUnderEveryName) {
    own({{Pasteboard::typeString, bytesOf("from the host")},
         {Pasteboard::typeRTF, bytesOf("{\\rtf1 y}")},
         {Pasteboard::typeFileURL, bytesOf("file:///tmp/x")}});
    EXPECT_EQ(paste(), bytesOf("from the host"));
    EXPECT_EQ(paste("text/plain;charset=utf-8"), bytesOf("from the host"));
    EXPECT_EQ(paste("text/rtf"), bytesOf("{\\rtf1 y}"));
    EXPECT_EQ(paste("text/uri-list"), bytesOf("file:///tmp/x\r\n"));
    const std::optional<Bytes> targets = paste("TARGETS");
    ASSERT_TRUE(targets);
    const std::string names(targets->begin(), targets->end());
    for (const char* name : {"TARGETS", "TIMESTAMP", "UTF8_STRING", "text/plain;charset=utf-8", "text/rtf"})
        EXPECT_NE(names.find(name), std::string::npos) << name;
    EXPECT_EQ(names.find("image/png"), std::string::npos);

    // Another owner ends ours: we read theirs.
    copy(bytesOf("taken"));
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeString), bytesOf("taken"));
    EXPECT_FALSE(pasteboard->setData(bytesOf("late"), Pasteboard::typeString));
}

TEST_F(X11PasteboardTest, LargeTextAndPicturesTravelWholeBothWays) {
    const Bytes text = textOf(ClipboardPayload::maxBytes - 200'000);
    const Bytes png = noisyPNG(700);
    ASSERT_GT(png.size(), pasteboard->chunkSize());
    ASSERT_LT(pasteboard->chunkSize(), text.size());

    copy(text);
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeString), text);
    copy(png, "image/png");
    EXPECT_EQ(pasteboard->types(), std::vector<std::string>{Pasteboard::typePNG});
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typePNG), png);

    own({{Pasteboard::typeString, text}, {Pasteboard::typePNG, png}});
    EXPECT_EQ(paste(), text);
    EXPECT_EQ(paste("image/png"), png);

    // A second reader on a connection of its own goes through the server, not our memory.
    X11::X11Pasteboard reader(X11::Connection::open(display->name()), ClipboardPayload::maxBytes);
    EXPECT_EQ(reader.dataForType(Pasteboard::typePNG), png);
}

TEST_F(X11PasteboardTest, ACopyPastTheLimitIsNotSent) {
    ClipboardSync sync(Hello::Role::agent, pasteboard);
    copy(randomBytes(ClipboardPayload::maxBytes + 1, 3), "image/png");
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typePNG)->size(), ClipboardPayload::maxBytes + 1);
    EXPECT_EQ(sync.snapshot(), std::nullopt);

    const Bytes exact = textOf(ClipboardPayload::maxBytes);
    copy(exact);
    const std::optional<ClipboardPayload> payload = sync.snapshot();
    ASSERT_TRUE(payload);
    ASSERT_EQ(payload->items.size(), 1u);
    EXPECT_EQ(payload->items[0].data, exact);
}

TEST_F(X11PasteboardTest, PasswordManagerCopiesStayPrivate) {
    // A second client owns the selection with the hint, as a password manager would.
    X11::X11Pasteboard manager(X11::Connection::open(display->name()), ClipboardPayload::maxBytes);
    const int64_t before = pasteboard->changeCount();
    manager.clearContents();
    manager.setData(bytesOf("hunter2"), Pasteboard::typeString);
    manager.setData({}, X11::X11Pasteboard::typeConcealed);
    display->waitUntil([&] { return pasteboard->changeCount() != before; });

    EXPECT_EQ(paste("x-kde-passwordManagerHint"), bytesOf("secret"));
    EXPECT_EQ(pasteboard->types(),
              (std::vector<std::string>{Pasteboard::typeString, X11::X11Pasteboard::typeConcealed}));
    ClipboardSync sync(Hello::Role::agent, pasteboard);
    EXPECT_EQ(sync.snapshot(), std::nullopt);

    // Another value of the hint is no marker.
    copy(bytesOf("public"), "x-kde-passwordManagerHint");
    EXPECT_EQ(pasteboard->types(), std::vector<std::string>{});
}

TEST_F(X11PasteboardTest, WhatTheHostSetsDoesNotComeBack) {
    ClipboardSync sync(Hello::Role::agent, pasteboard);
    std::vector<ClipboardPayload> sent;
    sync.setOnLocalChange([&](const ClipboardPayload& p) { sent.push_back(p); });

    sync.apply({.origin = Hello::Role::host, .items = {{"public.utf8-plain-text", bytesOf("from host")}}});
    sync.poll();
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(paste(), bytesOf("from host"));

    copy(bytesOf("local"));
    sync.poll();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].items[0].data, bytesOf("local"));
}

TEST_F(X11PasteboardTest, AnOwnerThatNeverAnswersCostsItsTimeOut) {
    // A client that takes the selection and answers nothing.
    auto silent = X11::Connection::open(display->name());
    xcb_connection_t* c = silent->raw();
    const xcb_window_t w = xcb_generate_id(c);
    xcb_create_window(c, XCB_COPY_FROM_PARENT, w, silent->root(), 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    const int64_t before = pasteboard->changeCount();
    xcb_set_selection_owner(c, w, silent->atom("CLIPBOARD"), XCB_CURRENT_TIME);
    silent->flush();
    display->waitUntil([&] { return pasteboard->changeCount() != before; });
    EXPECT_TRUE(pasteboard->types().empty());
    EXPECT_EQ(pasteboard->dataForType(Pasteboard::typeString), std::nullopt);
}

}  // namespace
}  // namespace tsl::test
