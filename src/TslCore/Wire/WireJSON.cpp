#include "TslCore/Wire/WireJSON.h"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "TslCore/Support/Base64.h"
#include "TslCore/Support/JSONInteger.h"

namespace tsl::WireJSON {
namespace {

using json = nlohmann::json;

// Deeper documents are refused before the recursive record readers could
// exhaust the stack (menus are the one recursive record).
constexpr size_t maxDepth = 512;

// Where a value sits in the document, for error texts; built on the stack as
// the reader descends, and only turned into text when something fails.
struct Path {
    const Path* parent = nullptr;
    std::string_view key;  // empty for an array element
    size_t index = 0;
    size_t depth = 0;

    Path child(std::string_view k) const { return Path{this, k, 0, depth + 1}; }
    Path element(size_t i) const { return Path{this, {}, i, depth + 1}; }

    std::string text() const {
        if (!parent) return {};
        std::string head = parent->text();
        if (key.empty()) return head + "[" + std::to_string(index) + "]";
        return head.empty() ? std::string(key) : head + "." + std::string(key);
    }
};

[[noreturn]] void fail(const std::string& problem, const Path& at) {
    std::string where = at.text();
    throw DecodeError(where.empty() ? problem : problem + " at " + where);
}

[[noreturn]] void mismatch(const char* expected, const json& value, const Path& at) {
    fail(std::string("expected ") + expected + ", found " + value.type_name(), at);
}

void checkDepth(const Path& at) {
    // Without the path, which would be as long as the nesting.
    if (at.depth > maxDepth) throw DecodeError("nesting deeper than " + std::to_string(maxDepth) + " levels");
}

// ---- The fields of each record, one list for both directions. A field of
// optional type is optional in JSON; every other field is required.

template <class R, class T>
concept Is = std::same_as<std::remove_const_t<R>, T>;

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

struct AnyVisitor {
    template <class T>
    void operator()(std::string_view, T&) {}
};

template <class R>
concept Record = requires(AnyVisitor& v, R& r) { fields(v, r); };

// ---- Values. Declared first so that the templates below see every overload.

json toJSON(bool value);
json toJSON(const std::string& value);
json toJSON(double value);
template <std::integral T>
json toJSON(T value);
json toJSON(const Bytes& value);
json toJSON(Hello::Role value);
json toJSON(WindowEvent::Kind value);
json toJSON(WindowAction::Kind value);
json toJSON(VideoCodec value);
template <class T>
json toJSON(const std::vector<T>& values);
template <Record R>
json toJSON(const R& record);

void fromJSON(json& j, const Path& at, bool& out);
void fromJSON(json& j, const Path& at, std::string& out);
void fromJSON(json& j, const Path& at, double& out);
template <std::integral T>
void fromJSON(json& j, const Path& at, T& out);
void fromJSON(json& j, const Path& at, Bytes& out);
void fromJSON(json& j, const Path& at, Hello::Role& out);
void fromJSON(json& j, const Path& at, WindowEvent::Kind& out);
void fromJSON(json& j, const Path& at, WindowAction::Kind& out);
void fromJSON(json& j, const Path& at, VideoCodec& out);
template <class T>
void fromJSON(json& j, const Path& at, std::vector<T>& out);
template <Record R>
void fromJSON(json& j, const Path& at, R& out);

struct FieldWriter {
    json::object_t& object;

    template <class T>
    void operator()(std::string_view key, const T& value) {
        object.emplace(key, toJSON(value));
    }
    template <class T>
    void operator()(std::string_view key, const std::optional<T>& value) {
        if (value) object.emplace(key, toJSON(*value));
    }
};

// Unknown keys are never looked at; null counts as absent.
struct FieldReader {
    json::object_t& object;
    const Path& path;

    json* find(std::string_view key) {
        auto it = object.find(key);
        return it == object.end() || it->second.is_null() ? nullptr : &it->second;
    }
    json& require(std::string_view key) {
        auto it = object.find(key);
        if (it == object.end()) fail("missing key \"" + std::string(key) + "\"", path);
        if (it->second.is_null()) fail("null for required key \"" + std::string(key) + "\"", path);
        return it->second;
    }

