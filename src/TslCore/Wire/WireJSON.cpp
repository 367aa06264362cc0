#include "TslCore/Wire/WireJSON.h"

#include <algorithm>
#include <string>
#include <utility>

#include "TslCore/Support/BoundedJSON.h"
#include "TslCore/Support/JSONFields.h"
#include "TslCore/Wire/WireJSONValues.h"

namespace tsl {

using JSONFields::Is;
using nlohmann::json;

// ---- The fields of each record, one list for both directions.

template <class V, Is<WireRect> R>
void fields(V& v, R& r) {
    v("x", r.x);
    v("y", r.y);
    v("width", r.width);
    v("height", r.height);
}

template <class V, Is<Hello> R>
void fields(V& v, R& r) {
    v("protocolVersion", r.protocolVersion);
    v("role", r.role);
    v("softwareVersion", r.softwareVersion);
    v("osVersion", r.osVersion);
    v("arch", r.arch);
    v("capabilities", r.capabilities);
    v("agentProto", r.agentProto);
}

template <class V, Is<GuestApp> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("name", r.name);
    v("path", r.path);
    v("version", r.version);
    v("running", r.running);
    v("pid", r.pid);
}

template <class V, Is<LaunchRequest> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("path", r.path);
    v("openFiles", r.openFiles);
}

template <class V, Is<LaunchResult> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("pid", r.pid);
}

template <class V, Is<GuestWindow> R>
void fields(V& v, R& r) {
    v("windowID", r.windowID);
    v("pid", r.pid);
    v("bundleID", r.bundleID);
    v("title", r.title);
    v("frame", r.frame);
    v("layer", r.layer);
    v("zIndex", r.zIndex);
    v("isOnScreen", r.isOnScreen);
    v("isMinimized", r.isMinimized);
    v("isFocused", r.isFocused);
    v("attachedTo", r.attachedTo);
}

template <class V, Is<WindowQuery> R>
void fields(V& v, R& r) {
    v("pid", r.pid);
    v("bundleID", r.bundleID);
}

template <class V, Is<StreamRequest> R>
void fields(V& v, R& r) {
    v("streamID", r.streamID);
    v("windowID", r.windowID);
    v("fps", r.fps);
    v("scale", r.scale);
    v("codec", r.codec);
}

template <class V, Is<WindowEvent> R>
void fields(V& v, R& r) {
    v("kind", r.kind);
    v("window", r.window);
}

template <class V, Is<WindowAction> R>
void fields(V& v, R& r) {
    v("windowID", r.windowID);
    v("kind", r.kind);
    v("frame", r.frame);
}

template <class V, Is<ClipboardItem> R>
void fields(V& v, R& r) {
    v("type", r.type);
    v("data", r.data);
}

template <class V, Is<ClipboardPayload> R>
void fields(V& v, R& r) {
    v("origin", r.origin);
    v("changeCount", r.changeCount);
    v("items", r.items);
}

template <class V, Is<InstallRequest> R>
void fields(V& v, R& r) {
    v("sharedAppPath", r.sharedAppPath);
    v("bundleID", r.bundleID);
    v("sharedPrefsPath", r.sharedPrefsPath);
    v("sharedSupportPath", r.sharedSupportPath);
}

template <class V, Is<AgentStatus> R>
void fields(V& v, R& r) {
    v("uptimeSeconds", r.uptimeSeconds);
    v("activeStreams", r.activeStreams);
    v("screenRecordingGranted", r.screenRecordingGranted);
    v("accessibilityGranted", r.accessibilityGranted);
    v("rosettaInstalled", r.rosettaInstalled);
    v("provision", r.provision);
}

template <class V, Is<ErrorInfo> R>
void fields(V& v, R& r) {
    v("code", r.code);
    v("message", r.message);
}

template <class V, Is<MenuNode> R>
void fields(V& v, R& r) {
    v("title", r.title);
    v("path", r.path);
    v("enabled", r.enabled);
    v("checked", r.checked);
    v("shortcut", r.shortcut);
    v("children", r.children);
}

template <class V, Is<ProvisionReport> R>
void fields(V& v, R& r) {
    v("schema", r.schema);
    v("installedAt", r.installedAt);
    v("toolsVersion", r.toolsVersion);
    v("rosetta", r.rosetta);
    v("autoUpdatesOff", r.autoUpdatesOff);
    v("sleepOff", r.sleepOff);
    v("fileVault", r.fileVault);
    v("autoLoginUser", r.autoLoginUser);
    v("consoleUser", r.consoleUser);
}

