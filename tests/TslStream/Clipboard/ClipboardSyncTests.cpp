// ClipboardSync on its own over the simulated pasteboard: the pulling side's
// snapshots, and polling across stop and start.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "TslStream/Clipboard/ClipboardSync.h"
#include "TslStream/Runtime/MainActor.h"

using namespace tsl;

namespace {

void copy(Pasteboard& pasteboard, const std::string& s) {
    pasteboard.clearContents();
    pasteboard.setData(Bytes(s.begin(), s.end()), Pasteboard::typeString);
}

}  // namespace

TEST(ClipboardSync, SnapshotIfChangedTakesEachChangeOnceAndNotItsOwnWrites) {
    auto desktop = Sim::Desktop::make();
    auto pasteboard = desktop->services().pasteboard;
    copy(*pasteboard, "before");
    ClipboardSync sync(Hello::Role::host, pasteboard);
    // Pulling always looks the first time, unlike polling.
    auto first = sync.snapshotIfChanged();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->origin, Hello::Role::host);
    EXPECT_EQ(sync.snapshotIfChanged(), std::nullopt);
    copy(*pasteboard, "later");
    EXPECT_TRUE(sync.snapshotIfChanged());

    sync.apply({.origin = Hello::Role::agent, .items = {{"public.utf8-plain-text", Bytes{'g'}}}});
    EXPECT_EQ(sync.snapshotIfChanged(), std::nullopt);
    EXPECT_EQ(sync.snapshot()->items.at(0).data, Bytes{'g'});
}

TEST(ClipboardSync, PollingReportsOnlyNewChangesAcrossStopAndStart) {
    MainActor main;
    auto desktop = Sim::Desktop::make();
    auto pasteboard = desktop->services().pasteboard;
    copy(*pasteboard, "already there");
    ClipboardSync sync(Hello::Role::agent, pasteboard);
    std::vector<std::string> reported;
    sync.setOnLocalChange([&](const ClipboardPayload& p) {
        reported.emplace_back(p.items.at(0).data.begin(), p.items.at(0).data.end());
    });
    sync.stop();  // without a timer: nothing happens
    sync.poll();
    EXPECT_TRUE(reported.empty());

    // A change made while stopped is noticed once polling starts again.
    copy(*pasteboard, "while stopped");
    sync.start(0.01);
    sync.start(0.01);
    ASSERT_TRUE(main.runUntil([&] { return !reported.empty(); }, std::chrono::seconds(20)));
    sync.stop();
    EXPECT_FALSE(sync.isPolling());
    sync.poll();
    EXPECT_EQ(reported, std::vector<std::string>{"while stopped"});
}
