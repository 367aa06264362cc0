#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <nlohmann/json.hpp>
#include <string>

#include "TslCore/Wire/WireJSON.h"

namespace tsl {
namespace {

using CM = ControlMessage;

std::string encodeText(const ControlEnvelope& e) {
    Bytes b = WireJSON::encode(e);
    return std::string(b.begin(), b.end());
}

ControlEnvelope decodeEnvelope(std::string_view text) {
    return WireJSON::decodeEnvelope(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

std::string decodeErrorOf(std::string_view text) {
    try {
        decodeEnvelope(text);
    } catch (const WireJSON::DecodeError& e) {
        return e.description();
    }
    return "<decoded>";
}

// Guards the expected texts themselves: every object's keys in byte order.
bool keysSorted(const nlohmann::ordered_json& j) {
    if (j.is_array()) return std::all_of(j.begin(), j.end(), keysSorted);
    if (!j.is_object()) return true;
    std::string previous;
    for (auto& [key, value] : j.items()) {
        if (!previous.empty() && !(previous < key)) return false;
        if (!keysSorted(value)) return false;
        previous = key;
    }
    return true;
}

const GuestWindow fullWindow{42, 501, "com.example.editor", "Untitled — Edited", {10, 20.5, 800, 600}, 0, 3,
                             true, false, true, 41};
const char* fullWindowJSON =
    R"({"attachedTo":41,"bundleID":"com.example.editor","frame":{"height":600,"width":800,"x":10,"y":20.5},)"
    R"("isFocused":true,"isMinimized":false,"isOnScreen":true,"layer":0,"pid":501,"title":"Untitled — Edited",)"
    R"("windowID":42,"zIndex":3})";
const GuestWindow bareWindow{43, 502, std::nullopt, "", {-5.25, 0, 1440, 0.125}, 8, 0, false, false, false,
                             std::nullopt};
const char* bareWindowJSON =
    R"({"frame":{"height":0.125,"width":1440,"x":-5.25,"y":0},"isFocused":false,"isMinimized":false,)"
    R"("isOnScreen":false,"layer":8,"pid":502,"title":"","windowID":43,"zIndex":0})";

const MenuNode fileMenu{"File", {0}, true, false, std::nullopt,
                        {{"Save", {0, 0}, true, false, "⌘S", {}},
                         {"Recent", {0, 1}, true, false, std::nullopt, {{"a.txt", {0, 1, 0}, false, true, {}, {}}}}}};

const ProvisionReport provisionReport{1,           "2026-10-01T12:00:00Z", std::nullopt, true, true, false, false, "me",
                                      std::nullopt};

struct Golden {
    const char* name;
    ControlEnvelope envelope;
    std::string json;
};

std::vector<Golden> goldens() {
    Hello hello{1, Hello::Role::agent, "0.9.0-beta.6", "macOS 14.5", "arm64",
                {"h264", "raw", "clipboard", "menus", "stream-update", "channel:control"}, AgentProtocol::current};
    std::string helloJSON =
        R"({"agentProto":2,"arch":"arm64","capabilities":["h264","raw","clipboard","menus","stream-update",)"
        R"("channel:control"],"osVersion":"macOS 14.5","protocolVersion":1,"role":"agent","softwareVersion":"0.9.0-beta.6"})";
    std::vector<GuestApp> apps{{"com.example.editor", "Editor", "/Applications/Editor.app", "2.1", true, 501},
                               {"com.example.old", "Old", "/Applications/Old.app", std::nullopt, false, std::nullopt}};
    StreamRequest h264{7, 42, 60, 1.0, VideoCodec::h264};
    StreamRequest raw{8, 43, 30, 0.5, VideoCodec::rawBGRA};
    ClipboardPayload clip{Hello::Role::agent, 12,
                          {{"public.utf8-plain-text", {'h', 'e', 'l', 'l', 'o'}},
                           {"public.png", {0x89, 0x50, 0x4E, 0x47, 0x00, 0xFF}},
                           {"public.rtf", {}}}};
    const std::string share = "/Volumes/My Shared Files/Tessel/Migrate/com.example.editor/";
    const std::string escapedShare = R"(\/Volumes\/My Shared Files\/Tessel\/Migrate\/com.example.editor\/)";
    AgentStatus status{12.5, {7, 8}, true, false, true, provisionReport};

    auto env = [](uint32_t id, std::optional<uint32_t> replyTo, ControlMessage m) {
        return ControlEnvelope{id, replyTo, std::move(m)};
    };
    return {
        {"hello", env(1, {}, CM::Hello{hello}), R"({"id":1,"message":{"hello":{"_0":)" + helloJSON + "}}}"},
        {"listApps", env(7, {}, CM::ListApps{}), R"({"id":7,"message":{"listApps":{}}})"},
        {"appList", env(8, 7, CM::AppList{apps}),
         R"({"id":8,"message":{"appList":{"_0":[{"bundleID":"com.example.editor","name":"Editor",)"
         R"("path":"\/Applications\/Editor.app","pid":501,"running":true,"version":"2.1"},)"
         R"({"bundleID":"com.example.old","name":"Old","path":"\/Applications\/Old.app","running":false}]}},"replyTo":7})"},
        {"launchApp", env(2, {}, CM::LaunchApp{{"com.example.editor", std::nullopt, {"/Users/me/a.txt"}}}),
         R"({"id":2,"message":{"launchApp":{"_0":{"bundleID":"com.example.editor","openFiles":["\/Users\/me\/a.txt"]}}}})"},
        {"launchAppByPath", env(3, {}, CM::LaunchApp{{std::nullopt, "/Applications/Old.app", {}}}),
         R"({"id":3,"message":{"launchApp":{"_0":{"openFiles":[],"path":"\/Applications\/Old.app"}}}})"},
        {"launched", env(4, 2, CM::Launched{{"com.example.editor", 502}}),
         R"({"id":4,"message":{"launched":{"_0":{"bundleID":"com.example.editor","pid":502}}},"replyTo":2})"},
        {"quitApp", env(5, {}, CM::QuitApp{-1}), R"({"id":5,"message":{"quitApp":{"pid":-1}}})"},
        {"listWindowsAll", env(6, {}, CM::ListWindows{}), R"({"id":6,"message":{"listWindows":{"_0":{}}}})"},
        {"listWindowsOf", env(6, {}, CM::ListWindows{{501, "com.example.editor"}}),
         R"({"id":6,"message":{"listWindows":{"_0":{"bundleID":"com.example.editor","pid":501}}}})"},
        {"windowList", env(9, 6, CM::WindowList{{fullWindow, bareWindow}}),
         R"({"id":9,"message":{"windowList":{"_0":[)" + std::string(fullWindowJSON) + "," + bareWindowJSON +
             R"(]}},"replyTo":6})"},
        {"startStream", env(10, {}, CM::StartStream{h264}),
         R"({"id":10,"message":{"startStream":{"_0":{"codec":2,"fps":60,"scale":1,"streamID":7,"windowID":42}}}})"},
        {"stopStream", env(11, {}, CM::StopStream{7}), R"({"id":11,"message":{"stopStream":{"streamID":7}}})"},
        {"streamStarted", env(12, 10, CM::StreamStarted{raw}),
         R"({"id":12,"message":{"streamStarted":{"_0":{"codec":1,"fps":30,"scale":0.5,"streamID":8,"windowID":43}}},"replyTo":10})"},
        {"requestKeyframe", env(13, {}, CM::RequestKeyframe{4294967295u}),
         R"({"id":13,"message":{"requestKeyframe":{"streamID":4294967295}}})"},
        {"updateStream", env(14, {}, CM::UpdateStream{{7, 42, 120, 1.75, VideoCodec::h264}}),
         R"({"id":14,"message":{"updateStream":{"_0":{"codec":2,"fps":120,"scale":1.75,"streamID":7,"windowID":42}}}})"},
        {"windowEvent", env(15, {}, CM::WindowEvent{{WindowEvent::Kind::titleChanged, bareWindow}}),
         R"({"id":15,"message":{"windowEvent":{"_0":{"kind":"titleChanged","window":)" + std::string(bareWindowJSON) +
             "}}}}"},
        {"windowActionFrame", env(16, {}, CM::WindowAction{{42, WindowAction::Kind::setFrame, WireRect{0, 25, 1024, 768}}}),
         R"({"id":16,"message":{"windowAction":{"_0":{"frame":{"height":768,"width":1024,"x":0,"y":25},)"
         R"("kind":"setFrame","windowID":42}}}})"},
        {"windowAction", env(17, {}, CM::WindowAction{{42, WindowAction::Kind::close, std::nullopt}}),
         R"({"id":17,"message":{"windowAction":{"_0":{"kind":"close","windowID":42}}}})"},
        {"clipboard", env(18, {}, CM::Clipboard{clip}),
         R"({"id":18,"message":{"clipboard":{"_0":{"changeCount":12,"items":[{"data":"aGVsbG8=","type":"public.utf8-plain-text"},)"
         R"({"data":"iVBORwD\/","type":"public.png"},{"data":"","type":"public.rtf"}],"origin":"agent"}}}})"},
        {"installApp",
         env(19, {}, CM::InstallApp{{share + "Editor.app", "com.example.editor", share + "Preferences.plist", std::nullopt}}),
         R"({"id":19,"message":{"installApp":{"_0":{"bundleID":"com.example.editor","sharedAppPath":")" + escapedShare +
             R"(Editor.app","sharedPrefsPath":")" + escapedShare + R"(Preferences.plist"}}}})"},
        {"installed", env(20, 19, CM::Installed{"com.example.editor", "/Applications/Editor.app"}),
         R"({"id":20,"message":{"installed":{"bundleID":"com.example.editor","path":"\/Applications\/Editor.app"}},"replyTo":19})"},
        {"getMenu", env(21, {}, CM::GetMenu{123}), R"({"id":21,"message":{"getMenu":{"pid":123}}})"},
        {"menu", env(22, 21, CM::Menu{123, {fileMenu}}),
         R"({"id":22,"message":{"menu":{"items":[{"checked":false,"children":[{"checked":false,"children":[],)"
         R"("enabled":true,"path":[0,0],"shortcut":"⌘S","title":"Save"},{"checked":false,"children":[{"checked":true,)"
         R"("children":[],"enabled":false,"path":[0,1,0],"title":"a.txt"}],"enabled":true,"path":[0,1],"title":"Recent"}],)"
         R"("enabled":true,"path":[0],"title":"File"}],"pid":123}},"replyTo":21})"},
        {"pressMenu", env(23, {}, CM::PressMenu{123, {2, 0, 1}}),
         R"({"id":23,"message":{"pressMenu":{"path":[2,0,1],"pid":123}}})"},
        {"statusRequest", env(24, {}, CM::Status{}), R"({"id":24,"message":{"status":{}}})"},
        {"status", env(25, 24, CM::Status{status}),
         R"({"id":25,"message":{"status":{"_0":{"accessibilityGranted":false,"activeStreams":[7,8],"provision":)"
         R"({"autoLoginUser":"me","autoUpdatesOff":true,"fileVault":false,"installedAt":"2026-10-01T12:00:00Z",)"
         R"("rosetta":true,"schema":1,"sleepOff":false},"rosettaInstalled":true,"screenRecordingGranted":true,)"
         R"("uptimeSeconds":12.5}}},"replyTo":24})"},
        {"statusBare", env(26, 24, CM::Status{AgentStatus{0.25, {}, false, false, std::nullopt, std::nullopt}}),
         R"({"id":26,"message":{"status":{"_0":{"accessibilityGranted":false,"activeStreams":[],)"
         R"("screenRecordingGranted":false,"uptimeSeconds":0.25}}},"replyTo":24})"},
        {"ok", env(9, 7, CM::Ok{}), R"({"id":9,"message":{"ok":{}},"replyTo":7})"},
        {"okReplyToZero", env(4294967295u, 0, CM::Ok{}), R"({"id":4294967295,"message":{"ok":{}},"replyTo":0})"},
        {"error", env(27, 16, CM::Error{{"failed", "notFound: window 77"}}),
         R"({"id":27,"message":{"error":{"_0":{"code":"failed","message":"notFound: window 77"}}},"replyTo":16})"},
    };
}

