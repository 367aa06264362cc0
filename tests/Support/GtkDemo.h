#pragma once
#include <atspi/atspi.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "Platform/X11/AtspiThread.h"
#include "Support/AccessibilityBus.h"
#include "Support/XDisplay.h"

namespace tsl::test {

// gtk3-demo-application on a display of the test's own, with the program's
// accessibility bus; its window is "Application Class".
struct GtkDemo {
    static constexpr const char* title = "Application Class";

    // The application's window once AT-SPI shows it; nothing if it never does.
    static std::optional<X11::ClientWindow> start(XDisplay& display) {
        if (!AccessibilityBus::shared().ready()) return std::nullopt;
        display.launch("/usr/bin/gtk3-demo-application", {});
        auto window = display.waitForWindow(title);
        if (!window || !window->pid) return std::nullopt;
        // Nothing announces that the application has joined the bus.
        if (!eventually([&] { return states(*window->pid, "Bold").has_value(); })) return std::nullopt;
        return window;
    }

    // Whether `done` comes to hold within the limit. AT-SPI states change
    // without an X event to wait on, so this looks again, briefly apart.
    static bool eventually(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + XDisplay::limit;
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    // Types `text` into the first text element of the application, as a
    // user would have.
    static bool type(int32_t pid, const std::string& text) {
        return X11::AtspiThread::shared().call([&] {
            AtspiAccessible* a = application(pid);
            AtspiAccessible* field = a ? firstText(a, 0) : nullptr;
            AtspiEditableText* editable = field ? atspi_accessible_get_editable_text_iface(field) : nullptr;
            const bool done =
                editable && atspi_editable_text_insert_text(editable, 0, text.c_str(), gint(text.size()), nullptr);
            for (void* o : {(void*)editable, (void*)field, (void*)a})
                if (o) g_object_unref(o);
            return done;
        });
    }

    struct States {
        bool checked = false;
        bool showing = false;
    };

    // AT-SPI's own answer, past the code under test: the states of the
    // first element named `name` (depth first) in the application of `pid`.
    static std::optional<States> states(int32_t pid, const std::string& name) {
        return X11::AtspiThread::shared().call([&]() -> std::optional<States> {
            AtspiAccessible* app = application(pid);
            std::optional<States> out = app ? find(app, name, 0) : std::nullopt;
            if (app) g_object_unref(app);
            return out;
        });
    }

private:
    static AtspiAccessible* application(int32_t pid) {
        if (!X11::AtspiThread::shared().connect()) return nullptr;
        AtspiAccessible* desktop = atspi_get_desktop(0);
        AtspiAccessible* found = nullptr;
        const int apps = atspi_accessible_get_child_count(desktop, nullptr);
        for (int i = 0; i < apps && !found; ++i) {
            AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, nullptr);
            if (app && atspi_accessible_get_process_id(app, nullptr) == guint(pid)) found = app;
            else if (app) g_object_unref(app);
        }
        g_object_unref(desktop);
        return found;
    }
    static AtspiAccessible* firstText(AtspiAccessible* a, int depth) {
        if (atspi_accessible_get_role(a, nullptr) == ATSPI_ROLE_TEXT)
            return static_cast<AtspiAccessible*>(g_object_ref(a));
        const int count = depth < 12 ? atspi_accessible_get_child_count(a, nullptr) : 0;
        AtspiAccessible* found = nullptr;
        for (int i = 0; i < count && !found; ++i) {
            AtspiAccessible* child = atspi_accessible_get_child_at_index(a, i, nullptr);
            if (!child) continue;
            found = firstText(child, depth + 1);
            g_object_unref(child);
        }
        return found;
    }

    static std::optional<States> find(AtspiAccessible* a, const std::string& name, int depth) {
        gchar* own = atspi_accessible_get_name(a, nullptr);
        const bool match = own && name == own;
        g_free(own);
        if (match) {
            AtspiStateSet* s = atspi_accessible_get_state_set(a);
            States out{bool(atspi_state_set_contains(s, ATSPI_STATE_CHECKED)),
                       bool(atspi_state_set_contains(s, ATSPI_STATE_SHOWING))};
            g_object_unref(s);
            return out;
        }
        std::optional<States> out;
        const int count = depth < 12 ? atspi_accessible_get_child_count(a, nullptr) : 0;
        for (int i = 0; i < count && !out; ++i) {
            AtspiAccessible* child = atspi_accessible_get_child_at_index(a, i, nullptr);
            if (!child) continue;
            out = find(child, name, depth + 1);
            g_object_unref(child);
        }
        return out;
    }
};

}  // namespace tsl::test
