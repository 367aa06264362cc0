// The simulated desktop's rules: stacking and focus, the window server's
// dictionaries, event delivery by route, the pasteboard, preferences,
// launching bundles and the two application behaviours.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"

using namespace tsl;
using namespace tsl::Sim;

namespace {

std::vector<uint32_t> ids(const std::vector<WindowInfo>& windows) {
    std::vector<uint32_t> out;
    for (auto& w : windows) out.push_back(w.id);
    return out;
}

std::vector<uint32_t> listedIDs(const std::optional<PlatformValue>& list) {
    std::vector<uint32_t> out;
    for (auto& entry : *list->asList()) out.push_back(uint32_t(*entry.find(WindowServer::keyNumber)->asInteger()));
    return out;
}

PlatformEvent desktopKey(EventPoster& poster, uint16_t code, bool down, uint64_t flags = 0) {
    auto event = poster.createKeyboardEvent(std::nullopt, code, down);
    event->flags = flags;
    return *event;
}

}  // namespace

TEST(SimDesktop, StackingLayersAndFocus) {
    auto desktop = Desktop::make();
    const int32_t a = desktop->addProcess({.name = "A"});
    const int32_t b = desktop->addProcess({.name = "B"});
    EXPECT_EQ(a, Desktop::firstPid);
    EXPECT_EQ(b, Desktop::firstPid + 1);

    const uint32_t a1 = desktop->addWindow(a, {.title = "a1"});
    const uint32_t b1 = desktop->addWindow(b, {.title = "b1"});
    const uint32_t a2 = desktop->addWindow(a, {.title = "a2"});
    const uint32_t panel = desktop->addWindow(b, {.title = "panel", .layer = 3});
    EXPECT_EQ(a1, 1u);
    // Higher layers first, then newest first.
    EXPECT_EQ(ids(desktop->windows()), (std::vector<uint32_t>{panel, a2, b1, a1}));

    // Activating brings all of a process's windows forward, in their own order.
    desktop->activate(b);
    EXPECT_EQ(desktop->frontmostPid(), b);
    EXPECT_EQ(ids(desktop->windows()), (std::vector<uint32_t>{panel, b1, a2, a1}));

    // Raising stays within the layer.
    desktop->raise(a1);
    EXPECT_EQ(ids(desktop->windows()), (std::vector<uint32_t>{panel, a1, b1, a2}));
    EXPECT_TRUE(desktop->window(a1)->isMain);
    EXPECT_FALSE(desktop->window(a2)->isMain);

    // A sheet sits in front of its parent and goes with it.
    const uint32_t sheet = desktop->addWindow(a, {.title = "sheet", .frame = {150, 130, 200, 100}, .sheetOf = a2});
    desktop->raise(a2);
    EXPECT_EQ(ids(desktop->windows()), (std::vector<uint32_t>{panel, sheet, a2, a1, b1}));
    desktop->setFrame(a2, {110, 120, 400, 300});
    EXPECT_EQ(desktop->window(sheet)->frame, (Rect{160, 150, 200, 100}));
    desktop->setMinimized(a2, true);
    EXPECT_FALSE(desktop->window(sheet)->isOnScreen);
    EXPECT_TRUE(desktop->window(a2)->isMinimized);
    desktop->closeWindow(a2);
    EXPECT_FALSE(desktop->window(sheet));

    // When the frontmost process ends, the owner of the front window takes over.
    desktop->activate(a);
    desktop->vanish(a);
    EXPECT_FALSE(desktop->window(a1));
    EXPECT_EQ(desktop->frontmostPid(), b);
    EXPECT_FALSE(desktop->process(a));
}