TEST(ControlJSON, EveryCaseHasItsExactBytesAndRoundTrips) {
    std::set<ControlMessage::Kind> seen;
    for (const Golden& g : goldens()) {
        SCOPED_TRACE(g.name);
        EXPECT_TRUE(keysSorted(nlohmann::ordered_json::parse(g.json)));
        EXPECT_EQ(encodeText(g.envelope), g.json);
        EXPECT_EQ(decodeEnvelope(g.json), g.envelope);
        seen.insert(g.envelope.message.kind());
    }
    EXPECT_EQ(seen.size(), ControlMessage::kindCount);
}

TEST(ControlJSON, CaseNamesAndKinds) {
    ControlMessage m = CM::StartStream{};
    EXPECT_EQ(m.kind(), CM::Kind::startStream);
    EXPECT_EQ(m.caseName(), "startStream");
    EXPECT_NE(m.get<CM::StartStream>(), nullptr);
    EXPECT_EQ(m.get<CM::StreamStarted>(), nullptr);
    for (size_t i = 0; i < ControlMessage::kindCount; ++i)
        EXPECT_EQ(controlKindFromName(caseName(CM::Kind(i))), CM::Kind(i));
    EXPECT_EQ(controlKindFromName("somethingNew"), std::nullopt);
    EXPECT_EQ(toString(WindowAction::Kind::setFrame), "setFrame");
    EXPECT_EQ(fromString<WindowEvent::Kind>("restored"), WindowEvent::Kind::restored);
    EXPECT_EQ(fromString<Hello::Role>("guest"), std::nullopt);
}

