#include "Platform/X11/AtspiThread.h"

#include <atspi/atspi.h>

#include <cstdlib>
#include <exception>
#include <future>

namespace tsl::X11 {
namespace {

struct Job {
    std::function<void()> work;
    std::promise<void> done;
};

gboolean runJob(gpointer data) {
    auto* job = static_cast<Job*>(data);
    try {
        job->work();
        job->done.set_value();
    } catch (...) {
        job->done.set_exception(std::current_exception());
    }
    return G_SOURCE_REMOVE;
}

gboolean unref(gpointer data) {
    g_object_unref(data);
    return G_SOURCE_REMOVE;
}

thread_local bool onAtspiThread = false;

}  // namespace

AtspiThread& AtspiThread::shared() {
    // Never destroyed: references may be released from static destructors.
    static AtspiThread* const one = new AtspiThread();
    return *one;
}

AtspiThread::AtspiThread() {
    context = g_main_context_new();
    mainLoop = g_main_loop_new(context, FALSE);
    thread = std::thread([this] { loop(); });
    thread.detach();
}

void AtspiThread::loop() {
    pthread_setname_np(pthread_self(), "tsl.atspi");
    onAtspiThread = true;
    g_main_context_push_thread_default(context);
    g_main_loop_run(mainLoop);
}

void AtspiThread::run(const std::function<void()>& work) {
    if (onAtspiThread) return work();
    Job job{work, {}};
    std::future<void> done = job.done.get_future();
    g_main_context_invoke(context, runJob, &job);
    done.get();
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
    if (object) g_main_context_invoke(context, unref, object);
}

}  // namespace tsl::X11
