#include "Platform/X11/AtspiShortcut.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace tsl::X11 {
namespace {

constexpr int64_t shift = 1, option = 2, control = 4, noCommand = 8;

// Key names that stand for one printable character.
const std::map<std::string, std::string>& keyCharacters() {
    static const std::map<std::string, std::string> table{
        {"plus", "+"},        {"minus", "-"},        {"equal", "="},          {"comma", ","},
        {"period", "."},      {"slash", "/"},        {"question", "?"},       {"space", " "},
        {"bracketleft", "["}, {"bracketright", "]"}, {"semicolon", ";"},      {"apostrophe", "'"},
        {"backslash", "\\"},  {"grave", "`"},        {"KP_Add", "+"},         {"KP_Subtract", "-"},
        {"Return", "\u21A9"}, {"Delete", "\u2326"},  {"BackSpace", "\u232B"}, {"Escape", "\u238B"},
        {"Tab", "\u21E5"}};
    return table;
}

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

}  // namespace

std::optional<MenuShortcut> menuShortcut(const std::string& keyBinding, CommandKey command) {
    // The accelerator is the third field; the first two are mnemonics.
    const size_t first = keyBinding.find(';');
    if (first == std::string::npos) return std::nullopt;
    const size_t second = keyBinding.find(';', first + 1);
    if (second == std::string::npos) return std::nullopt;
    std::string rest = keyBinding.substr(second + 1);

    const bool controlIsCommand = command == CommandKey::control;
    MenuShortcut out;
    bool hasCommand = false;
    while (!rest.empty() && rest.front() == '<') {
        const size_t end = rest.find('>');
        if (end == std::string::npos) return std::nullopt;
        const std::string name = lower(rest.substr(1, end - 1));
        rest.erase(0, end + 1);
        const bool isControl = name == "primary" || name == "control" || name == "ctrl" || name == "ctl";
        const bool isSuper = name == "super" || name == "meta" || name == "hyper";
        if (name == "shift") out.modifiers |= shift;
        else if (name == "alt" || name == "mod1") out.modifiers |= option;
        else if ((isControl && controlIsCommand) || (isSuper && !controlIsCommand)) hasCommand = true;
        else if (isControl || isSuper) out.modifiers |= control;
        else return std::nullopt;
    }
    if (rest.empty()) return std::nullopt;
    if (!hasCommand) out.modifiers |= noCommand;
    if (rest.size() == 1) {
        out.character = std::string(1, char(std::toupper(static_cast<unsigned char>(rest[0]))));
    } else {
        auto known = keyCharacters().find(rest);
        out.character = known == keyCharacters().end() ? rest : known->second;
    }
    return out;
}

}  // namespace tsl::X11
