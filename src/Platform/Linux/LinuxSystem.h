#pragma once
#include "Platform/System.h"

namespace tsl {

// The System port over this Linux machine: settings from /proc/sys, real
// child processes. Tools that exist only on the guest's platform simply fail
// to launch here.
class LinuxSystem final : public System {
public:
    std::optional<int64_t> sysctlInteger(const std::string& name) override;
    std::string operatingSystemVersionString() override;
    std::filesystem::path homeDirectory() override;
    int32_t processIdentifier() override;
    ChildResult run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) override;
};

}  // namespace tsl