TEST(ControlJSON, DecoderAcceptsWhatThePeerMaySend) {
    auto windowList = [](std::string window) {
        return decodeEnvelope(R"({"id":1,"message":{"windowList":{"_0":[)" + window + "]}}}");
    };
    struct Case {
        std::string json;
        ControlEnvelope expected;
    };
    const Case cases[] = {
        {R"({"id":1,"extra":true,"message":{"listApps":{}}})", {1, {}, CM::ListApps{}}},
        {R"({"id":1,"message":{"listApps":{},"somethingNew":{}}})", {1, {}, CM::ListApps{}}},
        {R"({"id":1,"message":{"listApps":{"ignored":[1,2]}}})", {1, {}, CM::ListApps{}}},
        {R"({"id":1,"message":{"ok":{}},"replyTo":null})", {1, {}, CM::Ok{}}},
        {R"({"id":1,"message":{"status":{"_0":null}}})", {1, {}, CM::Status{}}},
        {" { \"message\" : { \"quitApp\" : { \"pid\" : 5 } } ,\n\"id\" : 3 } ", {3, {}, CM::QuitApp{5}}},
        {R"({"id":7.0,"message":{"stopStream":{"streamID":1e2}}})", {7, {}, CM::StopStream{100}}},
        {R"({"id":2,"message":{"startStream":{"_0":{"codec":1,"fps":24,"scale":2,"streamID":1,"windowID":2,"x":0}}}})",
         {2, {}, CM::StartStream{{1, 2, 24, 2.0, VideoCodec::rawBGRA}}}},
        // What stands under a key nobody reads is skipped, known keys inside it too.
        {R"({"id":1,"x":)" + std::string(500, '[') + std::string(500, ']') + R"(,"message":{"ok":{}}})",
         {1, {}, CM::Ok{}}},
        {R"({"x":{"id":"one","message":[{"message":{}}]},"id":1,"y":{"ok":{}},"message":{"ok":{}}})",
         {1, {}, CM::Ok{}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json);
        EXPECT_EQ(decodeEnvelope(c.json), c.expected);
    }
    // Null optionals read as absent; unknown keys inside records are skipped.
    GuestWindow w = bareWindow;
    std::string json = bareWindowJSON;
    json.insert(1, R"("attachedTo":null,"bundleID":null,"future":{"a":1},)");
    EXPECT_EQ(windowList(json).message, ControlMessage(CM::WindowList{{w}}));
}

TEST(ControlJSON, DecoderRefusesWithItsReason) {
    const std::string keys = "Invalid number of keys found, expected one.";
    auto stream = [](std::string_view field) {
        return R"({"id":1,"message":{"startStream":{"_0":{"fps":1,"scale":1,"streamID":1,"windowID":1,)" +
               std::string(field) + "}}}}";
    };
    auto clip = [](std::string_view data) {
        return R"({"id":1,"message":{"clipboard":{"_0":{"changeCount":1,"origin":"host","items":[{"type":"t","data":")" +
               std::string(data) + R"("}]}}}})";
    };
    const std::pair<std::string, std::string> cases[] = {
        {R"({"id":1,"message":{"listApps":{},"ok":{}}})", keys},
        {R"({"id":1,"message":{"somethingNew":{}}})", keys},
        {R"({"id":1,"message":{}})", keys},
        {R"({"id":1,"message":{"ok":null}})", "expected an object, found null at message.ok"},
        {R"({"id":1,"message":{"ok":"ok"}})", "expected an object, found string at message.ok"},
        {R"({"id":1,"message":{"status":null}})", "expected an object, found null at message.status"},
        {R"({"id":1,"message":"ok"})", "expected an object, found string at message"},
        {R"("ok")", "expected an object, found string"},
        {R"({"message":{"ok":{}}})", R"(missing key "id")"},
        {R"({"id":null,"message":{"ok":{}}})", R"(null for required key "id")"},
        {R"({"id":1})", R"(missing key "message")"},
        {R"({"id":4294967296,"message":{"ok":{}}})", "number 4294967296 does not fit u32 at id"},
        {R"({"id":-1,"message":{"ok":{}}})", "number -1 does not fit u32 at id"},
        {R"({"id":1.5,"message":{"ok":{}}})", "number 1.5 does not fit u32 at id"},
        {R"({"id":"1","message":{"ok":{}}})", "expected a number, found string at id"},
        {R"({"id":1,"message":{"ok":{}},"replyTo":true})", "expected a number, found boolean at replyTo"},
        {R"({"id":1,"message":{"quitApp":{"pid":2147483648}}})", "number 2147483648 does not fit i32 at message.quitApp.pid"},
        {R"({"id":1,"message":{"quitApp":{}}})", R"(missing key "pid" at message.quitApp)"},
        {R"({"id":1,"message":{"hello":{}}})", R"(missing key "_0" at message.hello)"},
        {R"({"id":1,"message":{"hello":{"_0":{"arch":"a","capabilities":[],"osVersion":"o","protocolVersion":1,"role":"guest","softwareVersion":"s"}}}})",
         R"(invalid value "guest" at message.hello._0.role)"},
        {R"({"id":1,"message":{"hello":{"_0":{"arch":"a","capabilities":[1],"osVersion":"o","protocolVersion":1,"role":"host","softwareVersion":"s"}}}})",
         "expected a string, found number at message.hello._0.capabilities[0]"},
        {stream(R"("codec":3)"), "invalid value 3 at message.startStream._0.codec"},
        {stream(R"("codec":258)"), "number 258 does not fit u8 at message.startStream._0.codec"},
        {stream(R"("codec":"h264")"), "expected a number, found string at message.startStream._0.codec"},
        {R"({"id":1,"message":{"windowAction":{"_0":{"kind":"maximize","windowID":1}}}})",
         R"(invalid value "maximize" at message.windowAction._0.kind)"},
        {R"({"id":1,"message":{"windowEvent":{"_0":{"kind":"opened","window":{}}}}})",
         R"(invalid value "opened" at message.windowEvent._0.kind)"},
        {R"({"id":1,"message":{"windowList":{"_0":[{"windowID":1,"pid":1,"title":"","frame":{"x":0,"y":0,"width":1,"height":1},"layer":9223372036854775808,"zIndex":0,"isOnScreen":true,"isMinimized":false,"isFocused":false}]}}})",
         "number 9223372036854775808 does not fit i64 at message.windowList._0[0].layer"},
        {R"({"id":1,"message":{"windowList":{"_0":[{"windowID":1,"pid":1,"title":"","frame":{"x":0,"y":0,"width":1},"layer":0,"zIndex":0,"isOnScreen":true,"isMinimized":false,"isFocused":false}]}}})",
         R"(missing key "height" at message.windowList._0[0].frame)"},
        {R"({"id":1,"message":{"windowList":{"_0":[{"windowID":1,"pid":1,"title":"","frame":{"x":0,"y":0,"width":1,"height":1},"layer":0,"zIndex":0,"isOnScreen":1,"isMinimized":false,"isFocused":false}]}}})",
         "expected a Boolean, found number at message.windowList._0[0].isOnScreen"},
        {R"({"id":1,"message":{"menu":{"pid":1,"items":[{"title":"File","path":[0],"enabled":true,"checked":false}]}}})",
         R"(missing key "children" at message.menu.items[0])"},
        {clip("abc"), "invalid Base64 at message.clipboard._0.items[0].data"},
        {clip("aGVsbG8"), "invalid Base64 at message.clipboard._0.items[0].data"},
        {clip("aGVs bG8="), "invalid Base64 at message.clipboard._0.items[0].data"},
        {clip("aGVs\\nbG8="), "invalid Base64 at message.clipboard._0.items[0].data"},
    };
    for (const auto& [json, reason] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(decodeErrorOf(json), reason);
    }
    // Syntax errors carry the parser's own words.
    for (std::string_view bad : {"", "{\"id\":1,", "{\"id\":1,\"message\":{\"ok\":{}}} x", "{\"id\":1,\"message\":{\"ok\":{}}}\xff"}) {
        SCOPED_TRACE(bad);
        EXPECT_TRUE(decodeErrorOf(bad).starts_with("parse error at line 1, column ")) << decodeErrorOf(bad);
    }
}