// The cases of ControlMessage are records too: an unlabelled payload under
// "_0", labelled ones under their labels, none as the empty object.

template <class C>
concept Case = ControlMessage::isCase<std::remove_const_t<C>>;

template <class V, class C>
    requires Case<C> && requires(C& c) { c.value; }
void fields(V& v, C& c) {
    v("_0", c.value);
}

template <class V, class C>
    requires Case<C> && std::is_empty_v<std::remove_const_t<C>>
void fields(V&, C&) {}

template <class V, Is<ControlMessage::QuitApp> R>
void fields(V& v, R& r) {
    v("pid", r.pid);
}

template <class V, Is<ControlMessage::StopStream> R>
void fields(V& v, R& r) {
    v("streamID", r.streamID);
}

template <class V, Is<ControlMessage::RequestKeyframe> R>
void fields(V& v, R& r) {
    v("streamID", r.streamID);
}

template <class V, Is<ControlMessage::Installed> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("path", r.path);
}

template <class V, Is<ControlMessage::GetMenu> R>
void fields(V& v, R& r) {
    v("pid", r.pid);
}

template <class V, Is<ControlMessage::Menu> R>
void fields(V& v, R& r) {
    v("pid", r.pid);
    v("items", r.items);
}

template <class V, Is<ControlMessage::PressMenu> R>
void fields(V& v, R& r) {
    v("pid", r.pid);
    v("path", r.path);
}

// ---- The wire's own values.

json toJSON(Hello::Role value) { return toString(value); }
json toJSON(WindowEvent::Kind value) { return toString(value); }
json toJSON(WindowAction::Kind value) { return toString(value); }
json toJSON(VideoCodec value) { return uint8_t(value); }

void fromJSON(const json& j, const JSONFields::Path& at, Hello::Role& out) {
    JSONFields::parsedFromJSON(j, at, out, fromString<Hello::Role>);
}
void fromJSON(const json& j, const JSONFields::Path& at, WindowEvent::Kind& out) {
    JSONFields::parsedFromJSON(j, at, out, fromString<WindowEvent::Kind>);
}
void fromJSON(const json& j, const JSONFields::Path& at, WindowAction::Kind& out) {
    JSONFields::parsedFromJSON(j, at, out, fromString<WindowAction::Kind>);
}
void fromJSON(const json& j, const JSONFields::Path& at, VideoCodec& out) {
    uint8_t raw = 0;
    JSONFields::fromJSON(j, at, raw);
    std::optional<VideoCodec> codec = videoCodecFromRaw(raw);
    if (!codec) JSONFields::fail("invalid value " + j.dump(), at);
    out = *codec;
}

}  // namespace tsl