TEST(SimDesktop, WindowServerDictionaries) {
    auto desktop = Desktop::make();
    auto ws = desktop->services().windowServer;
    const int32_t pid = desktop->addProcess({.name = "Owner"});
    const uint32_t shown = desktop->addWindow(pid, {.title = "shown", .frame = {10, 20, 300, 200}, .alpha = 0.5});
    const uint32_t hidden = desktop->addWindow(pid, {.title = "hidden", .shown = false});
    const uint32_t wallpaper = desktop->addWindow(pid, {.title = "desk", .layer = -2147483624, .desktopElement = true});

    auto all = ws->copyWindowInfo(WindowServer::optionAll, WindowServer::nullWindowID);
    EXPECT_EQ(listedIDs(all), (std::vector<uint32_t>{hidden, shown, wallpaper}));
    auto onScreen = ws->copyWindowInfo(WindowServer::optionOnScreenOnly | WindowServer::optionExcludeDesktopElements,
                                       WindowServer::nullWindowID);
    ASSERT_EQ(listedIDs(onScreen), (std::vector<uint32_t>{shown}));

    const PlatformValue& entry = (*onScreen->asList())[0];
    EXPECT_EQ(*entry.find(WindowServer::keyOwnerPID)->asInteger(), pid);
    EXPECT_EQ(*entry.find(WindowServer::keyOwnerName)->asString(), "Owner");
    EXPECT_EQ(*entry.find(WindowServer::keyName)->asString(), "shown");
    EXPECT_EQ(rectFromDictionary(*entry.find(WindowServer::keyBounds)), (Rect{10, 20, 300, 200}));
    EXPECT_EQ(*entry.find(WindowServer::keyAlpha)->asNumber(), 0.5);
    EXPECT_EQ(*entry.find(WindowServer::keyIsOnscreen)->asBool(), true);
    // Off-screen windows carry no on-screen key at all.
    auto one = ws->copyWindowInfo(WindowServer::optionIncludingWindow, hidden);
    ASSERT_EQ(listedIDs(one), (std::vector<uint32_t>{hidden}));
    EXPECT_EQ((*one->asList())[0].find(WindowServer::keyIsOnscreen), nullptr);

    // Tests may reshape the answer to reach the readers' damage rules.
    desktop->setWindowListFilter([](std::optional<PlatformValue>, uint32_t, uint32_t) {
        return std::optional<PlatformValue>(PlatformValue("not a list"));
    });
    EXPECT_EQ(ws->copyWindowInfo(WindowServer::optionAll, 0)->asList(), nullptr);
}

TEST(SimDesktop, EventsReachTheirTargetByRoute) {
    test::TempDir dir;
    auto desktop = Desktop::make();
    auto services = desktop->services();
    auto& poster = *services.eventPoster;
    const int32_t editor = *desktop->launch(test::makeBundle(dir.path(), "Editor", "com.example.editor"));
    const int32_t other = *desktop->launch(test::makeBundle(dir.path(), "Other", "com.example.other"));
    const uint32_t editorWindow = desktop->windows().back().id;
    const uint32_t otherWindow = desktop->windows().front().id;
    ASSERT_EQ(desktop->frontmostPid(), other);

    // pid: only that process hears it, whatever is in front.
    poster.postToPid(editor, desktopKey(poster, 4, true));   // h
    poster.postToPid(editor, desktopKey(poster, 34, true));  // i
    poster.postToPid(editor, desktopKey(poster, 34, false));
    EXPECT_EQ(desktop->textAreaValue(editorWindow), "hi");
    EXPECT_EQ(desktop->textAreaValue(otherWindow), "");
    EXPECT_EQ(desktop->frontmostPid(), other);

    // hid: keys go to the frontmost application's key window.
    poster.post(EventPoster::Tap::hid, desktopKey(poster, 4, true, PlatformEvent::flagShift));
    EXPECT_EQ(desktop->textAreaValue(otherWindow), "H");

    // hid: a click goes to the window under the point and brings it forward.
    const Rect editorFrame = desktop->window(editorWindow)->frame;
    const Point inside{editorFrame.x + 5, editorFrame.y + editorFrame.height - 5};
    poster.post(EventPoster::Tap::hid, *poster.createMouseEvent(std::nullopt, PlatformEvent::leftMouseDown, inside, 0));
    EXPECT_EQ(desktop->cursorLocation(), inside);
    EXPECT_EQ(desktop->frontmostPid(), editor);
    auto posted = desktop->postedEvents();
    ASSERT_EQ(posted.size(), 5u);
    EXPECT_EQ(posted.back().route, Route::hid);
    EXPECT_EQ(posted.back().deliveredTo, editor);
    EXPECT_EQ(posted.back().window, editorWindow);

    // pid: a mouse event lands in the window it names, if that is the process's.
    auto click = *poster.createMouseEvent(std::nullopt, PlatformEvent::leftMouseDown, {1, 1}, 0);
    click.setIntegerField(PlatformEvent::fieldWindowUnderMousePointer, otherWindow);
    poster.postToPid(other, click);
    EXPECT_EQ(desktop->postedEvents().back().window, otherWindow);
    EXPECT_EQ(desktop->frontmostPid(), editor);  // no activation on this route

    // A process that isn't there takes nothing.
    poster.postToPid(4242, desktopKey(poster, 4, true));
    EXPECT_EQ(desktop->postedEvents().back().deliveredTo, std::nullopt);

    desktop->setEventCreationFails(true);
    EXPECT_FALSE(poster.createKeyboardEvent(std::nullopt, 4, true));
    EXPECT_FALSE(poster.createEvent(std::nullopt));
}

