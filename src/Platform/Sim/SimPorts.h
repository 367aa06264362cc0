#pragma once
// The ports of the simulated desktop: thin views of one Desktop each.
#include "Platform/Sim/Desktop.h"

namespace tsl::Sim {

class SimWindowServer final : public WindowServer {
public:
    explicit SimWindowServer(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    std::optional<PlatformValue> copyWindowInfo(uint32_t options, uint32_t relativeToWindow) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

class SimWorkspace final : public Workspace {
public:
    explicit SimWorkspace(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    std::optional<RunningApplication> frontmostApplication() override;
    std::vector<RunningApplication> runningApplications() override;
    std::optional<RunningApplication> runningApplication(int32_t pid) override;
    bool activate(int32_t pid, uint32_t options) override;
    bool terminate(int32_t pid) override;
    std::optional<std::filesystem::path> urlForApplication(const std::string& bundleID) override;
    void openApplication(const std::filesystem::path& application, const OpenConfiguration& configuration,
                         OpenCompletion completion) override;
    void openURLs(const std::vector<std::filesystem::path>& urls, const std::filesystem::path& application,
                  const OpenConfiguration& configuration, OpenCompletion completion) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

class SimAccessibility final : public Accessibility {
public:
    explicit SimAccessibility(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    bool isProcessTrusted() override;
    bool isProcessTrustedWithOptions(bool prompt) override;
    AXElement createApplication(int32_t pid) override;
    AXError setMessagingTimeout(const AXElement& element, float seconds) override;
    AXError copyAttributeValue(const AXElement& element, const std::string& attribute,
                               std::optional<AXAttributeValue>& value) override;
    AXError setAttributeValue(const AXElement& element, const std::string& attribute,
                              const AXAttributeValue& value) override;
    AXError performAction(const AXElement& element, const std::string& action) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

class SimScreenCapture final : public ScreenCapture {
public:
    explicit SimScreenCapture(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    bool preflightAccess() override;
    bool requestAccess() override;
    void shareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                          ContentCompletion completion) override;
    ContentFilter filter(const ShareableWindow& desktopIndependentWindow) override;
    std::shared_ptr<CaptureStream> makeStream(const ContentFilter& filter, const CaptureConfiguration& configuration,
                                              StopHandler didStopWithError) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

class SimEventPoster final : public EventPoster {
public:
    explicit SimEventPoster(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    std::optional<Source> createSource(int32_t stateID) override;
    std::optional<PlatformEvent> createMouseEvent(const std::optional<Source>& source, uint32_t type, Point location,
                                                  uint32_t button) override;
    std::optional<PlatformEvent> createScrollWheelEvent(const std::optional<Source>& source, ScrollUnit units,
                                                        uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                                        int32_t wheel3) override;
    std::optional<PlatformEvent> createKeyboardEvent(const std::optional<Source>& source, uint16_t keyCode,
                                                     bool keyDown) override;
    std::optional<PlatformEvent> createEvent(const std::optional<Source>& source) override;
    void post(Tap tap, const PlatformEvent& event) override;
    void postToPid(int32_t pid, const PlatformEvent& event) override;

private:
    std::optional<PlatformEvent> make(const std::optional<Source>& source, uint32_t type);
    const std::shared_ptr<Desktop> _desktop;
};

class SimPasteboard final : public Pasteboard {
public:
    explicit SimPasteboard(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    int64_t changeCount() override;
    std::vector<std::string> types() override;
    std::optional<Bytes> dataForType(const std::string& type) override;
    int64_t clearContents() override;
    bool setData(const Bytes& data, const std::string& type) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

class SimPreferences final : public Preferences {
public:
    explicit SimPreferences(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    std::optional<PlatformValue> copyValue(const std::string& key, const std::string& application, User user,
                                           Host host) override;
    void setValue(const std::string& key, const std::optional<PlatformValue>& value, const std::string& application,
                  User user, Host host) override;
    bool synchronize(const std::string& application, User user, Host host) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

class SimSystem final : public System {
public:
    explicit SimSystem(std::shared_ptr<Desktop> d) : _desktop(std::move(d)) {}
    std::optional<int64_t> sysctlInteger(const std::string& name) override;
    std::string operatingSystemVersionString() override;
    std::filesystem::path homeDirectory() override;
    int32_t processIdentifier() override;
    ChildResult run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) override;

private:
    const std::shared_ptr<Desktop> _desktop;
};

}  // namespace tsl::Sim
