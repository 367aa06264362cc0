#include "TslAgent/InstallQueue.h"

#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/Runtime.h"

namespace tsl {

InstallQueue::~InstallQueue() {
    std::vector<Worker> workers;
    {
        std::lock_guard g(_lock);
        workers.swap(_workers);
    }
    for (auto& worker : workers) worker.thread.join();
}

asio::awaitable<std::filesystem::path> InstallQueue::run(AppInstaller installer, InstallRequest request) {
    using Installed = std::filesystem::path;
    co_return co_await Resumption<Installed>::suspend([&](Resumption<Installed> done) {
        auto flag = std::make_shared<std::atomic<bool>>(false);
        std::thread thread([installer = std::move(installer), request = std::move(request), done, flag]() mutable {
            setThreadName("tsl.install");
            done.resumeWith([&] { return installer.install(request); });
            *flag = true;
        });
        std::vector<Worker> ended;
        {
            std::lock_guard g(_lock);
            std::vector<Worker> running;
            for (auto& w : _workers) (*w.finished ? ended : running).push_back(std::move(w));
            running.push_back({std::move(thread), flag});
            _workers.swap(running);
        }
        // Threads that have ended are joined here rather than left to pile up.
        for (auto& w : ended) w.thread.join();
    });
}

}  // namespace tsl