MenuNode nestedMenu(int depth) {
    MenuNode node{"leaf", {}, true, false, std::nullopt, {}};
    for (int i = 0; i < depth; ++i) node = MenuNode{"level", {int64_t(i)}, true, false, std::nullopt, {node}};
    return node;
}

TEST(ControlJSON, MenusNestDeepButNotWithoutBound) {
    ControlEnvelope deep{1, {}, CM::Menu{1, {nestedMenu(200)}}};
    EXPECT_EQ(decodeEnvelope(encodeText(deep)), deep);

    ControlEnvelope tooDeep{1, {}, CM::Menu{1, {nestedMenu(300)}}};
    EXPECT_EQ(decodeErrorOf(encodeText(tooDeep)), "nesting deeper than 512 levels");
}

TEST(ControlJSON, NestingIsRefusedWhileParsingWhereverItStands) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    for (const std::string& json : {
             // under a key nobody reads, which is parsed all the same
             R"({"id":1,"x":)" + deep + R"(,"message":{"ok":{}}})",
             R"({"id":1,"message":{"ok":{"y":)" + deep + "}}}",
             // a frame's worth of openers, never closed: refused at the limit,
             // not at the end of the text
             std::string(4 << 20, '['),
         }) {
        SCOPED_TRACE(json.substr(0, 40));
        EXPECT_EQ(decodeErrorOf(json), "nesting deeper than 512 levels");
    }
    // Objects nest as arrays do: `{"a":` per level.
    std::string objects;
    for (int i = 0; i < 600; ++i) objects += R"({"a":)";
    EXPECT_EQ(decodeErrorOf(objects + "1" + std::string(600, '}')), "nesting deeper than 512 levels");
}