    template <class T>
    void operator()(std::string_view key, T& out) {
        fromJSON(require(key), path.child(key), out);
    }
    template <class T>
    void operator()(std::string_view key, std::optional<T>& out) {
        if (json* value = find(key))
            fromJSON(*value, path.child(key), out.emplace());
        else
            out.reset();
    }
};

json toJSON(bool value) { return value; }

json toJSON(const std::string& value) { return value; }

json toJSON(double value) {
    if (!std::isfinite(value)) throw EncodeError("cannot encode the non-finite number " + std::to_string(value));
    // Integral values go out without a fractional part ("scale":1), as long
    // as the integer is exact.
    if (value == std::trunc(value) && std::fabs(value) < 0x1p53) return json::number_integer_t(value);
    return value;
}

template <std::integral T>
json toJSON(T value) {
    return value;
}

json toJSON(const Bytes& value) { return Base64::encode(value); }

json toJSON(Hello::Role value) { return toString(value); }
json toJSON(WindowEvent::Kind value) { return toString(value); }
json toJSON(WindowAction::Kind value) { return toString(value); }
json toJSON(VideoCodec value) { return uint8_t(value); }

template <class T>
json toJSON(const std::vector<T>& values) {
    json::array_t array;
    array.reserve(values.size());
    for (const T& v : values) array.push_back(toJSON(v));
    return array;
}

template <Record R>
json toJSON(const R& record) {
    json j(json::value_t::object);
    FieldWriter writer{*j.get_ptr<json::object_t*>()};
    fields(writer, record);
    return j;
}

void fromJSON(json& j, const Path& at, bool& out) {
    const bool* value = j.get_ptr<const json::boolean_t*>();
    if (!value) mismatch("a Boolean", j, at);
    out = *value;
}

void fromJSON(json& j, const Path& at, std::string& out) {
    std::string* value = j.get_ptr<json::string_t*>();
    if (!value) mismatch("a string", j, at);
    out = std::move(*value);  // the document is thrown away after decoding
}

void fromJSON(json& j, const Path& at, double& out) {
    if (!j.is_number()) mismatch("a number", j, at);
    out = j.get<double>();
}

template <class T>
constexpr const char* widthName() {
    if constexpr (std::is_same_v<T, uint8_t>) return "u8";
    if constexpr (std::is_same_v<T, int32_t>) return "i32";
    if constexpr (std::is_same_v<T, uint32_t>) return "u32";
    if constexpr (std::is_same_v<T, int64_t>) return "i64";
}

// A number must fit the field's width exactly; an integral value written with
// a fraction or an exponent ("7.0", "1e2") is accepted.
template <std::integral T>
void fromJSON(json& j, const Path& at, T& out) {
    if (const auto value = jsonInteger<T>(j)) return void(out = *value);
    if (!j.is_number()) mismatch("a number", j, at);
    fail("number " + j.dump() + " does not fit " + widthName<T>(), at);
}

void fromJSON(json& j, const Path& at, Bytes& out) {
    const std::string* text = j.get_ptr<const json::string_t*>();
    if (!text) mismatch("a string", j, at);
    std::optional<Bytes> bytes = Base64::decode(*text);
    if (!bytes) fail("invalid Base64", at);
    out = std::move(*bytes);
}

template <class E>
void textEnumFromJSON(json& j, const Path& at, E& out) {
    const std::string* text = j.get_ptr<const json::string_t*>();
    if (!text) mismatch("a string", j, at);
    std::optional<E> value = fromString<E>(*text);
    if (!value) fail("invalid value " + j.dump(), at);
    out = *value;
}

void fromJSON(json& j, const Path& at, Hello::Role& out) { textEnumFromJSON(j, at, out); }
void fromJSON(json& j, const Path& at, WindowEvent::Kind& out) { textEnumFromJSON(j, at, out); }
void fromJSON(json& j, const Path& at, WindowAction::Kind& out) { textEnumFromJSON(j, at, out); }

void fromJSON(json& j, const Path& at, VideoCodec& out) {
    uint8_t raw = 0;
    fromJSON(j, at, raw);
    std::optional<VideoCodec> codec = videoCodecFromRaw(raw);
    if (!codec) fail("invalid value " + j.dump(), at);
    out = *codec;
}

template <class T>
void fromJSON(json& j, const Path& at, std::vector<T>& out) {
    json::array_t* array = j.get_ptr<json::array_t*>();
    if (!array) mismatch("an array", j, at);
    checkDepth(at);
    out.clear();
    out.resize(array->size());
    for (size_t i = 0; i < array->size(); ++i) fromJSON((*array)[i], at.element(i), out[i]);
}

template <Record R>
void fromJSON(json& j, const Path& at, R& out) {
    json::object_t* object = j.get_ptr<json::object_t*>();
    if (!object) mismatch("an object", j, at);
    checkDepth(at);
    FieldReader reader{*object, at};
    fields(reader, out);
}

// ---- Messages and envelopes.

json messageToJSON(const ControlMessage& message) {
    json j(json::value_t::object);
    std::visit([&](const auto& c) { j.emplace(std::string(message.caseName()), toJSON(c)); }, message.payload);
    return j;
}

template <size_t I>
ControlMessage decodeAlternative(json& j, const Path& at) {
    std::variant_alternative_t<I, ControlMessage::Payload> c;
    fromJSON(j, at, c);
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
    if (!object) mismatch("an object", j, at);
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
    if (count != 1) throw DecodeError("Invalid number of keys found, expected one.");
    return decodeCase(*kind, *value, at.child(caseName(*kind)),
                      std::make_index_sequence<ControlMessage::kindCount>{});
}

// Every key that some record reads. A value under any other key is never
// looked at, so the parser skips it without building it.
using KeySet = std::set<std::string, std::less<>>;

template <class T>
void collectKeys(KeySet& keys);

struct KeyCollector {
    KeySet& keys;
    template <class F>
    void operator()(std::string_view key, F&) {
        keys.emplace(key);
        collectKeys<F>(keys);
    }
};

template <class T>
struct FieldType {
    using type = T;
};
template <class T>
struct FieldType<std::optional<T>> : FieldType<T> {};
template <class T>
struct FieldType<std::vector<T>> : FieldType<T> {};

template <class T>
void collectKeys(KeySet& keys) {
    using R = typename FieldType<T>::type;
    if constexpr (Record<R>) {
        static bool visited = false;  // records nest themselves (menus); runs once, under a static's guard
        if (std::exchange(visited, true)) return;
        KeyCollector collector{keys};
        R record{};
        fields(collector, record);
    }
}

template <size_t... I>
void collectCaseKeys(KeySet& keys, std::index_sequence<I...>) {
    (collectKeys<std::variant_alternative_t<I, ControlMessage::Payload>>(keys), ...);
    for (size_t k = 0; k < ControlMessage::kindCount; ++k) keys.emplace(caseName(ControlMessage::Kind(k)));
}

const KeySet& knownKeys() {
    static const KeySet keys = [] {
        KeySet made{"id", "replyTo", "message"};
        collectCaseKeys(made, std::make_index_sequence<ControlMessage::kindCount>{});
        collectKeys<ProvisionReport>(made);
        collectKeys<AgentStatus>(made);
        return made;
    }();
    return keys;
}

// Builds the document as the library's own parser does, but refuses nesting
// past maxDepth as it is met, skipped values included, and never builds what
// stands under an unknown key. Without both a 4 MiB frame could cost forty
// times its size: every '[' becomes a value of its own.
class BoundedBuilder {
public:
    explicit BoundedBuilder(json& root) : dom(root, true) {}