TEST(SimDesktop, PlainApplicationCopyPasteAndShortcuts) {
    test::TempDir dir;
    auto desktop = Desktop::make();
    auto services = desktop->services();
    auto& poster = *services.eventPoster;
    auto& pasteboard = *services.pasteboard;
    const int32_t pid = *desktop->launch(test::makeBundle(dir.path(), "Notes", "com.example.notes"));
    const uint32_t window = desktop->windows().front().id;
    EXPECT_EQ(desktop->window(window)->title, "Notes");

    const int64_t start = pasteboard.changeCount();
    for (uint16_t code : {0, 11, 8}) poster.postToPid(pid, desktopKey(poster, code, true));  // a b c
    poster.postToPid(pid, desktopKey(poster, 8, true, PlatformEvent::flagCommand));          // ⌘C
    EXPECT_EQ(pasteboard.changeCount(), start + 1);
    EXPECT_EQ(pasteboard.types(), (std::vector<std::string>{Pasteboard::typeString}));
    EXPECT_EQ(pasteboard.dataForType(Pasteboard::typeString), (Bytes{'a', 'b', 'c'}));

    // Another owner's write raises the count once; setting data doesn't.
    EXPECT_EQ(pasteboard.clearContents(), start + 2);
    EXPECT_TRUE(pasteboard.setData(Bytes{'x', 'y'}, Pasteboard::typeString));
    EXPECT_TRUE(pasteboard.setData(Bytes{1, 2}, Pasteboard::typePNG));
    EXPECT_EQ(pasteboard.changeCount(), start + 2);
    EXPECT_EQ(pasteboard.types(), (std::vector<std::string>{Pasteboard::typeString, Pasteboard::typePNG}));

    poster.postToPid(pid, desktopKey(poster, 9, true, PlatformEvent::flagCommand));  // ⌘V
    EXPECT_EQ(desktop->textAreaValue(window), "abcxy");
    poster.postToPid(pid, desktopKey(poster, 51, true));  // delete
    EXPECT_EQ(desktop->textAreaValue(window), "abcx");
    // ⌘V with Shift and Option is its own item; with Shift alone nothing matches.
    poster.postToPid(pid, desktopKey(poster, 9, true, PlatformEvent::flagCommand | PlatformEvent::flagShift));
    EXPECT_EQ(desktop->textAreaValue(window), "abcx");
    poster.postToPid(
        pid,
        desktopKey(poster, 9, true, PlatformEvent::flagCommand | PlatformEvent::flagShift | PlatformEvent::flagOption));
    EXPECT_EQ(desktop->textAreaValue(window), "abcxxy");

    // ⌘Q quits, and the windows go with the process.
    poster.postToPid(pid, desktopKey(poster, 12, true, PlatformEvent::flagCommand));
    EXPECT_FALSE(desktop->process(pid));
    EXPECT_TRUE(desktop->windows().empty());
}