namespace tsl::WireJSON {
namespace {

using json = nlohmann::json;
using JSONFields::Path;
using JSONFields::Reader;
using JSONFields::Writer;

// ---- Messages and envelopes.

json messageToJSON(const ControlMessage& message) {
    json j(json::value_t::object);
    std::visit([&](const auto& c) { j.emplace(std::string(message.caseName()), JSONFields::toJSON(c)); },
               message.payload);
    return j;
}

template <size_t I>
ControlMessage decodeAlternative(json& j, const Path& at) {
    std::variant_alternative_t<I, ControlMessage::Payload> c;
    JSONFields::fromJSON(j, at, c);
    return ControlMessage(std::move(c));
}

template <size_t... I>
ControlMessage decodeCase(ControlMessage::Kind kind, json& j, const Path& at, std::index_sequence<I...>) {
    using Decoder = ControlMessage (*)(json&, const Path&);
    static constexpr Decoder decoders[] = {&decodeAlternative<I>...};
    return decoders[size_t(kind)](j, at);
}

// Only keys that name a known case count, and there must be exactly one.
ControlMessage messageFromJSON(json& j, const Path& at) {
    json::object_t* object = j.get_ptr<json::object_t*>();
    if (!object) JSONFields::mismatch("an object", j, at);
    std::optional<ControlMessage::Kind> kind;
    json* value = nullptr;
    size_t count = 0;
    for (auto& [key, v] : *object) {
        if (std::optional<ControlMessage::Kind> k = controlKindFromName(key)) {
            ++count;
            kind = k;
            value = &v;
        }
    }
    if (count != 1) throw JSONFields::DecodeError("Invalid number of keys found, expected one.", "");
    return decodeCase(*kind, *value, at.child(caseName(*kind)),
                      std::make_index_sequence<ControlMessage::kindCount>{});
}

// Every key that some record reads. A value under any other key is never
// looked at, so the parser skips it without building it.
template <size_t... I>
void collectCaseKeys(JSONFields::KeySet& keys, std::index_sequence<I...>) {
    JSONFields::collectKeys<std::variant_alternative_t<I, ControlMessage::Payload>...>(keys);
    for (size_t k = 0; k < ControlMessage::kindCount; ++k) keys.emplace(caseName(ControlMessage::Kind(k)));
}

const JSONFields::KeySet& knownKeys() {
    static const JSONFields::KeySet keys = [] {
        JSONFields::KeySet made{"id", "replyTo", "message"};
        collectCaseKeys(made, std::make_index_sequence<ControlMessage::kindCount>{});
        JSONFields::collectKeys<ProvisionReport, AgentStatus>(made);
        return made;
    }();
    return keys;
}

json parseWire(const uint8_t* data, size_t size) { return JSONFields::parseBounded(data, size, knownKeys()); }

// The vocabulary's errors keep their text and become this codec's own.
template <class F>
auto translated(F decode) {
    try {
        return decode();
    } catch (const JSONFields::DecodeError& e) {
        throw DecodeError(e.description());
    } catch (const JSONFields::EncodeError& e) {
        throw EncodeError(e.description());
    }
}

Bytes serialize(const json& j) {
    // Text that is not UTF-8 is replaced rather than refused, as a window
    // title from a misbehaving application must not sink the whole list.
    const std::string text = j.dump(-1, ' ', false, json::error_handler_t::replace);
    // Slashes go out escaped, "\/", as the other side's encoder writes them.
    // Outside strings JSON has no slash, so each one found is inside a string.
    Bytes out;
    out.reserve(text.size() + size_t(std::count(text.begin(), text.end(), '/')));
    size_t at = 0;
    for (size_t slash; (slash = text.find('/', at)) != std::string::npos; at = slash + 1) {
        out.insert(out.end(), text.begin() + ptrdiff_t(at), text.begin() + ptrdiff_t(slash));
        out.push_back('\\');
        out.push_back('/');
    }
    out.insert(out.end(), text.begin() + ptrdiff_t(at), text.end());
    return out;
}

}  // namespace

Bytes encode(const ControlEnvelope& envelope) {
    return translated([&] {
        json j(json::value_t::object);
        json::object_t& object = *j.get_ptr<json::object_t*>();
        Writer writer{object};
        writer("id", envelope.id);
        writer("replyTo", envelope.replyTo);
        object.emplace("message", messageToJSON(envelope.message));
        return serialize(j);
    });
}

ControlEnvelope decodeEnvelope(const uint8_t* data, size_t size) {
    return translated([&] {
        json j = parseWire(data, size);
        Path root;
        json::object_t* object = j.get_ptr<json::object_t*>();
        if (!object) JSONFields::mismatch("an object", j, root);
        Reader<json> reader{*object, root};
        uint32_t id = 0;
        std::optional<uint32_t> replyTo;
        reader("id", id);
        reader("replyTo", replyTo);
        ControlMessage message = messageFromJSON(reader.require("message"), root.child("message"));
        return ControlEnvelope{id, replyTo, std::move(message)};
    });
}

template <JSONFields::Record R>
Bytes encodeRecord(const R& record) {
    return translated([&] { return serialize(JSONFields::toJSON(record)); });
}

template <JSONFields::Record R>
R decodeRecord(const uint8_t* data, size_t size) {
    return translated([&] {
        json j = parseWire(data, size);
        return JSONFields::decode<R>(j);
    });
}

Bytes encode(const ProvisionReport& report) { return encodeRecord(report); }

ProvisionReport decodeProvisionReport(const uint8_t* data, size_t size) {
    return decodeRecord<ProvisionReport>(data, size);
}

Bytes encode(const AgentStatus& status) { return encodeRecord(status); }

AgentStatus decodeAgentStatus(const uint8_t* data, size_t size) { return decodeRecord<AgentStatus>(data, size); }

}  // namespace tsl::WireJSON
