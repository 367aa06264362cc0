#include "Platform/X11/AtspiThread.h"

#include <atspi/atspi.h>

#include <cstdlib>
#include <exception>
#include <future>

namespace tsl::X11 {
namespace {

thread_local bool onAtspiThread = false;

}  // namespace

AtspiThread& AtspiThread::shared() {
    // Never destroyed: references may be released from static destructors.
    static AtspiThread* const one = new AtspiThread();
    return *one;
}

AtspiThread::AtspiThread() {
    context = g_main_context_new();
    thread = std::thread([this] { loop(); });
    thread.detach();
}

void AtspiThread::loop() {
    pthread_setname_np(pthread_self(), "tsl.atspi");
    onAtspiThread = true;
    g_main_context_push_thread_default(context);
    for (;;) {
        // libatspi's D-Bus traffic, until a post wakes the context.
        g_main_context_iteration(context, TRUE);
        for (;;) {
            std::function<void()> job;
            {
                std::lock_guard g(lock);
                if (jobs.empty()) break;
                job = std::move(jobs.front());
                jobs.pop_front();
            }
            job();
        }
    }
}

void AtspiThread::post(std::function<void()> job) {
    {
        std::lock_guard g(lock);
        jobs.push_back(std::move(job));
    }
    g_main_context_wakeup(context);
}

void AtspiThread::run(const std::function<void()>& work) {
    if (onAtspiThread) return work();
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    post([&] {
        // The error leaves its catch block before it is handed over.
        std::exception_ptr error;
        try {
            work();
        } catch (...) {
            error = std::current_exception();
        }
        if (error) done.set_exception(error);
        else done.set_value();
    });
    finished.get();
}

bool AtspiThread::connect() {
    if (state == 0) {
        state = 2;
        if (std::getenv("AT_SPI_BUS_ADDRESS") || std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
            if (atspi_init() == 0) {
                atspi_set_main_context(context);
                atspi_set_timeout(callTimeoutMs, callTimeoutMs);
                state = 1;
            }
        }
    }
    return state == 1;
}

void AtspiThread::release(AtspiAccessible* object) {
    if (!object) return;
    if (onAtspiThread) g_object_unref(object);
    else post([object] { g_object_unref(object); });
}

}  // namespace tsl::X11