    bool tooDeep = false;

    bool null() {
        return scalar([&] { return dom.null(); });
    }
    bool boolean(bool v) {
        return scalar([&] { return dom.boolean(v); });
    }
    bool number_integer(json::number_integer_t v) {
        return scalar([&] { return dom.number_integer(v); });
    }
    bool number_unsigned(json::number_unsigned_t v) {
        return scalar([&] { return dom.number_unsigned(v); });
    }
    bool number_float(json::number_float_t v, const json::string_t& text) {
        return scalar([&] { return dom.number_float(v, text); });
    }
    bool string(json::string_t& v) {
        return scalar([&] { return dom.string(v); });
    }
    bool binary(json::binary_t& v) {
        return scalar([&] { return dom.binary(v); });
    }

    bool start_object(size_t n) {
        return open([&] { return dom.start_object(n); });
    }
    bool start_array(size_t n) {
        return open([&] { return dom.start_array(n); });
    }
    bool end_object() {
        return close([&] { return dom.end_object(); });
    }
    bool end_array() {
        return close([&] { return dom.end_array(); });
    }

    bool key(json::string_t& k) {
        if (skipping > 0) return true;
        if (!knownKeys().contains(k)) {
            skipNext = true;
            return true;
        }
        return dom.key(k);
    }

