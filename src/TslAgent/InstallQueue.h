#pragma once
#include <asio/awaitable.hpp>

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>

#include "TslAgent/AppInstaller.h"

namespace tsl {

// Keeps installations off the caller's executor: each runs on a thread of its
// own ("tsl.install"), started in the order of arrival, while the caller's
// executor stays free. Installs don't wait for one another. The threads are
// detached and counted, so none is left unjoined when the process ends
// wherever it ends.
// Threading: run from any executor; the destructor waits for installs still
// running, so the executor their callers wait on must outlive it.
class InstallQueue {
public:
    InstallQueue() = default;
    ~InstallQueue();
    InstallQueue(const InstallQueue&) = delete;
    InstallQueue& operator=(const InstallQueue&) = delete;

    // The installed bundle, or the error of the install, unchanged.
    asio::awaitable<std::filesystem::path> run(AppInstaller installer, InstallRequest request);

private:
    struct Running {
        std::mutex lock;
        std::condition_variable ended;
        int count = 0;
    };
    // Shared with the threads, which touch it after the last wait may be over.
    std::shared_ptr<Running> _running = std::make_shared<Running>();
};

}  // namespace tsl
