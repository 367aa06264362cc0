#include "TslAgent/InstallQueue.h"

#include <thread>

#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/Runtime.h"

namespace tsl {

InstallQueue::~InstallQueue() {
    std::unique_lock g(_running->lock);
    _running->ended.wait(g, [&] { return _running->count == 0; });
}

asio::awaitable<std::filesystem::path> InstallQueue::run(AppInstaller installer, InstallRequest request) {
    using Installed = std::filesystem::path;
    co_return co_await Resumption<Installed>::suspend([&](Resumption<Installed> done) {
        auto leave = [](Running& running) {
            {
                std::lock_guard g(running.lock);
                --running.count;
            }
            running.ended.notify_all();
        };
        {
            std::lock_guard g(_running->lock);
            ++_running->count;
        }
        try {
            std::thread([leave, installer = std::move(installer), request = std::move(request), done,
                         running = _running]() mutable {
                setThreadName("tsl.install");
                done.resumeWith([&] { return installer.install(request); });
                leave(*running);
            }).detach();
        } catch (...) {
            leave(*_running);  // no thread: the request fails with the error
            throw;
        }
    });
}

}  // namespace tsl
