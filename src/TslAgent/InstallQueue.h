#pragma once
#include <asio/awaitable.hpp>

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "TslAgent/AppInstaller.h"

namespace tsl {

// Keeps installations off the caller's executor: each runs on a thread of its
// own ("tsl.install"), started in the order of arrival, while the caller's
// executor stays free. Installs don't wait for one another.
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
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };
    std::mutex _lock;
    std::vector<Worker> _workers;
};

}  // namespace tsl