TEST(ControlJSON, EncoderRefusesNonFiniteNumbersAndRepairsText) {
    ControlEnvelope nan{1, {}, CM::StartStream{{1, 1, 30, std::nan(""), VideoCodec::h264}}};
    EXPECT_THROW(WireJSON::encode(nan), WireJSON::EncodeError);
    ControlEnvelope inf{1, {}, CM::Status{AgentStatus{INFINITY, {}, false, false, {}, {}}}};
    EXPECT_THROW(WireJSON::encode(inf), WireJSON::EncodeError);

    GuestWindow w = bareWindow;
    w.title = "bad \xC3 byte";
    ControlEnvelope e{1, {}, CM::WindowList{{w}}};
    ControlEnvelope back = decodeEnvelope(encodeText(e));
    EXPECT_EQ(back.message.get<CM::WindowList>()->value[0].title, "bad \uFFFD byte");

    // Large integral values keep their exact digits; others print shortest.
    ControlEnvelope scales{1, {}, CM::Status{AgentStatus{1e300, {}, false, false, {}, {}}}};
    EXPECT_NE(encodeText(scales).find(R"("uptimeSeconds":1e+300)"), std::string::npos);
    scales.message = CM::Status{AgentStatus{4503599627370497.0, {}, false, false, {}, {}}};
    EXPECT_NE(encodeText(scales).find(R"("uptimeSeconds":4503599627370497})"), std::string::npos);
    scales.message = CM::Status{AgentStatus{0.1, {}, false, false, {}, {}}};
    EXPECT_NE(encodeText(scales).find(R"("uptimeSeconds":0.1})"), std::string::npos);
}

