// The agent's command line, cut from the input at NUL bytes. Parsing only
// looks at paths (it resolves links); home is a scratch folder.
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "TslAgent/AgentConfig.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    bool inVirtualMachine = (data[0] & 1) != 0;
    std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    std::vector<std::string> arguments;
    for (size_t start = 0; start <= text.size();) {
        size_t end = text.find('\0', start);
        if (end == std::string_view::npos) end = text.size();
        arguments.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    try {
        AgentConfig config = AgentConfig::parse(arguments, fuzz::scratchDir() / "home", inVirtualMachine);
        // Whatever parses is safe to run.
        config.checkSimulationSafety(fuzz::scratchDir() / "home");
        fuzz::require(!inVirtualMachine || !config.isSimulation, "a simulation accepted inside a virtual machine");
    } catch (const AgentConfig::ParseError&) {
    }
    return 0;
}