TEST(SimDesktop, WorkspaceLaunchesBundlesFromTheFileSystem) {
    test::TempDir dir;
    const auto apps = dir.path() / "Applications";
    const auto notes = test::makeBundle(apps, "Notes", "com.example.notes");
    const auto pattern = test::makeBundle(apps, "Pattern", "com.tessel.testpattern");
    auto desktop = Desktop::make({.applicationDirs = {apps}});
    auto workspace = desktop->services().workspace;

    EXPECT_EQ(workspace->urlForApplication("com.tessel.testpattern"), pattern);
    EXPECT_EQ(workspace->urlForApplication("com.example.missing"), std::nullopt);

    std::optional<RunningApplication> launched;
    std::exception_ptr error;
    auto done = [&](std::optional<RunningApplication> app, std::exception_ptr e) { launched = app, error = e; };
    workspace->openApplication(pattern, {}, done);
    ASSERT_FALSE(error);
    EXPECT_EQ(launched->bundleIdentifier, "com.tessel.testpattern");
    EXPECT_EQ(launched->bundleURL, pattern);
    EXPECT_EQ(workspace->frontmostApplication()->processIdentifier, launched->processIdentifier);
    auto windows = desktop->windows();
    ASSERT_EQ(windows.size(), 1u);
    EXPECT_EQ(windows[0].title, "Tsl TestPattern");
    EXPECT_EQ(windows[0].frame.size(), (Size{640, 400}));
    EXPECT_TRUE(windows[0].isOnScreen);

    // Documents open in the running process, not a second one.
    const int32_t patternPid = launched->processIdentifier;
    workspace->openURLs({dir.path() / "a.txt"}, notes, {.activates = false}, done);
    const int32_t notesPid = launched->processIdentifier;
    workspace->openURLs({dir.path() / "b.txt"}, notes, {}, done);
    EXPECT_EQ(launched->processIdentifier, notesPid);
    EXPECT_EQ(desktop->process(notesPid)->openedDocuments,
              (std::vector<std::filesystem::path>{dir.path() / "a.txt", dir.path() / "b.txt"}));
    EXPECT_EQ(desktop->windows().size(), 4u);  // the pattern, the plain window and two documents
    EXPECT_EQ(workspace->runningApplications().size(), 2u);

    workspace->openApplication(dir.path() / "Nothing.app", {}, done);
    ASSERT_TRUE(error);
    EXPECT_THROW(std::rethrow_exception(error), WorkspaceError);

    // A polite quit; a process that refuses stays.
    EXPECT_TRUE(workspace->terminate(patternPid));
    EXPECT_FALSE(workspace->runningApplication(patternPid));
    const int32_t stubborn = desktop->addProcess({.name = "Stubborn", .refusesQuit = true});
    EXPECT_FALSE(desktop->quit(stubborn));
    EXPECT_TRUE(workspace->runningApplication(stubborn));
    EXPECT_FALSE(workspace->terminate(4242));
}

TEST(SimDesktop, TestPatternSquareFollowsKey122) {
    test::TempDir dir;
    auto desktop = Desktop::make();
    auto poster = desktop->services().eventPoster;
    const int32_t pid = *desktop->launch(test::makeBundle(dir.path(), "Pattern", "com.tessel.testpattern"));
    poster->postToPid(pid, desktopKey(*poster, 122, true));
    EXPECT_TRUE(desktop->squareIsWhite(pid));
    poster->postToPid(pid, desktopKey(*poster, 121, false));
    EXPECT_TRUE(desktop->squareIsWhite(pid));
    poster->postToPid(pid, desktopKey(*poster, 122, false));
    EXPECT_FALSE(desktop->squareIsWhite(pid));
}

TEST(SimDesktop, PreferencesSystemAndChildren) {
    auto desktop = Desktop::make({.home = "/Users/tester"});
    auto services = desktop->services();
    auto& prefs = *services.preferences;
    using U = Preferences::User;
    using H = Preferences::Host;
    prefs.setValue("k", PlatformValue("v"), "com.example", U::current, H::any);
    EXPECT_EQ(prefs.copyValue("k", "com.example", U::current, H::any), PlatformValue("v"));
    EXPECT_EQ(prefs.copyValue("k", "com.example", U::any, H::any), std::nullopt);  // another domain
    EXPECT_TRUE(prefs.synchronize("com.example", U::current, H::any));
    prefs.setValue("k", std::nullopt, "com.example", U::current, H::any);
    EXPECT_EQ(prefs.copyValue("k", "com.example", U::current, H::any), std::nullopt);

    auto& system = *services.system;
    EXPECT_EQ(system.homeDirectory(), "/Users/tester");
    EXPECT_EQ(system.sysctlInteger("kern.hv_vmm_present"), std::nullopt);
    desktop->setSysctl("kern.hv_vmm_present", 1);
    EXPECT_EQ(system.sysctlInteger("kern.hv_vmm_present"), 1);

    EXPECT_THROW(system.run("/usr/bin/fdesetup", {"status"}), LaunchError);
    desktop->scriptChild("/usr/bin/fdesetup", [](const std::vector<std::string>& args) {
        return System::ChildResult{.exitStatus = 0, .standardOutput = Bytes(args[0].begin(), args[0].end())};
    });
    EXPECT_EQ(system.run("/usr/bin/fdesetup", {"status"}).standardOutput, (Bytes{'s', 't', 'a', 't', 'u', 's'}));
    EXPECT_EQ(desktop->childRuns("/usr/bin/fdesetup"), 1);
}
