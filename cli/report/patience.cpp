#include "report/patience.h"

#include <future>
#include <memory>
#include <thread>
#include <utility>

namespace cli {

bool DoneInTime(std::chrono::duration<double> patience, std::function<void()> work) {
    auto task = std::make_shared<std::packaged_task<void()>>(std::move(work));
    auto end = task->get_future();
    std::thread([task] { (*task)(); }).detach();
    if (end.wait_for(patience) != std::future_status::ready) {
        return false;
    }
    end.get();
    return true;
}

}  // namespace cli
