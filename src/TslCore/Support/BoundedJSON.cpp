#include "TslCore/Support/BoundedJSON.h"

#include <string_view>
#include <utility>

namespace tsl::JSONFields {
namespace {

class BoundedBuilder {
public:
    BoundedBuilder(json& root, const KeySet& known) : dom(root, true), known(known) {}

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
        if (!known.contains(k)) {
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
    const KeySet& known;
    size_t depth = 0;
    size_t skipping = 0;  // levels open inside a skipped value
    bool skipNext = false;
};

}  // namespace

json parseBounded(const uint8_t* data, size_t size, const KeySet& known) {
    json root;
    BoundedBuilder builder(root, known);
    try {
        if (!json::sax_parse(data, data + size, &builder) && builder.tooDeep)
            throw DecodeError("nesting deeper than " + std::to_string(maxDepth) + " levels", "");
    } catch (const json::exception& e) {
        // Drop the library's "[json.exception.parse_error.101] " tag.
        std::string_view text = e.what();
        if (size_t end = text.find("] "); text.starts_with("[json.exception.") && end != text.npos)
            text.remove_prefix(end + 2);
        throw DecodeError(std::string(text), "");
    }
    return root;
}

}  // namespace tsl::JSONFields