TEST(ProvisionReportJSON, RequiredKeysAndOptionals) {
    auto decode = [](std::string_view text) {
        return WireJSON::decodeProvisionReport(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    };
    Bytes bytes = WireJSON::encode(provisionReport);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()),
              R"({"autoLoginUser":"me","autoUpdatesOff":true,"fileVault":false,"installedAt":"2026-10-01T12:00:00Z",)"
              R"("rosetta":true,"schema":1,"sleepOff":false})");
    EXPECT_EQ(WireJSON::decodeProvisionReport(bytes.data(), bytes.size()), provisionReport);

    ProvisionReport minimal{3, {}, {}, false, true, true, true, {}, {}};
    EXPECT_EQ(decode(R"({"schema":3,"rosetta":false,"autoUpdatesOff":true,"sleepOff":true,"fileVault":true})"), minimal);
    EXPECT_THROW(decode(R"({"schema":3,"rosetta":false,"autoUpdatesOff":true,"fileVault":true})"), WireJSON::DecodeError);
    EXPECT_THROW(decode(R"({"schema":"3","rosetta":false,"autoUpdatesOff":true,"sleepOff":true,"fileVault":true})"),
                 WireJSON::DecodeError);
    EXPECT_THROW(decode("[]"), WireJSON::DecodeError);
}

}  // namespace
}  // namespace tsl