    template <class Exception>
    bool parse_error(size_t position, const std::string& token, const Exception& e) {
        return dom.parse_error(position, token, e);
    }

private:
    template <class F>
    bool scalar(F build) {
        if (skipping > 0) return true;
        if (std::exchange(skipNext, false)) return true;
        return build();
    }
    template <class F>
    bool open(F build) {
        if (++depth > maxDepth) {
            tooDeep = true;
            return false;
        }
        if (skipping > 0 || std::exchange(skipNext, false)) {
            ++skipping;
            return true;
        }
        return build();
    }
    template <class F>
    bool close(F build) {
        --depth;
        if (skipping > 0) {
            --skipping;
            return true;
        }
        return build();
    }

    nlohmann::detail::json_sax_dom_parser<json> dom;
    size_t depth = 0;
    size_t skipping = 0;  // levels open inside a skipped value
    bool skipNext = false;
};

json parse(const uint8_t* data, size_t size) {
    json root;
    BoundedBuilder builder(root);
    try {
        if (!json::sax_parse(data, data + size, &builder) && builder.tooDeep)
            throw DecodeError("nesting deeper than " + std::to_string(maxDepth) + " levels");
    } catch (const json::exception& e) {
        // Drop the library's "[json.exception.parse_error.101] " tag.
        std::string_view text = e.what();
        if (size_t end = text.find("] "); text.starts_with("[json.exception.") && end != text.npos)
            text.remove_prefix(end + 2);
        throw DecodeError(std::string(text));
    }
    return root;
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
    json j(json::value_t::object);
    json::object_t& object = *j.get_ptr<json::object_t*>();
    FieldWriter writer{object};
    writer("id", envelope.id);
    writer("replyTo", envelope.replyTo);
    object.emplace("message", messageToJSON(envelope.message));
    return serialize(j);
}

ControlEnvelope decodeEnvelope(const uint8_t* data, size_t size) {
    json j = parse(data, size);
    Path root;
    json::object_t* object = j.get_ptr<json::object_t*>();
    if (!object) mismatch("an object", j, root);
    FieldReader reader{*object, root};
    uint32_t id = 0;
    std::optional<uint32_t> replyTo;
    reader("id", id);
    reader("replyTo", replyTo);
    ControlMessage message = messageFromJSON(reader.require("message"), root.child("message"));
    return ControlEnvelope{id, replyTo, std::move(message)};
}

Bytes encode(const ProvisionReport& report) { return serialize(toJSON(report)); }

template <Record R>
R decodeRecord(const uint8_t* data, size_t size) {
    json j = parse(data, size);
    R record;
    fromJSON(j, Path{}, record);
    return record;
}

ProvisionReport decodeProvisionReport(const uint8_t* data, size_t size) {
    return decodeRecord<ProvisionReport>(data, size);
}

Bytes encode(const AgentStatus& status) { return serialize(toJSON(status)); }

AgentStatus decodeAgentStatus(const uint8_t* data, size_t size) { return decodeRecord<AgentStatus>(data, size); }

}  // namespace tsl::WireJSON
